#include "Changes/EditScript.hpp"

#include <algorithm>
#include <limits>
#include <optional>

namespace tidewrack {

namespace {

// The lines left to compare on one side, and their offsets.
struct Side {
    std::vector<LineId> ids;
    std::vector<std::uint32_t> offsets;
    std::vector<char> matched; // by offset
};

Side sideOf(std::span<const LineId> lines) {
    Side side;
    side.ids.assign(lines.begin(), lines.end());
    side.offsets.resize(lines.size());
    for (std::size_t at = 0; at < lines.size(); ++at) side.offsets[at] = static_cast<std::uint32_t>(at);
    side.matched.assign(lines.size(), 0);
    return side;
}

void keepRange(Side& side, std::size_t begin, std::size_t end) {
    for (std::size_t at = 0; at < side.ids.size(); ++at)
        if (at < begin || at >= end) side.matched[side.offsets[at]] = 1;
    const auto cut = [begin, end](auto& list) {
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(end), list.end());
        list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(begin));
    };
    cut(side.ids);
    cut(side.offsets);
}

// Matches the lines that both sides begin and end with.
void trim(Side& a, Side& b) {
    const std::size_t shorter = std::min(a.ids.size(), b.ids.size());
    std::size_t prefix = 0;
    while (prefix < shorter && a.ids[prefix] == b.ids[prefix]) ++prefix;
    std::size_t suffix = 0;
    while (suffix < shorter - prefix && a.ids[a.ids.size() - 1 - suffix] == b.ids[b.ids.size() - 1 - suffix]) ++suffix;
    keepRange(a, prefix, a.ids.size() - suffix);
    keepRange(b, prefix, b.ids.size() - suffix);
}

// Drops the lines that `other` lacks: they are in no common subsequence.
void dropUnshared(Side& side, const std::vector<char>& inOther) {
    std::size_t kept = 0;
    for (std::size_t at = 0; at < side.ids.size(); ++at) {
        if (!inOther[side.ids[at]]) continue;
        side.ids[kept] = side.ids[at];
        side.offsets[kept++] = side.offsets[at];
    }
    side.ids.resize(kept);
    side.offsets.resize(kept);
}

std::vector<char> idsIn(const Side& side, LineId idCount) {
    std::vector<char> present(idCount, 0);
    for (const LineId id : side.ids) present[id] = 1;
    return present;
}

// The greedy algorithm of Myers ("An O(ND) difference algorithm and its variations", 1986), given up when the
// two sides turn out to have little in common. For each number of edits d and diagonal k (old offset minus
// new offset) it keeps the furthest old offset that d edits can reach.
class GreedySearch {
  public:
    GreedySearch(std::span<const LineId> a, std::span<const LineId> b)
        : a_(a), b_(b), rows_(static_cast<Offset>(a.size())), columns_(static_cast<Offset>(b.size())) {}

    // The pairs of a longest common subsequence in descending order, or none when it would cost too much.
    std::optional<std::vector<LineMatch>> run() {
        for (edits_ = 0; edits_ <= maxEdits && steps_ <= maxSteps; ++edits_) {
            furthest_.emplace_back(static_cast<std::size_t>(edits_) + 1, unreachable);
            for (Offset k = -edits_; k <= edits_; k += 2) {
                Offset x = start(edits_, k);
                if (x == unreachable) continue;
                const Offset from = x;
                while (x < rows_ && x - k < columns_ && equal(x, x - k)) ++x;
                steps_ += 1 + static_cast<std::size_t>(x - from);
                at(edits_, k) = x;
                progress_ = std::max(progress_, x + x - k);
                if (x == rows_ && x - k == columns_) return pairs();
            }
        }
        return std::nullopt;
    }

    // After giving up: the number of edits to expect if the rest is like what has been seen.
    [[nodiscard]] std::size_t likelyEdits() const {
        const auto seen = static_cast<std::size_t>(std::max<Offset>(progress_, 1));
        const auto rate = static_cast<double>(edits_) / static_cast<double>(seen);
        const auto expected = static_cast<std::size_t>(rate * static_cast<double>(a_.size() + b_.size()));
        return expected + expected / 8 + static_cast<std::size_t>(maxEdits);
    }

  private:
    using Offset = std::int32_t;
    static constexpr Offset unreachable = -1;
    static constexpr Offset maxEdits = 1024;
    static constexpr std::size_t maxSteps = std::size_t{1} << 24;

