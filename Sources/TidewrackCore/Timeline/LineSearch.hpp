#pragma once
// Which rows of a timeline changed lines that hold a text.

#include "Engine/Engine.hpp"
#include "Engine/Warning.hpp"
#include "Timeline/Timeline.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Changed lines of one file between two snapshots.
struct FoundLines {
    std::string path;
    Stretch during;                 // the snapshots before and after; to `untilNow` of a turn that still runs
    std::vector<std::string> lines; // the first ones, with their line ends, behind "-" where removed, "+" where added
    std::size_t count = 0;          // of all

    bool operator==(const FoundLines&) const = default;
};

struct LineFindings {
    struct Row {
        TimelineRow row;
        std::vector<FoundLines> files; // the newest stretch first, else by path
    };
    std::vector<Row> rows;         // in the order of those looked at
    std::vector<Warning> warnings; // what cannot be read; the rest tells what it can
};

// `rows` of a timeline in its order: neighbours share listings, and each is read once. `records` are those that it was
// made of. Case counts only where `text` has capitals.
[[nodiscard]] LineFindings findLines(const Engine& engine, const Project& project,
                                     const std::vector<SnapshotMeta>& records, std::span<const TimelineRow> rows,
                                     std::string_view text);

} // namespace tidewrack
