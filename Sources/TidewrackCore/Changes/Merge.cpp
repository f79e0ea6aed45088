#include "Changes/Merge.hpp"

#include "Changes/EditScript.hpp"
#include "Changes/LineDiff.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

namespace tidewrack {

namespace {

using Lines = std::vector<std::string_view>;

// Among equal lines a script may name any as the one added or removed. Each such change slides down as far as it can,
// so that two sides that made the same change made it at the same place.
void slideDown(std::vector<LineChange>& changes, std::span<const LineId> base, std::span<const LineId> side) {
    for (std::size_t at = changes.size(); at-- > 0;) {
        LineChange& change = changes[at];
        const bool removes = change.newBegin == change.newEnd;
        if (!removes && change.oldBegin != change.oldEnd) continue;
        const std::size_t limit = at + 1 < changes.size() ? changes[at + 1].oldBegin : base.size();
        while (change.oldEnd < limit && (removes ? base[change.oldBegin] == base[change.oldEnd]
                                                 : side[change.newBegin] == side[change.newEnd])) {
            ++change.oldBegin;
            ++change.oldEnd;
            ++change.newBegin;
            ++change.newEnd;
        }
        if (at + 1 == changes.size() || change.oldEnd < limit) continue;
        changes[at + 1].oldBegin = change.oldBegin; // it has reached the next one
        changes[at + 1].newBegin = change.newBegin;
        changes.erase(changes.begin() + static_cast<std::ptrdiff_t>(at));
    }
}

// One side's lines and how they came from the base's; steps through its changes.
class Side {
  public:
    Side(const Lines& lines, std::span<const LineId> base, std::span<const LineId> ids)
        : lines_(lines), changes_(changesOf(shortestEditScript(base, ids))) {
        slideDown(changes_, base, ids);
    }

    [[nodiscard]] const LineChange* next() const { return next_ < changes_.size() ? &changes_[next_] : nullptr; }

    // Takes all changes that lie in the base's lines [begin, end), which grows with those that reach beyond. False when
    // there is none.
    bool take(std::size_t begin, std::size_t& end) {
        bool any = false;
        for (const LineChange* change = next(); change != nullptr; change = next()) {
            const bool within = change->oldBegin < end || (change->oldBegin == begin && change->oldEnd == begin);
            if (!within) break;
            if (!taken_) first_ = *change;
            taken_ = last_ = *change;
            end = std::max(end, change->oldEnd);
            any = true;
            ++next_;
        }
        return any;
    }

    // This side's version of the base's lines [begin, end), which hold all changes taken since the last call; none when
    // there was no such change.
    std::optional<std::span<const std::string_view>> replacement(std::size_t begin, std::size_t end) {
        if (!taken_) return std::nullopt;
        taken_.reset();
        const std::size_t from = first_.newBegin - (first_.oldBegin - begin);
        const std::size_t to = last_.newEnd + (end - last_.oldEnd);
        return std::span(lines_).subspan(from, to - from);
    }

  private:
    const Lines& lines_;
    std::vector<LineChange> changes_;
    std::size_t next_ = 0;
    std::optional<LineChange> taken_;
    LineChange first_;
    LineChange last_;
};

class Text {
  public:
    // False when a line would be written behind one that has no end.
    bool add(std::span<const std::string_view> lines) {
        for (const std::string_view line : lines) {
            if (!text_.empty() && text_.back() != '\n') return false;
            text_ += line;
        }
        return true;
    }
    [[nodiscard]] std::string take() { return std::move(text_); }

  private:
    std::string text_;
};

// The change that begins first; of two at one place the one that only adds lines.
const LineChange* earlier(const LineChange* a, const LineChange* b) {
    if (a == nullptr || b == nullptr) return a == nullptr ? b : a;
    const auto place = [](const LineChange* change) { return std::pair(change->oldBegin, change->oldEnd); };
    return place(b) < place(a) ? b : a;
}

// What both sides made of the same lines: their common version, or where all three have as many lines, a merge line by
// line. None where they clash.
std::optional<Lines> agreed(std::span<const std::string_view> base, std::span<const std::string_view> one,
                            std::span<const std::string_view> other) {
    if (std::equal(one.begin(), one.end(), other.begin(), other.end())) return Lines(one.begin(), one.end());
    if (one.size() != base.size() || other.size() != base.size()) return std::nullopt;
    Lines lines;
    for (std::size_t at = 0; at < base.size(); ++at) {
        if (one[at] != other[at] && one[at] != base[at] && other[at] != base[at]) return std::nullopt;
        lines.push_back(one[at] == base[at] ? other[at] : one[at]);
    }
    return lines;
}

std::optional<std::string> merged(const Lines& base, Side one, Side other) {
    Text text;
    std::size_t done = 0;
    while (const LineChange* first = earlier(one.next(), other.next())) {
        const std::size_t begin = first->oldBegin;
        std::size_t end = first->oldEnd;
        const auto takeBoth = [&] {
            const bool any = one.take(begin, end);
            return other.take(begin, end) || any;
        };
        while (takeBoth()) {
        }
        const auto a = one.replacement(begin, end);
        const auto b = other.replacement(begin, end);
        std::optional<Lines> both;
        if (a && b && !(both = agreed(std::span(base).subspan(begin, end - begin), *a, *b))) return std::nullopt;
        if (!text.add(std::span(base).subspan(done, begin - done)) || !text.add(both ? *both : a ? *a : *b))
            return std::nullopt;
        done = end;
    }
    if (!text.add(std::span(base).subspan(done))) return std::nullopt;
    return text.take();
}

} // namespace

Merge Merge::of(std::string_view base, std::string_view one, std::string_view other) {
    for (const std::string_view text : {base, one, other})
        if (text.size() > LineDiff::sizeLimit) return {Kind::tooLarge, {}};
    for (const std::string_view text : {base, one, other})
        if (!LineDiff::text(text)) return {Kind::binary, {}};
    if (one == other || other == base) return {Kind::clean, std::string(one)};
    if (one == base) return {Kind::clean, std::string(other)};
    const std::array<Lines, 3> lines{LineDiff::wholeLines(base), LineDiff::wholeLines(one),
                                     LineDiff::wholeLines(other)};
    LineNumbering numbering(lines[0].size() + lines[1].size() + lines[2].size());
    std::array<std::vector<LineId>, 3> ids;
    for (std::size_t i = 0; i < 3; ++i) ids[i] = numbering.idsOf(lines[i]);
    auto text = merged(lines[0], Side(lines[1], ids[0], ids[1]), Side(lines[2], ids[0], ids[2]));
    return text ? Merge{Kind::clean, std::move(*text)} : Merge{Kind::clash, {}};
}

} // namespace tidewrack
