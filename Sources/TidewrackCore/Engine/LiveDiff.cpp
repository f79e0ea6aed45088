// Differences between two snapshots, or between a snapshot and the folder as it is now. No file is opened: in a
// comparison to now a file is unchanged exactly when every attribute is the snapshot's.

#include "Engine/Engine.hpp"
#include "Engine/Temporaries.hpp"
#include "Engine/UnreadFolders.hpp"
#include "Support/Paths.hpp"
#include "Walk/Walker.hpp"

#include <algorithm>

namespace tidewrack {

Engine::Sides Engine::sidesNow(const Project& project, std::int64_t from, Unknown unknown) const {
    const History history = store.history(project);
    const SnapshotMeta meta = history.snapshot(from);
    const auto walker =
        projectWalker(project, nestedRoots(project, store.registry().projects), {knownPrefixes(history)}, &gitPatience);
    walker->expect(meta.files);
    Sides result;
    result.older = history.manifest(meta);
    PathIndex index(result.older);
    ManifestBuilder builder(result.older);
    std::string blob;
    const std::int64_t largest = project.maxFileSize.value_or(Project::defaultMaxFileSize);
    NewestListing newest(history, from, result.older);
    const auto wasIgnored = [&](std::string_view folder) { return newest.get().listsIgnored(folder); };
    const auto add = [&](const Walker::Item& item) {
        const std::uint32_t rank = index.find(item.path);
        Entry entry = item.entry;
        if (entry.kind != EntryKind::dir && !entry.isIgnored()) {
            const Entry* before = rank == PathIndex::none ? nullptr : &result.older.items()[rank].entry;
            if (before != nullptr && before->sameAttributes(entry)) {
                entry.blob = before->blob;
            } else {
                blob = unknown == Unknown::livePath ? "live:" + joined(project.root, item.path) : "?";
                if (unknown == Unknown::asKept && entry.kind == EntryKind::file && entry.size > largest)
                    blob = "big:" + std::to_string(entry.size) + ":" + std::to_string(entry.mtime);
                entry.blob = blob;
            }
        }
        builder.add(item.path, entry, rank);
        if (progress && (builder.size() & 1023) == 0) progress("walked", builder.size());
        return true;
    };
    walker->walk(add, wasIgnored);
    result.newer = builder.finish();
    result.warnings = addUnseen(Unseen(*walker), newest, {}, result.newer);
    return result;
}

Engine::Sides Engine::sidesThen(const Project& project, std::int64_t from, std::int64_t to) const {
    const History history = store.history(project);
    return {history.manifest(history.snapshot(from)), history.manifest(history.snapshot(to)), {}};
}

Changes Engine::diff(const Project& project, std::int64_t from, std::optional<std::int64_t> to,
                     std::vector<Warning>* warnings) const {
    Sides both = to ? sidesThen(project, from, *to) : sidesNow(project, from, Unknown::question);
    if (warnings != nullptr) *warnings = std::move(both.warnings);
    return Changes::between(both.older, both.newer);
}

Engine::Sides Engine::sides(const Project& project, std::int64_t from, std::optional<std::int64_t> to) const {
    return to ? sidesThen(project, from, *to) : sidesNow(project, from, Unknown::livePath);
}

std::vector<FileChange> Engine::fileChanges(const Project& project, std::int64_t from,
                                            std::optional<std::int64_t> to) const {
    constexpr std::string_view live = "live:";
    const Sides both = sides(project, from, to);
    const Changes changes = Changes::between(both.older, both.newer);
    const History history = store.history(project);
    const auto content = [&](const Entry* entry) -> std::optional<std::string> {
        if (entry == nullptr || entry->kind != EntryKind::file || entry->notKept()) return std::nullopt;
        if (entry->blob.starts_with(live)) return std::string(entry->blob.substr(live.size()));
        return history.blobPath(entry->blob);
    };
    std::vector<FileChange> result;
    const auto add = [&](const std::vector<std::string>& paths, FileChange::Status status) {
        for (const std::string& path : paths) {
            if (changes.folders.contains(path)) continue;
            const Entry* older = both.older.find(path);
            const Entry* newer = both.newer.find(path);
            FileChange change{path, status, content(older), content(newer), std::nullopt, std::nullopt};
            if (older != nullptr) change.oldSize = older->size;
            if (newer != nullptr) change.newSize = newer->size;
            result.push_back(std::move(change));
        }
    };
    add(changes.added, FileChange::Status::added);
    add(changes.modified, FileChange::Status::modified);
    add(changes.deleted, FileChange::Status::deleted);
    std::stable_sort(result.begin(), result.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    return result;
}

} // namespace tidewrack
