#include "Changes/Changes.hpp"

#include "Support/Paths.hpp"

#include <algorithm>
#include <iterator>

namespace tidewrack {

namespace {

// A listing made from an older one shares its texts, so that most pairs need no look at the bytes.
int compare(std::string_view a, std::string_view b) {
    return a.data() == b.data() && a.size() == b.size() ? 0 : a.compare(b);
}

// Whether what became of an item is on record. `other`: what the other listing has at its path.
bool isOnRecord(const Manifest::Item& item, const Entry* other, const Manifest& listing) {
    if (item.entry.isIgnoredFile() || (other != nullptr && other->isIgnoredFile())) return false;
    return other != nullptr || listing.ignoredAround(item.path).empty();
}

// The differences of which `counts` holds. Both listings are sorted by path, so one pass side by side meets every pair.
template <typename Counts>
Changes difference(const Manifest& older, const Manifest& newer, const Counts& counts) {
    Changes changes;
    if (&older.items() == &newer.items()) return changes;
    const auto record = [&](std::vector<std::string>& list, const Manifest::Item& item, const Manifest& other) {
        if (!counts(item, nullptr, other)) return;
        list.emplace_back(item.path);
        if (item.entry.kind == EntryKind::dir) changes.folders.emplace_hint(changes.folders.end(), item.path);
    };
    auto o = older.items().begin();
    auto n = newer.items().begin();
    while (o != older.items().end() || n != newer.items().end()) {
        const int order = o == older.items().end() ? 1 : n == newer.items().end() ? -1 : compare(o->path, n->path);
        if (order < 0) {
            record(changes.deleted, *o++, newer);
        } else if (order > 0) {
            record(changes.added, *n++, older);
        } else {
            if (differs(o->entry, n->entry) && counts(*n, &o->entry, older)) changes.modified.emplace_back(n->path);
            ++o;
            ++n;
        }
    }
    return changes;
}

} // namespace

bool differs(const Entry& older, const Entry& newer) {
    if (older.kind == EntryKind::dir && newer.kind == EntryKind::dir) return false;
    return older.kind != newer.kind || older.mode != newer.mode || older.blob != newer.blob;
}

std::vector<std::string> Changes::all() const {
    std::vector<std::string> result;
    result.reserve(added.size() + modified.size() + deleted.size());
    for (const auto* list : {&added, &modified, &deleted}) result.insert(result.end(), list->begin(), list->end());
    std::sort(result.begin(), result.end());
    return result;
}

Changes::Counts Changes::fileCounts() const {
    const auto files = [this](const std::vector<std::string>& paths) {
        return std::count_if(paths.begin(), paths.end(), [this](const auto& path) { return !folders.contains(path); });
    };
    return {files(added), files(modified), files(deleted)};
}

Changes Changes::within(const std::vector<std::string>& paths) const {
    const auto isWithin = [&](const std::string& path) {
        return std::any_of(paths.begin(), paths.end(),
                           [&](const std::string& each) { return each.empty() || isAtOrBelow(path, each); });
    };
    Changes result;
    std::copy_if(added.begin(), added.end(), std::back_inserter(result.added), isWithin);
    std::copy_if(modified.begin(), modified.end(), std::back_inserter(result.modified), isWithin);
    std::copy_if(deleted.begin(), deleted.end(), std::back_inserter(result.deleted), isWithin);
    std::copy_if(folders.begin(), folders.end(), std::inserter(result.folders, result.folders.end()), isWithin);
    return result;
}

Changes Changes::between(const Manifest& older, const Manifest& newer) {
    return difference(older, newer, isOnRecord);
}

Changes Changes::betweenListed(const Manifest& older, const Manifest& newer) {
    return difference(older, newer, [](const Manifest::Item&, const Entry*, const Manifest&) { return true; });
}

bool isFolderModeChange(const Entry& older, const Entry& newer) {
    return older.kind == EntryKind::dir && newer.kind == EntryKind::dir && older.mode != newer.mode &&
           !older.isIgnoredFolder() && !newer.isIgnoredFolder();
}

std::vector<std::string> folderModeChanges(const Manifest& older, const Manifest& newer) {
    std::vector<std::string> paths;
    if (&older.items() == &newer.items()) return paths;
    for (const auto& item : newer.items()) {
        if (item.entry.kind != EntryKind::dir) continue;
        const Entry* before = older.find(item.path);
        if (before != nullptr && isFolderModeChange(*before, item.entry)) paths.emplace_back(item.path);
    }
    return paths;
}

std::vector<std::string> changesWithFolderModes(const Manifest& older, const Manifest& newer) {
    std::vector<std::string> paths = Changes::betweenListed(older, newer).all();
    const auto changes = static_cast<std::ptrdiff_t>(paths.size());
    const std::vector<std::string> folders = folderModeChanges(older, newer);
    paths.insert(paths.end(), folders.begin(), folders.end());
    std::inplace_merge(paths.begin(), paths.begin() + changes, paths.end());
    return paths;
}

bool listTheSame(const Manifest& older, const Manifest& newer) {
    if (&older.items() == &newer.items()) return true;
    if (!Changes::betweenListed(older, newer).isEmpty()) return false;
    for (const auto& item : newer.items()) {
        if (item.entry.kind != EntryKind::dir) continue;
        const Entry* before = older.find(item.path);
        if (before != nullptr && (before->mode != item.entry.mode || before->blob != item.entry.blob)) return false;
    }
    return true;
}

} // namespace tidewrack
