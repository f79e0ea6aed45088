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

    bool operator==(const NotedEdit&) const = default;
};

inline constexpr std::int64_t longestEditLog = 2'000'000; // bytes; a longer one is emptied before the next line

[[nodiscard]] std::string editLogPath(const std::string& historyFolder);

// Appends one line as one write; no lock is needed. Failures are passed over: the snapshots do not depend on the log.
void noteEdit(const std::string& historyFolder, const NotedEdit& edit);

// The edits in the log's text, oldest first; lines that cannot be read are left out.
[[nodiscard]] std::vector<NotedEdit> notedEdits(std::string_view log);

} // namespace tidewrack
