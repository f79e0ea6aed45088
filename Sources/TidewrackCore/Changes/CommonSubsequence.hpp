#pragma once
// The longest common subsequence of two sequences of line numbers, exact for every input.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tidewrack {

// Equal lines have equal ids. Ids are small: tables are sized by the largest one.
using LineId = std::uint32_t;

// One line of a common subsequence: its offset on either side.
struct LineMatch {
    std::uint32_t oldAt = 0;
    std::uint32_t newAt = 0;
    bool operator==(const LineMatch&) const = default;
};

// The pairs of a longest common subsequence, ascending on both sides. Every id is less than `idCount`.
//
// `likelyEdits` guesses how many lines are in no pair (both sides together). It changes only the cost: a
// guess that is not too low keeps the work near the diagonal. The work is at most about 1.5 times
// |a| * |b| / 64 steps, shared by two threads; memory is |a| * |b| / 2730 bytes at most.
[[nodiscard]] std::vector<LineMatch> longestCommonSubsequence(std::span<const LineId> a, std::span<const LineId> b,
                                                              LineId idCount, std::size_t likelyEdits);

} // namespace tidewrack