    [[nodiscard]] bool equal(Offset x, Offset y) const {
        return a_[static_cast<std::size_t>(x)] == b_[static_cast<std::size_t>(y)];
    }
    Offset& at(Offset edits, Offset k) {
        return furthest_[static_cast<std::size_t>(edits)][static_cast<std::size_t>((k + edits) / 2)];
    }
    Offset reached(Offset edits, Offset k) { return k < -edits || k > edits ? unreachable : at(edits, k); }

    // Where diagonal k continues after one more edit: an insertion from k + 1 or a removal from k - 1.
    Offset start(Offset edits, Offset k) {
        if (edits == 0) return 0;
        const Offset inserted = reached(edits - 1, k + 1);
        const Offset removed = reached(edits - 1, k - 1);
        Offset x = unreachable;
        if (inserted != unreachable && inserted - k <= columns_) x = inserted;
        if (removed != unreachable && removed < rows_) x = std::max(x, removed + 1);
        return x;
    }

    std::vector<LineMatch> pairs() {
        std::vector<LineMatch> result;
        Offset x = rows_;
        Offset k = rows_ - columns_;
        for (Offset edits = edits_;; --edits) {
            const Offset from = start(edits, k);
            while (x > from) {
                --x;
                result.push_back({static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(x - k)});
            }
            if (edits == 0) return result;
            const Offset removed = reached(edits - 1, k - 1);
            if (removed != unreachable && removed + 1 == from) {
                x = removed;
                --k;
            } else {
                ++k;
            }
        }
    }

    std::span<const LineId> a_;
    std::span<const LineId> b_;
    Offset rows_;
    Offset columns_;
    Offset edits_ = 0;
    Offset progress_ = 0;
    std::size_t steps_ = 0;
    std::vector<std::vector<Offset>> furthest_;
};

std::vector<LineMatch> commonLines(const Side& a, const Side& b, LineId idCount) {
    if (a.ids.empty() || b.ids.empty()) return {};
    GreedySearch search(a.ids, b.ids);
    if (auto pairs = search.run()) return std::move(*pairs);
    return longestCommonSubsequence(a.ids, b.ids, idCount, search.likelyEdits());
}

std::vector<std::size_t> unmatched(const Side& side) {
    std::vector<std::size_t> offsets;
    for (std::size_t at = 0; at < side.matched.size(); ++at)
        if (!side.matched[at]) offsets.push_back(at);
    return offsets;
}

} // namespace

EditScript shortestEditScript(std::span<const LineId> oldLines, std::span<const LineId> newLines) {
    LineId idCount = 0;
    for (const LineId id : oldLines) idCount = std::max(idCount, id + 1);
    for (const LineId id : newLines) idCount = std::max(idCount, id + 1);

    Side a = sideOf(oldLines);
    Side b = sideOf(newLines);
    trim(a, b);
    const std::vector<char> inOld = idsIn(a, idCount);
    const std::vector<char> inNew = idsIn(b, idCount);
    dropUnshared(a, inNew);
    dropUnshared(b, inOld);
    trim(a, b);
    for (const LineMatch pair : commonLines(a, b, idCount)) {
        a.matched[a.offsets[pair.oldAt]] = 1;
        b.matched[b.offsets[pair.newAt]] = 1;
    }
    return {unmatched(a), unmatched(b)};
}

std::vector<LineChange> changesOf(const EditScript& script) {
    std::vector<LineChange> changes;
    auto removed = script.removed.begin();
    auto inserted = script.inserted.begin();
    std::size_t oldAt = 0;
    std::size_t newAt = 0;
    while (removed != script.removed.end() || inserted != script.inserted.end()) {
        // Both sides are the same up to the change that comes first.
        std::size_t same = std::numeric_limits<std::size_t>::max();
        if (removed != script.removed.end()) same = *removed - oldAt;
        if (inserted != script.inserted.end()) same = std::min(same, *inserted - newAt);
        LineChange change = {oldAt + same, oldAt + same, newAt + same, newAt + same};
        for (; removed != script.removed.end() && *removed == change.oldEnd; ++removed) ++change.oldEnd;
        for (; inserted != script.inserted.end() && *inserted == change.newEnd; ++inserted) ++change.newEnd;
        oldAt = change.oldEnd;
        newAt = change.newEnd;
        changes.push_back(change);
    }
    return changes;
}

std::vector<LineId> LineNumbering::idsOf(std::span<const std::string_view> lines) {
    std::vector<LineId> ids;
    ids.reserve(lines.size());
    for (const std::string_view line : lines)
        ids.push_back(ids_.try_emplace(line, static_cast<LineId>(ids_.size())).first->second);
    return ids;
}

} // namespace tidewrack
