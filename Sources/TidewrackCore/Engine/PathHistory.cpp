#include "Engine/PathHistory.hpp"

#include "Engine/ListingSteps.hpp"
#include "Support/Errors.hpp"

#include <string.h> // memmem

#include <algorithm>
#include <charconv>

namespace tidewrack {

namespace {

// The line of a path, decoded; empty where the text has none.
Manifest lineOf(std::string_view text, std::string_view path) {
    const std::string ending = "\t" + Manifest::escape(path) + "\n";
    const void* found = ::memmem(text.data(), text.size(), ending.data(), ending.size());
    if (found == nullptr) return {};
    const auto at = static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
    const std::size_t start = text.rfind('\n', at) + 1; // 0 for the first line
    return Manifest::decodeText(TextBuffer(text.substr(start, at + ending.size() - start)));
}

// The snapshot that kept a content.
std::int64_t keeperOf(const Entry& entry) {
    std::int64_t seq = 0;
    std::from_chars(entry.blob.data(), entry.blob.data() + entry.blob.size(), seq);
    return seq;
}

class Trail {
  public:
    Trail(const Engine& engine, const Project& project, const std::vector<SnapshotMeta>& records, std::string path,
          const std::function<bool(const PathStep&)>& visit)
        : engine_(engine), project_(project), history_(engine.store.history(project)), records_(records),
          path_(std::move(path)), visit_(visit) {}

    PathTrail follow() {
        if (records_.empty()) return std::move(result_);
        std::size_t at = records_.size() - 1;
        if (!sinceNewest(at)) return std::move(result_);
        auto newer = read(at);
        while (at > 0) {
            std::size_t first = at; // with which the path became what it is at `at`
            if (newer) first = firstAlike(at, newer->text());
            if (first == 0) break;
            auto older = readBoth(first, at, newer);
            std::size_t before = first - 1;
            while (!older && before > 0) older = read(--before);
            if (!older) break;
            if (newer) {
                ListingDifference difference = differenceOf(older->text(), newer->text());
                if (!step(before, records_[first].seq, {std::move(difference.older), std::move(difference.newer)}))
                    break;
            }
            newer = std::move(older);
            at = before;
        }
        return std::move(result_);
    }

  private:
    using Text = std::optional<TextBuffer>;

    Text read(std::size_t index) {
        try {
            return history_.manifestText(records_[index].manifestOf);
        } catch (const TidewrackError& error) {
            result_.warnings.push_back(
                {.kind = Warning::Kind::listingUnread, .source = records_[index].seq, .detail = error.what()});
            return std::nullopt;
        }
    }

    // The listing before `first`, and into `newer`, which is that of `at`, the one of `first`.
    Text readBoth(std::size_t first, std::size_t at, Text& newer) {
        if (records_[first].manifestOf != records_[at].manifestOf)
            if (Text text = read(first)) newer = std::move(text);
        return read(first - 1);
    }

    // The first of the records up to `at` that is known to have the path as that one has it, without a look at any
    // other listing. `text` is the listing of `at`.
    std::size_t firstAlike(std::size_t at, std::string_view text) {
        const Manifest line = lineOf(text, path_);
        if (!line.empty()) result_.known = true;
        const Entry* entry = line.empty() ? nullptr : &line.items().front().entry;
        const bool kept = entry != nullptr && entry->isKept();
        const std::int64_t keeper = kept ? keeperOf(*entry) : 0;
        const bool absent = entry == nullptr && !path_.empty();
        for (; at > 0; --at) {
            const SnapshotMeta& meta = records_[at];
            const SnapshotMeta& before = records_[at - 1];
            if (meta.manifestOf == before.manifestOf) continue;
            if (meta.seq != before.seq + 1) break; // what is pruned may have been anything
            // A snapshot names a content only where it found the file as the one before did; a restore where it put it.
            const bool sameContent = kept && keeper <= before.seq && meta.kind != "restored";
            const bool noneGone = meta.deleted == 0 && meta.folders == 0 && meta.added + meta.modified > 0;
            if (!sameContent && !(absent && noneGone)) break;
        }
        return at;
    }

    bool sinceNewest(std::size_t newest) {
        const std::int64_t seq = records_[newest].seq;
        try {
            return step(newest, 0, engine_.sides(project_, seq, std::nullopt));
        } catch (const TidewrackError& error) {
            result_.warnings.push_back({.kind = Warning::Kind::notCompared, .source = seq, .detail = error.what()});
            return true;
        }
    }

    bool step(std::size_t before, std::int64_t shownIn, Engine::Sides sides) {
        const Manifest::Item* added = nullptr;
        for (const Manifest* side : {&sides.older, &sides.newer})
            result_.known = result_.known || path_.empty() || side->lists(path_);
        PathStep step{before, shownIn, {}, Changes::between(sides.older, sides.newer).within({path_}), path_, {}};
        if (step.changes.isEmpty()) return true;
        step.sides = std::move(sides);
        if (std::binary_search(step.changes.added.begin(), step.changes.added.end(), path_))
            for (const Manifest::Item& item : step.sides.newer.items())
                if (item.path == path_) added = &item;
        if (added != nullptr) step.renamedFrom = placeOfSame(history_, *added, step.sides.newer, step.sides.older);
        const bool goesOn = visit_(step);
        if (step.renamedFrom) path_ = *step.renamedFrom;
        return goesOn;
    }

    const Engine& engine_;
    const Project& project_;
    const History history_;
    const std::vector<SnapshotMeta>& records_;
    std::string path_;
    const std::function<bool(const PathStep&)>& visit_;
    PathTrail result_;
};

} // namespace

PathTrail followPath(const Engine& engine, const Project& project, const std::vector<SnapshotMeta>& records,
                     std::string path, const std::function<bool(const PathStep&)>& visit) {
    return Trail(engine, project, records, std::move(path), visit).follow();
}

} // namespace tidewrack
