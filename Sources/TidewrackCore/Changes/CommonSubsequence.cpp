#include "Changes/CommonSubsequence.hpp"

#include <algorithm>
#include <array>
#include <future>

// The table of subsequence lengths has a row per line of one side and a column per line of the other. It is
// computed a column at a time with 64 rows in a word (Hyyrö, "Bit-parallel LCS-length computation
// revisited", 2004): a bit is 0 where the length grows by one from the row above, and the carry out of the
// last row is 1 where it grows by one from the column before.
//
// The table is cut into tiles. Only what enters a tile is kept (the carries from above, the bits from the
// left), so that the way back through the table can compute again the few tiles it passes. The upper half of
// the rows is computed from the start and the lower half from the end, each in a thread of its own.

namespace tidewrack {

namespace {

constexpr std::size_t wordRows = 64;
constexpr std::size_t blockWords = 8;
constexpr std::size_t blockRows = blockWords * wordRows;
constexpr std::size_t tileColumns = 1024;

using Word = std::uint64_t;
using BlockBits = std::array<Word, blockWords>;

constexpr BlockBits allOnes = {~Word{0}, ~Word{0}, ~Word{0}, ~Word{0}, ~Word{0}, ~Word{0}, ~Word{0}, ~Word{0}};

// Moves the bits of a block one column to the right; `matches` has a bit for each row whose line equals the
// column's. Takes the carry from the block above and returns the carry to the block below.
inline Word advance(BlockBits& bits, const BlockBits& matches, Word carry) {
    for (std::size_t word = 0; word < blockWords; ++word) {
        const Word before = bits[word];
        const Word matched = before & matches[word];
        const Word partial = before + matched;
        const Word sum = partial + carry;
        carry = static_cast<Word>(partial < before) | static_cast<Word>(sum < carry);
        bits[word] = sum | (before ^ matched);
    }
    return carry;
}

// Which rows of a block hold a given id.
class BlockMatches {
  public:
    explicit BlockMatches(LineId idCount) : slots_(idCount, 0) { rows_.reserve(blockRows + 1); }

    void load(std::span<const LineId> lines) {
        for (const LineId id : loaded_) slots_[id] = 0;
        rows_.assign(1, BlockBits{});
        for (std::size_t row = 0; row < lines.size(); ++row) {
            std::uint16_t& slot = slots_[lines[row]];
            if (slot == 0) {
                slot = static_cast<std::uint16_t>(rows_.size());
                rows_.emplace_back();
            }
            rows_[slot][row / wordRows] |= Word{1} << (row % wordRows);
        }
        loaded_ = lines;
    }

    // 0 when no row holds `id`.
    [[nodiscard]] std::size_t slot(LineId id) const { return slots_[id]; }
    [[nodiscard]] const BlockBits& rows(std::size_t slot) const { return rows_[slot]; }

  private:
    std::vector<std::uint16_t> slots_; // by id
    std::vector<BlockBits> rows_;      // by slot
    std::span<const LineId> loaded_;
};

// The diagonals (column minus row) that are looked at.
struct Band {
    std::ptrdiff_t lowest = 0;
    std::ptrdiff_t highest = 0;
};

struct ColumnRange {
    std::size_t begin = 0; // a multiple of tileColumns
    std::size_t end = 0;
};

// The table for all `rows` against all `columns`, as far as it lies in the band. Both outlive it.
class LengthTable {
  public:
    LengthTable(std::span<const LineId> rows, std::span<const LineId> columns, LineId idCount, Band band)
        : rows_(rows), columns_(columns), band_(band), matches_(idCount) {}

