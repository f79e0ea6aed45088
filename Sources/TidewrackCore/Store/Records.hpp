#pragma once
// The two JSON records of the store: one per tracked folder, one per snapshot. docs/store-format.md has examples.

#include "Support/Dates.hpp"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// A tracked folder.
struct Project {
    static constexpr std::int64_t defaultMaxFileSize = 268435456; // 256 MiB

    std::string id;   // its folder's name in the registry
    std::string root; // canonical absolute path
    Date created{};
    std::vector<std::string> excludes;                         // names always left out
    std::optional<std::vector<std::string>> excludesIfIgnored; // names left out when git ignores them; absent: defaults
    std::optional<std::int64_t> maxFileSize;                   // bytes; absent: defaultMaxFileSize
    std::optional<std::int64_t> cap;                           // bytes that the history may take; absent: any number
    std::vector<std::string> patterns; // what is left out or kept besides, as lines of a .gitignore file

    bool operator==(const Project&) const = default;
};

// What happened from one snapshot to a later one.
struct Stretch {
    std::int64_t from = 0;
    std::int64_t to = 0;

    bool operator==(const Stretch&) const = default;
};

// What the snapshot at a turn's end tells of the turn, which may outlive all others of it.
struct TurnEnd {
    bool interrupted = false;          // the agent was cut off
    std::optional<std::int64_t> began; // the first of the turn's snapshots here
    std::optional<std::string> title;  // the prompt, where that is one of them
    bool alone = false;                // no other session was at work since then; not told by older records

    bool operator==(const TurnEnd&) const = default;
};

// One snapshot.
struct SnapshotMeta {
    std::int64_t seq = 0;
    Date created{};
    std::string kind;
    std::optional<std::string> label;
    std::optional<std::string> agent;
    std::optional<std::string> session;
    std::optional<std::string> turn;
    std::int64_t manifestOf = 0; // the snapshot whose manifest lists this one's content
    std::int64_t files = 0;
    std::int64_t added = 0;
    std::int64_t modified = 0;
    std::int64_t deleted = 0;
    bool pinned = false;
    std::int64_t durationMs = 0;
    std::int64_t folders = 0; // how many folders were added or deleted; not told by older records
    // Of a snapshot: how many files and links it lists without their content, and what it could not look into.
    std::int64_t notKept = 0;
    // Of a prompt: whether an agent's task in the background sent it, so that no turn begins with it. Absent in older
    // records.
    std::optional<bool> background;
    std::optional<TurnEnd> end; // of a stop; absent in older records
    // The two snapshots around a restore only: "restore", "undo" or "redo"; and what it took back in full.
    std::optional<std::string> reversal;
    std::vector<Stretch> tookBack;

    bool operator==(const SnapshotMeta&) const = default;
};

[[nodiscard]] nlohmann::json toJson(const Project& project);
[[nodiscard]] nlohmann::json toJson(const SnapshotMeta& meta);

// Read a record's text; `source` names it in the error. Unknown keys are ignored. Throw TidewrackError corrupt
// when the text is no JSON object, a required key is missing or a value has the wrong type.
[[nodiscard]] Project decodeProject(std::string_view text, const std::string& source);
[[nodiscard]] SnapshotMeta decodeSnapshotMeta(std::string_view text, const std::string& source);

} // namespace tidewrack
