#include "Engine/PathSearch.hpp"

#include "Engine/FolderBelow.hpp"
#include "Engine/ListingSteps.hpp"
#include "Platform/OpenFolder.hpp"
#include "Support/Errors.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <fnmatch.h>

#include <algorithm>
#include <map>
#include <tuple>

namespace tidewrack {

NamePattern::NamePattern(std::string text)
    : text_(std::move(text)), isGlob_(text_.find_first_of("*?[") != std::string::npos),
      anyCase_(lowercased(text_) == text_) {
    while (text_.size() > 1 && text_.ends_with('/')) text_.pop_back(); // as completions write folders
}

bool NamePattern::matches(std::string_view path) const {
    const bool wholePath = !isGlob_ || text_.find('/') != std::string::npos;
    const std::string_view part = wholePath ? path : lastComponent(path);
    const std::string name = anyCase_ ? lowercased(part) : std::string(part);
    return isGlob_ ? ::fnmatch(text_.c_str(), name.c_str(), 0) == 0 : name.find(text_) != std::string::npos;
}

namespace {

// Why a restore could not bring it back.
std::optional<std::string> notKeptReason(const Entry& entry) {
    if (entry.isIgnoredFolder()) return "it is ignored";
    return entry.notKeptReason();
}

class Search {
  public:
    Search(const History& history, const NamePattern& pattern) : history_(history), pattern_(pattern) {}

    // `before` and `after`: the neighbouring snapshots that the difference lies between; 0 is before the first one.
    void step(const ListingDifference& difference, std::int64_t before, std::int64_t after) {
        for (const Manifest::Item& item : difference.older.items())
            if (difference.newer.find(item.path) == nullptr) end(item, difference, before, after);
        for (const Manifest::Item& item : difference.newer.items()) {
            if (difference.older.find(item.path) == nullptr)
                begin(item, after);
            else
                change(item, before);
        }
    }

    // Everything found; `newest` is the last snapshot looked at.
    std::vector<FoundPath> finish(std::int64_t newest) {
        std::vector<FoundPath> all;
        for (auto& [path, found] : found_) {
            if (!found.goneIn) found.during.to = newest;
            if (!found.goneIn && !found.notKept) found.keptIn = newest;
            all.push_back(std::move(found));
        }
        return all;
    }

  private:
    void begin(const Manifest::Item& item, std::int64_t seq) {
        auto known = found_.find(item.path);
        if (known == found_.end()) {
            if (!pattern_.matches(item.path)) return;
            known = found_.emplace(item.path, FoundPath()).first;
            known->second.path = item.path;
        } else {
            known->second.earlier.push_back(known->second.during);
        }
        FoundPath& found = known->second;
        found.kind = item.entry.kind;
        found.during = {seq, seq};
        found.goneIn.reset();
        found.movedTo.reset();
        found.keptIn.reset();
        found.notKept = notKeptReason(item.entry);
    }

    void change(const Manifest::Item& item, std::int64_t before) {
        const auto known = found_.find(item.path);
        if (known == found_.end()) return;
        FoundPath& found = known->second;
        const auto reason = notKeptReason(item.entry);
        if (reason && !found.notKept) found.keptIn = before;
        found.kind = item.entry.kind;
        found.notKept = reason;
    }

    void end(const Manifest::Item& item, const ListingDifference& difference, std::int64_t before, std::int64_t after) {
        const auto known = found_.find(item.path);
        if (known == found_.end()) return;
        FoundPath& found = known->second;
        found.during.to = before;
        found.goneIn = after;
        if (!found.notKept) found.keptIn = before;
        found.movedTo = placeOfSame(history_, item, difference.older, difference.newer);
    }