    void compute() {
        carries_.assign(columns_.size() / wordRows + 1, 0);
        for (std::size_t block = 0; block * blockRows < rows_.size(); ++block) {
            const ColumnRange range = columnsOf(block);
            Block saved;
            saved.carriesAbove.assign(carries_.begin() + static_cast<std::ptrdiff_t>(range.begin / wordRows),
                                      carries_.begin() + static_cast<std::ptrdiff_t>(range.end / wordRows) + 1);
            matches_.load(linesOf(block));
            BlockBits bits = allOnes;
            for (std::size_t begin = range.begin; begin < range.end; begin += tileColumns) {
                saved.bitsAtTiles.push_back(bits);
                advanceTile(bits, {begin, std::min(begin + tileColumns, range.end)});
            }
            blocks_.push_back(std::move(saved));
        }
    }

    // For each count of columns, from none to all: the length of a longest common subsequence of that many
    // columns and all rows.
    [[nodiscard]] std::vector<std::uint32_t> lengths() const {
        std::vector<std::uint32_t> result(columns_.size() + 1, 0);
        for (std::size_t column = 0; column < columns_.size(); ++column) {
            const Word carry = carries_[column / wordRows] >> (column % wordRows) & 1;
            result[column + 1] = result[column] + static_cast<std::uint32_t>(carry);
        }
        return result;
    }

    // The pairs of such a subsequence of all rows and the first `column` columns, last pair first.
    [[nodiscard]] std::vector<LineMatch> pairs(std::size_t column) {
        std::vector<LineMatch> result;
        std::vector<BlockBits> tile;
        std::size_t row = rows_.size();
        while (row > 0 && column > 0) {
            const std::size_t block = (row - 1) / blockRows;
            const std::size_t firstRow = block * blockRows;
            const ColumnRange range = columnsOf(block);
            column = std::min(column, range.end);
            if (column <= range.begin) {
                row = firstRow;
                continue;
            }
            const std::size_t firstColumn = (column - 1) / tileColumns * tileColumns;
            recomputeTile(block, {firstColumn, column}, tile);
            while (row > firstRow && column > firstColumn) {
                const std::size_t bit = row - 1 - firstRow;
                if (rows_[row - 1] == columns_[column - 1])
                    result.push_back({static_cast<std::uint32_t>(--row), static_cast<std::uint32_t>(--column)});
                else if (tile[column - 1 - firstColumn][bit / wordRows] >> (bit % wordRows) & 1)
                    --row;
                else
                    --column;
            }
        }
        return result;
    }

  private:
    struct Block {
        std::vector<Word> carriesAbove; // for the block's columns, one bit each
        std::vector<BlockBits> bitsAtTiles;
    };

    [[nodiscard]] std::span<const LineId> linesOf(std::size_t block) const {
        const std::size_t first = block * blockRows;
        return rows_.subspan(first, std::min(blockRows, rows_.size() - first));
    }

    [[nodiscard]] ColumnRange columnsOf(std::size_t block) const {
        const auto first = static_cast<std::ptrdiff_t>(block * blockRows);
        const auto all = static_cast<std::ptrdiff_t>(columns_.size());
        const std::ptrdiff_t begin = std::clamp<std::ptrdiff_t>(first + band_.lowest, 0, all);
        const std::ptrdiff_t end =
            std::clamp<std::ptrdiff_t>(first + static_cast<std::ptrdiff_t>(blockRows) + band_.highest, 0, all);
        return {static_cast<std::size_t>(begin) / tileColumns * tileColumns, static_cast<std::size_t>(end)};
    }

    // Carries come from the block above and are replaced by those for the block below.
    void advanceTile(BlockBits& bits, ColumnRange range) {
        BlockBits current = bits;
        for (std::size_t column = range.begin; column < range.end;) {
            const std::size_t end = std::min(column + wordRows, range.end);
            Word& carries = carries_[column / wordRows];
            Word above = carries;
            Word below = 0;
            for (std::size_t shift = 0; column < end; ++column, ++shift, above >>= 1) {
                const std::size_t slot = matches_.slot(columns_[column]);
                if (slot == 0 && (above & 1) == 0) continue;
                below |= advance(current, matches_.rows(slot), above & 1) << shift;
            }
            carries = below;
        }
        bits = current;
    }

