#pragma once
// "edits.log" of one project: the files that agents' own tools, and the targets that their commands, named before they
// changed them. A snapshot tells what
// changed between two moments, this tells whose change it was. docs/store-format.md has the form of its lines.

#include "Support/Dates.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct NotedEdit {
    Date time{};
    std::string agent;
    std::optional<std::string> session;
    std::optional<std::string> turn;
    std::string path; // relative to the project's root
    // The newest snapshot's number then: which side of a later one it is on, when all are of one second. None in older
    // lines.
    std::optional<std::int64_t> after = std::nullopt;

    bool operator==(const NotedEdit&) const = default;
};

// What the log tells.
struct EditNotes {
    std::vector<NotedEdit> edits; // oldest first
    // Notes of what came until then are lost: who named a path before can't be told. None: all are there.
    std::optional<Date> lackingUntil;

    bool operator==(const EditNotes&) const = default;
};

// Behind the path of a folder of which not all that is in it is meant, but the folder itself.
inline constexpr const char* folderAlone = "/.";

inline constexpr std::int64_t longestEditLog = 2'000'000; // bytes; a longer one is moved aside before the next line

[[nodiscard]] std::string editLogPath(const std::string& historyFolder);

// Appends one line as one write; no lock is needed. Failures are passed over: the snapshots do not depend on the log.
void noteEdit(const std::string& historyFolder, const NotedEdit& edit);

// The edits in the log's text. A line that cannot be read, or without its end, is a note that is lost.
[[nodiscard]] EditNotes notedEdits(std::string_view log);

// What the log and the one that was moved aside for it hold. What cannot be read is lost.
[[nodiscard]] EditNotes readNotedEdits(const std::string& historyFolder);

} // namespace tidewrack
