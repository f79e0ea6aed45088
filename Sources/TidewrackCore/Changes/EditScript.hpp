#pragma once
// The shortest way to turn one list of lines into another by removing and inserting lines.

#include "Changes/CommonSubsequence.hpp"

#include <cstddef>
#include <span>
#include <vector>

namespace tidewrack {

struct EditScript {
    std::vector<std::size_t> removed;  // offsets into the old lines, ascending
    std::vector<std::size_t> inserted; // offsets into the new lines, ascending
    bool operator==(const EditScript&) const = default;
};

// A script of minimal length, exact for every input; lines are given by their ids (see LineId).
// Small differences cost time in proportion to the lines plus the square of the difference.
[[nodiscard]] EditScript shortestEditScript(std::span<const LineId> oldLines, std::span<const LineId> newLines);

} // namespace tidewrack