    // The bits after each column of a tile.
    void recomputeTile(std::size_t block, ColumnRange range, std::vector<BlockBits>& tile) {
        const Block& saved = blocks_[block];
        const std::size_t blockBegin = columnsOf(block).begin;
        matches_.load(linesOf(block));
        tile.clear();
        BlockBits bits = saved.bitsAtTiles[(range.begin - blockBegin) / tileColumns];
        for (std::size_t column = range.begin; column < range.end; ++column) {
            const std::size_t at = column - blockBegin;
            const Word carry = saved.carriesAbove[at / wordRows] >> (at % wordRows) & 1;
            advance(bits, matches_.rows(matches_.slot(columns_[column])), carry);
            tile.push_back(bits);
        }
    }

    std::span<const LineId> rows_;
    std::span<const LineId> columns_;
    Band band_;
    BlockMatches matches_;
    std::vector<Word> carries_; // below the rows computed so far, one bit for each column
    std::vector<Block> blocks_;
};

// A subsequence that is longest among those with at most `edits` lines in no pair. When there is none within that
// limit, a common subsequence that exceeds it.
std::vector<LineMatch> subsequenceWithin(std::size_t edits, std::span<const LineId> a, std::span<const LineId> b,
                                         LineId idCount) {
    const auto difference = static_cast<std::ptrdiff_t>(b.size()) - static_cast<std::ptrdiff_t>(a.size());
    const auto slack = static_cast<std::ptrdiff_t>(edits);
    // A way that leaves the band needs more edits to come back. Seen from the end the band is the same.
    const Band band = {(difference - slack) / 2 - 1, (difference + slack) / 2 + 1};
    const std::size_t half = a.size() / 2;
    const std::vector<LineId> lowerRows(a.rbegin(), a.rend() - static_cast<std::ptrdiff_t>(half));
    const std::vector<LineId> reversedColumns(b.rbegin(), b.rend());
    LengthTable upper(a.first(half), b, idCount, band);
    LengthTable lower(lowerRows, reversedColumns, idCount, band);

    constexpr std::size_t worthAThread = std::size_t{1} << 26;
    const bool large = a.size() * b.size() >= worthAThread;
    // Without a thread the work is done at get().
    const auto policy = large ? std::launch::async | std::launch::deferred : std::launch::deferred;
    std::future<void> lowerDone = std::async(policy, [&lower] { lower.compute(); });
    upper.compute();
    lowerDone.get();

    const std::vector<std::uint32_t> before = upper.lengths();
    const std::vector<std::uint32_t> after = lower.lengths();
    std::size_t meeting = 0;
    for (std::size_t column = 0; column <= b.size(); ++column)
        if (before[column] + after[b.size() - column] > before[meeting] + after[b.size() - meeting]) meeting = column;

    std::vector<LineMatch> result = upper.pairs(meeting);
    std::reverse(result.begin(), result.end());
    for (const LineMatch pair : lower.pairs(b.size() - meeting))
        result.push_back({static_cast<std::uint32_t>(a.size() - 1 - pair.oldAt),
                          static_cast<std::uint32_t>(b.size() - 1 - pair.newAt)});
    return result;
}

} // namespace

std::vector<LineMatch> longestCommonSubsequence(std::span<const LineId> a, std::span<const LineId> b, LineId idCount,
                                                std::size_t likelyEdits) {
    const std::size_t all = a.size() + b.size();
    // A band this wide holds more than half of the table; a second try would cost more than it saves.
    std::size_t limit = likelyEdits > all / 3 ? all : likelyEdits;
    for (;;) {
        std::vector<LineMatch> result = subsequenceWithin(limit, a, b, idCount);
        const std::size_t edits = all - 2 * result.size();
        // Every way with no more edits than the limit lies in the band: nothing better was missed.
        if (edits <= limit) return result;
        limit = edits;
    }
}

} // namespace tidewrack
