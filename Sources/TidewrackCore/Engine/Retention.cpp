// Thinning old snapshots and deleting the contents that no remaining one refers to. Records go first, then manifests,
// then contents, so that a death in between leaves no record without its manifest and no manifest without its
// contents.

#include "Engine/Engine.hpp"
#include "Engine/RetentionPlan.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <future>
#include <unordered_map>
#include <unordered_set>

namespace tidewrack {

namespace {

constexpr std::int64_t secondsBetweenPrunes = 3600;
constexpr std::size_t manifestsAtOnce = 4; // of a large project each takes some 25 MB

void removeFileIfThere(const std::string& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw TidewrackError::io("remove", path, errno);
}

// The kept contents of snapshots whose own manifest is gone: only they can be without a reference, because a
// manifest names everything that its snapshot kept.
class UnclaimedContents {
  public:
    UnclaimedContents(const Store& store, const Project& project, const std::set<std::int64_t>& manifestsInUse)
        : folder_(store.blobsFolder(project)) {
        for (const std::string& name : listFolder(folder_).value_or(std::vector<std::string>())) {
            const auto seq = parseSeq(name);
            if (!seq || std::to_string(*seq) != name) continue; // not one of ours
            if (manifestsInUse.contains(*seq)) continue;
            auto contents = listFolder(folder_ + "/" + name);
            if (!contents) continue;
            oldest_ = std::min(oldest_, *seq);
            folders_[name] = std::unordered_set<std::string>(contents->begin(), contents->end());
            count_ += static_cast<std::int64_t>(contents->size());
        }
    }

    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] std::int64_t count() const { return count_; }
    [[nodiscard]] std::int64_t oldest() const { return oldest_; }

    void claim(const Manifest& manifest) {
        for (const auto& item : manifest.items()) {
            const std::string_view blob = item.entry.blob;
            const auto slash = blob.find('/');
            if (slash == std::string_view::npos || !item.entry.isKept()) continue;
            const auto folder = folders_.find(std::string(blob.substr(0, slash)));
            if (folder != folders_.end())
                count_ -= static_cast<std::int64_t>(folder->second.erase(std::string(blob.substr(slash + 1))));
        }
    }

    // One that cannot be removed does not keep the others; the first is told at the end.
    void remove() const {
        std::optional<TidewrackError> failure;
        for (const auto& [name, contents] : folders_) {
            const std::string path = folder_ + "/" + name;
            for (const std::string& content : contents) {
                const int error = removeTree(path + "/" + content);
                if (error != 0 && !failure) failure = TidewrackError::io("remove", path + "/" + content, error);
            }
            (void)::rmdir(path.c_str()); // stays while something in it is still in use
        }
        if (failure) throw *failure;
    }

  private:
    std::string folder_;
    std::unordered_map<std::string, std::unordered_set<std::string>> folders_;
    std::int64_t count_ = 0;
    std::int64_t oldest_ = INT64_MAX;
};

// Manifests that no record names, those of interrupted snapshots included.
void removeUnusedManifests(const std::string& folder, const std::set<std::int64_t>& inUse) {
    constexpr std::string_view ending = ".mf";
    for (const std::string& name : listFolder(folder).value_or(std::vector<std::string>())) {
        if (!name.ends_with(ending)) continue;
        const auto seq = parseSeq(std::string_view(name).substr(0, name.size() - ending.size()));
        if (seq && !inUse.contains(*seq)) removeFileIfThere(folder + "/" + name);
    }
}

// Lets manifests, newest first, claim what they name. Decoding is nearly all of a prune's work, so some are decoded
// at once, each in a thread of its own.
void claimAll(const Store& store, const Project& project, const std::vector<std::int64_t>& manifests,
              UnclaimedContents& unclaimed) {
    std::deque<std::future<Manifest>> decoding;
    // Should no thread be had, the work is done at get().
    const auto decode = [&](std::int64_t seq) {
        return std::async(std::launch::async | std::launch::deferred, [&store, &project, seq] {
            SnapshotMeta meta;
            meta.manifestOf = seq;
            return store.manifest(meta, project);
        });
    };
    auto next = manifests.begin();
    while (!unclaimed.empty()) {
        // No manifest names a later snapshot's contents.
        while (next != manifests.end() && *next >= unclaimed.oldest() && decoding.size() < manifestsAtOnce)
            decoding.push_back(decode(*next++));
        if (decoding.empty()) return;
        unclaimed.claim(decoding.front().get());
        decoding.pop_front();
    }
}

// No content goes while a power cut could bring back a record that needs it.
void bringToDisk(const std::string& folder) {
    Descriptor open;
    int error = openFolder(folder, open);
    if (error == 0) error = flush(open.get(), PendingWrites());
    if (error != 0) throw TidewrackError::io("write", folder, error);
}

// A record that is there but cannot be read would be taken for a removed one, and its contents with it.
void requireAllRead(const std::vector<std::int64_t>& seqs, const std::vector<SnapshotMeta>& snapshots) {
    for (const std::int64_t seq : seqs) {
        const bool read =
            std::any_of(snapshots.begin(), snapshots.end(), [&](const auto& meta) { return meta.seq == seq; });
        if (!read) throw TidewrackError::io("can't read the record of snapshot #" + std::to_string(seq));
    }
}

} // namespace

PruneResult Engine::prune(const Project& project, Date now, bool dryRun) const {
    const ProjectLock lock(store.lockPath(project));
    return pruneLocked(lock, project, now, dryRun);
}

PruneResult Engine::pruneLocked(const ProjectLock&, const Project& project, Date now, bool dryRun) const {
    const auto snapshots = store.snapshots(project);
    const auto seqs = store.seqs(project);
    if (seqs.size() != snapshots.size()) requireAllRead(seqs, snapshots);
    const RetentionPlan plan = planRetention(snapshots, now);
    UnclaimedContents unclaimed(store, project, plan.manifestsInUse);
    claimAll(store, project, plan.manifestsToRead, unclaimed);
    PruneResult result{plan.remove, unclaimed.count()};
    if (dryRun) return result;
    for (const std::int64_t seq : plan.remove) removeFileIfThere(store.metaPath(project, seq));
    const std::string folder = store.projectFolder(project);
    removeUnusedManifests(folder + "/manifests", plan.manifestsInUse);
    for (const char* part : {"", "/snapshots", "/manifests"}) removeLeftovers(folder + part);
    if (unclaimed.empty()) return result;
    bringToDisk(folder);
    unclaimed.remove();
    return result;
}

void Engine::pruneIfDue(const ProjectLock& lock, const Project& project, SnapshotResult& result) const {
    const std::string marker = store.projectFolder(project) + "/last-prune";
    try {
        Attributes attributes;
        const std::int64_t last =
            attributesAt(AT_FDCWD, marker.c_str(), attributes) == 0 ? attributes.mtime / 1'000'000'000 : INT64_MIN / 2;
        if (now().time_since_epoch().count() - last <= secondsBetweenPrunes) return;
        writeFileAtomically(marker, "");
        (void)pruneLocked(lock, project, now(), false);
    } catch (const std::exception& error) {
        result.warnings.push_back(std::string("prune failed: ") + error.what());
    }
}

void Engine::setPinned(const Project& project, std::int64_t seq, bool pinned) const {
    const ProjectLock lock(store.lockPath(project));
    SnapshotMeta meta = store.snapshot(project, seq);
    meta.pinned = pinned;
    store.writeSnapshot(lock, project, meta);
}

} // namespace tidewrack