    const History& history_;
    const NamePattern& pattern_;
    std::map<std::string, FoundPath, std::less<>> found_;
};

void lookIntoFolder(const Project& project, std::vector<FoundPath>& all) {
    Descriptor root;
    if (openFolder(project.root, root) != 0) return; // then nothing is there
    FolderBelow folder(root.get());
    for (FoundPath& found : all) {
        Attributes attributes;
        found.isThere = folder.attributes(found.path, attributes) == 0;
    }
}

bool cameAndWentWith(const FoundPath& one, const FoundPath& folder) {
    return folder.kind == EntryKind::dir && one.during == folder.during && one.goneIn == folder.goneIn &&
           one.isThere == folder.isThere && (one.earlier.empty() || one.earlier == folder.earlier);
}

// Where the folder went, as what lies in it tells; none when that went elsewhere.
std::optional<std::string> folderMovedTo(const FoundPath& one, const FoundPath& folder) {
    const std::string rest = one.path.substr(folder.path.size());
    if (!one.movedTo || !one.movedTo->ends_with(rest)) return std::nullopt;
    return one.movedTo->substr(0, one.movedTo->size() - rest.size());
}

// Leaves what a found folder stands for to that folder. `all` is sorted by path, so that a folder comes before all that
// is in it.
std::vector<FoundPath> folded(std::vector<FoundPath> all, const NamePattern& pattern) {
    std::vector<FoundPath> rows;
    std::map<std::string_view, std::size_t> folders; // the rows of found folders
    std::vector<std::size_t> owners;
    rows.reserve(all.size());
    for (FoundPath& found : all) {
        std::size_t owner = rows.size();
        for (std::string_view above = parentOf(found.path); !above.empty(); above = parentOf(above)) {
            const auto row = folders.find(above);
            if (row != folders.end() && cameAndWentWith(found, rows[row->second])) owner = row->second;
        }
        if (owner < rows.size() && !pattern.matches(lastComponent(found.path))) {
            const auto moved = folderMovedTo(found, rows[owner]);
            if (!found.movedTo || (moved && rows[owner].movedTo.value_or(*moved) == *moved)) {
                if (moved) rows[owner].movedTo = moved;
                ++rows[owner].inside;
                continue;
            }
        }
        rows.push_back(std::move(found));
        if (rows.back().kind == EntryKind::dir) folders.emplace(rows.back().path, rows.size() - 1);
    }
    return rows;
}

// Whether the names, and what of them is kept, are those of the snapshot before, as far as the record tells. It counts
// from there only while no snapshot in between has been pruned, and in an older record without the folders. A listing
// of its own in which no file changed has other folders.
bool sameNames(const SnapshotMeta& before, const SnapshotMeta& meta) {
    if (meta.manifestOf == before.manifestOf) return true;
    return meta.seq == before.seq + 1 && meta.added == 0 && meta.deleted == 0 && meta.folders == 0 &&
           meta.modified > 0 && meta.notKept == 0 && before.notKept == 0;
}

} // namespace

FoundPaths findPaths(const Engine& engine, const Project& project, const std::vector<SnapshotMeta>& records,
                     const NamePattern& pattern) {
    FoundPaths result;
    if (records.empty()) return result;
    std::vector<const SnapshotMeta*> read;
    std::vector<std::int64_t> manifests;
    for (const SnapshotMeta& meta : records) {
        const bool newest = &meta == &records.back();
        const bool same = !read.empty() && sameNames(*(&meta - 1), meta);
        if (same && (!newest || meta.manifestOf == read.back()->manifestOf)) continue;
        read.push_back(&meta);
        manifests.push_back(meta.manifestOf);
    }
    const History history = engine.store.history(project);
    Search search(history, pattern);
    ListingReader reader(history, manifests);
    TextBuffer older("");
    std::int64_t known = 0; // up to which the names are known
    for (std::size_t i = 0; i < read.size(); ++i) {
        try {
            TextBuffer newer = reader.next();
            search.step(differenceOf(older.text(), newer.text()), known, read[i]->seq);
            older = std::move(newer);
            known = i + 1 < read.size() ? (read[i + 1] - 1)->seq : records.back().seq;
        } catch (const TidewrackError& error) {
            result.warnings.push_back(
                {.kind = Warning::Kind::listingUnread, .source = read[i]->seq, .detail = error.what()});
        }
    }
    std::vector<FoundPath> all = search.finish(known);
    lookIntoFolder(project, all);
    result.paths = folded(std::move(all), pattern);
    const auto order = [](const FoundPath& found) {
        const std::int64_t newestFirst = found.isThere ? 0 : -found.during.to;
        return std::tuple(found.isThere, newestFirst);
    };
    std::stable_sort(result.paths.begin(), result.paths.end(),
                     [&](const FoundPath& a, const FoundPath& b) { return order(a) < order(b); });
    return result;
}

} // namespace tidewrack
