#pragma once
// The shortest way to turn one list of lines into another by removing and inserting lines.

#include "Changes/CommonSubsequence.hpp"

#include <cstddef>
#include <span>
#include <string_view>
#include <unordered_map>
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

// A stretch where lines [oldBegin, oldEnd) became lines [newBegin, newEnd); one of the two may be empty.
struct LineChange {
    std::size_t oldBegin = 0;
    std::size_t oldEnd = 0;
    std::size_t newBegin = 0;
    std::size_t newEnd = 0;
    bool operator==(const LineChange&) const = default;
};

// The script's stretches in order, with unchanged lines between any two.
[[nodiscard]] std::vector<LineChange> changesOf(const EditScript& script);

// Gives equal lines equal ids, over all the texts it is asked for. The lines must outlive it.
class LineNumbering {
  public:
    explicit LineNumbering(std::size_t expected) { ids_.reserve(expected); }
    [[nodiscard]] std::vector<LineId> idsOf(std::span<const std::string_view> lines);

  private:
    std::unordered_map<std::string_view, LineId> ids_;
};

} // namespace tidewrack
