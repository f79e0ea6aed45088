// Thinning old snapshots and deleting the contents that no remaining one refers to. Records go first, then manifests,
// then contents, so that a death in between leaves no record without its manifest or its contents. Of the manifests one
// stays until the contents are gone: while a manifest is there that no record names, contents may be there as well that
// nothing names, and the next prune looks at all of them.

#include "Engine/Caps.hpp"
#include "Engine/Engine.hpp"
#include "Engine/Forget.hpp"
#include "Engine/RetentionPlan.hpp"
#include "Engine/Usage.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Flush.hpp"
#include "Platform/OpenFolder.hpp"
#include "Store/Settings.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <unordered_set>
#include <utility>

namespace tidewrack {

namespace {

constexpr std::size_t manifestsAtOnce = 4; // of a large project each takes some 10 MB

void removeFileIfThere(const std::string& path) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw TidewrackError::io("remove", path, errno);
}

// Kept contents that perhaps no manifest names any longer.
class UnclaimedContents {
  public:
    explicit UnclaimedContents(std::string folder) : folder_(std::move(folder)) {}

    // Adds the contents kept by snapshots whose own manifest is gone. Only those can be without a reference, because a
    // manifest names everything that its snapshot kept.
    void addAllBut(const std::set<std::int64_t>& manifestsInUse) {
        for (const std::string& name : listFolder(folder_)) {
            const auto seq = parseSeq(name);
            if (!seq || std::to_string(*seq) != name) continue; // not one of ours
            if (!manifestsInUse.contains(*seq) && isFolder(folderOf(*seq))) add(*seq);
        }
    }

    // Adds the contents that snapshot `seq` kept.
    void add(std::int64_t seq) {
        try {
            const auto contents = listFolder(folderOf(seq));
            oldest_ = std::min(oldest_, seq);
            folders_[seq] = std::unordered_set<std::string>(contents.begin(), contents.end());
            count_ += static_cast<std::int64_t>(contents.size());
        } catch (const TidewrackError& error) {
            if (!failure_) failure_ = error;
        }
    }

    // Leaves alone what snapshots above `newest` kept.
    void forgetAbove(std::int64_t newest) {
        for (auto each = folders_.upper_bound(newest); each != folders_.end(); each = folders_.erase(each))
            count_ -= static_cast<std::int64_t>(each->second.size());
    }

    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] std::int64_t count() const { return count_; }
    [[nodiscard]] std::int64_t oldest() const { return oldest_; }

    [[nodiscard]] std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& [seq, contents] : folders_)
            for (const std::string& content : contents) result.push_back(std::to_string(seq) + "/" + content);
        return result;
    }

    void claim(const TextBuffer& manifest) {
        std::int64_t latest = -1; // neighbours' contents often lie in one folder
        auto folder = folders_.end();
        Manifest::forEachBlob({manifest.bytes.get(), manifest.size}, [&](std::string_view blob) {
            const auto slash = blob.find('/');
            if (slash == std::string_view::npos) return;
            const std::int64_t seq = parseSeq(blob.substr(0, slash)).value_or(-1);
            if (std::exchange(latest, seq) != seq) folder = folders_.find(seq);
            if (folder != folders_.end())
                count_ -= static_cast<std::int64_t>(folder->second.erase(std::string(blob.substr(slash + 1))));
        });
    }

    // A content that cannot be listed or removed does not stop the others; the first failure is thrown at the end.
    void remove() {
        for (const auto& [seq, contents] : folders_) {
            const std::string path = folderOf(seq);
            Descriptor folder;
            (void)openFolder(path, folder);
            for (const std::string& content : contents) {
                if (folder && ::unlinkat(folder.get(), content.c_str(), 0) == 0) continue;
                const int error = removeTree(path + "/" + content);
                if (error != 0 && !failure_) failure_ = TidewrackError::io("remove", path + "/" + content, error);
            }
            (void)::rmdir(path.c_str()); // stays while something in it is still in use
        }
        if (failure_) throw *failure_;
    }

  private:
    [[nodiscard]] std::string folderOf(std::int64_t seq) const { return folder_ + "/" + std::to_string(seq); }

    std::string folder_;
    std::map<std::int64_t, std::unordered_set<std::string>> folders_;
    std::int64_t count_ = 0;
    std::int64_t oldest_ = INT64_MAX;
    std::optional<TidewrackError> failure_;
};

// Manifests that no remaining record names, those of interrupted snapshots included.
class UnusedManifests {
  public:
    UnusedManifests(const History& history, const std::set<std::int64_t>& inUse) : folder_(history.manifestsFolder()) {
        constexpr std::string_view ending = ".mf";
        std::set<std::int64_t> missing = inUse;
        for (const std::string& name : listFolder(folder_)) {
            if (!name.ends_with(ending)) continue;
            const auto seq = parseSeq(std::string_view(name).substr(0, name.size() - ending.size()));
            if (!seq) continue;
            if (missing.erase(*seq) == 0) manifests_.emplace(*seq, name);
        }
        // A record that names what isn't there may be a damaged one, and another manifest the one that it needs.
        if (!missing.empty())
            throw TidewrackError::corrupt("missing manifest for #" + std::to_string(*missing.begin()));
    }

    [[nodiscard]] bool areAllAmong(const std::set<std::int64_t>& numbers) const {
        return std::all_of(manifests_.begin(), manifests_.end(),
                           [&](const auto& each) { return numbers.contains(each.first); });
    }

    [[nodiscard]] std::vector<std::int64_t> numbers() const {
        std::vector<std::int64_t> result;
        for (const auto& [seq, name] : manifests_) result.push_back(seq);
        return result;
    }

    void forgetAbove(std::int64_t newest) { manifests_.erase(manifests_.upper_bound(newest), manifests_.end()); }

    void removeAllButOne() {
        for (; manifests_.size() > 1; manifests_.erase(manifests_.begin()))
            removeFileIfThere(folder_ + "/" + manifests_.begin()->second);
    }

    void removeTheLast() {
        for (const auto& [seq, name] : manifests_) removeFileIfThere(folder_ + "/" + name);
    }

  private:
    std::string folder_;
    std::map<std::int64_t, std::string> manifests_;
};

// Lets manifests, newest first, claim what they name. Decompressing is most of a prune's work, so some are decompressed
// at once, each in a thread of its own.
void claimAll(const History& history, const std::vector<std::int64_t>& manifests, UnclaimedContents& unclaimed) {
    std::deque<std::future<TextBuffer>> decoding;
    // Without a thread the work is done at get().
    const auto decode = [&](std::int64_t seq) {
        return std::async(std::launch::async | std::launch::deferred,
                          [&history, seq] { return history.manifestText(seq); });
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

// No content is removed while a power cut could bring back a record that needs it.
void bringToDisk(const std::string& folder) {
    // A flush of a file brings along what was done before its own latest change, so a new file is made. Where there is
    // no room for it the whole volume is flushed.
    const std::string temporary = joined(folder, temporaryName());
    Descriptor open(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    int error = 0;
    if (open)
        error = flush(open.get(), PendingWrites());
    else if ((error = openFolder(folder, open)) == 0)
        error = flushVolume(open.get());
    (void)::unlink(temporary.c_str());
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

// What a prune is going to remove.
struct PrunePlan {
    std::vector<std::int64_t> snapshots;
    UnusedManifests manifests;
    UnclaimedContents contents;
    std::int64_t newest = 0; // of the snapshots that it goes by

    [[nodiscard]] PruneResult result() const { return {snapshots, contents.count(), {}, {}}; }
};

using Choice = std::function<RetentionPlan(const std::vector<SnapshotMeta>&)>;

PrunePlan planPrune(const History& history, const Choice& choose, Engine::Sweep sweep) {
    const auto snapshots = history.snapshots();
    const auto seqs = history.seqs();
    if (!std::equal(seqs.begin(), seqs.end(), snapshots.begin(), snapshots.end(),
                    [](std::int64_t seq, const SnapshotMeta& meta) { return seq == meta.seq; }))
        requireAllRead(seqs, snapshots);
    const RetentionPlan retention = choose(snapshots);
    PrunePlan plan{retention.remove, UnusedManifests(history, retention.manifestsInUse),
                   UnclaimedContents(history.blobsFolder()), seqs.empty() ? 0 : seqs.back()};
    if (sweep == Engine::Sweep::freed && retention.freesOwnContentsOnly &&
        plan.manifests.areAllAmong(retention.manifestsFreed)) {
        for (const std::int64_t seq : retention.manifestsFreed) plan.contents.add(seq);
    } else {
        plan.contents.addAllBut(retention.manifestsInUse);
    }
    claimAll(history, retention.manifestsToRead, plan.contents);
    return plan;
}

// A plan that was made without the lock, while other commands may have been at work. What a snapshot has kept that is
// being taken looks like what a dead one has left.
PrunePlan planPruneUnlocked(const History& history, const Choice& choose) {
    constexpr int mostTries = 4;
    for (int tries = 1;; ++tries) {
        const auto before = history.seqs();
        const auto isLast = [&] { return tries == mostTries || history.seqs() == before; };
        try {
            PrunePlan plan = planPrune(history, choose, Engine::Sweep::everything);
            const bool isAtRest = ProjectLock::isFree(history.lockPath());
            if (!isLast()) continue;
            if (!isAtRest || tries == mostTries) {
                plan.contents.forgetAbove(plan.newest);
                plan.manifests.forgetAbove(plan.newest);
            }
            return plan;
        } catch (const TidewrackError&) { // another prune may have taken away what was to be read
            if (isLast()) throw;
        }
    }
}

} // namespace

namespace {

// Up to when unpinned snapshots have to go for want of room.
struct Capped {
    std::optional<Date> own; // of the project
    std::optional<Date> all; // of every project
    std::vector<Project> projects;
};

Capped cappedUpTo(const Engine& engine, const Project& project, Date now) {
    Capped capped;
    if (project.cap)
        capped.own = goesUpTo(engine, {project}, storedBytes(engine.store.history(project)), *project.cap, now);
    const auto cap = settingsOrNone(engine.store.home).cap;
    if (!cap) return capped;
    capped.projects = engine.store.registry().projects;
    capped.all = goesUpTo(engine, capped.projects, storeBytes(engine.store, capped.projects), *cap, now);
    capped.own = std::max(capped.own, capped.all); // none is the least
    return capped;
}

// Other projects give up what they have of old for the store as well.
PruneResult pruneCapped(const Engine& engine, const ProjectLock& lock, const Project& project, Date now,
                        Engine::Sweep sweep) {
    const Capped capped = cappedUpTo(engine, project, now);
    PruneResult result = engine.pruneLocked(lock, project, now, sweep, capped.own);
    for (const Project& other : capped.projects) {
        if (!capped.all || other.id == project.id) continue;
        try {
            const History history = engine.store.history(other);
            const ProjectLock others(history.lockPath(), std::chrono::steady_clock::now());
            if (clockIsConfirmed(history.snapshots(), now))
                (void)engine.pruneLocked(others, other, now, Engine::Sweep::freed, capped.all);
        } catch (const TidewrackError&) { // it is at work, or damaged: the next prune tries again
        }
    }
    return result;
}

} // namespace

PruneResult Engine::prune(const Project& project, Date now, bool dryRun) const {
    if (dryRun) return foreseePrune(project, now, cappedUpTo(*this, project, now).own);
    return pruneCapped(*this, ProjectLock(store.history(project).lockPath()), project, now, Sweep::everything);
}

namespace {

Choice byAge(Date now, std::optional<Date> upTo) {
    return [=](const std::vector<SnapshotMeta>& snapshots) { return planRetention(snapshots, now, upTo); };
}

Choice byNumber(const std::set<std::int64_t>& seqs) {
    return [&](const std::vector<SnapshotMeta>& snapshots) { return planRemoval(snapshots, seqs); };
}

PruneResult foreseen(const PrunePlan& plan) {
    PruneResult result = plan.result();
    result.contents = plan.contents.names();
    result.manifests = plan.manifests.numbers();
    return result;
}

PruneResult carriedOut(const History& history, PrunePlan plan) {
    PruneResult result = plan.result();
    for (const std::int64_t seq : plan.snapshots) removeFileIfThere(history.metaPath(seq));
    plan.manifests.removeAllButOne();
    for (const std::string& folder : {history.folder(), history.snapshotsFolder(), history.manifestsFolder()})
        removeLeftovers(folder);
    if (!plan.contents.empty()) bringToDisk(history.folder());
    plan.contents.remove();
    plan.manifests.removeTheLast();
    return result;
}

} // namespace

PruneResult Engine::foreseePrune(const Project& project, Date now, std::optional<Date> upTo) const {
    return foreseen(planPruneUnlocked(store.history(project), byAge(now, upTo)));
}

PruneResult Engine::pruneLocked(const ProjectLock&, const Project& project, Date now, Sweep sweep,
                                std::optional<Date> upTo) const {
    const History history = store.history(project);
    return carriedOut(history, planPrune(history, byAge(now, upTo), sweep));
}

PruneResult foreseeRemoval(const Engine& engine, const Project& project, const std::set<std::int64_t>& seqs) {
    return foreseen(planPruneUnlocked(engine.store.history(project), byNumber(seqs)));
}

PruneResult removeSnapshots(const Engine& engine, const ProjectLock&, const Project& project,
                            const std::set<std::int64_t>& seqs) {
    const History history = engine.store.history(project);
    return carriedOut(history, planPrune(history, byNumber(seqs), Engine::Sweep::everything));
}

void Engine::pruneIfDue(const ProjectLock& lock, const Project& project, std::int64_t age,
                        SnapshotResult& result) const {
    const std::string marker = store.history(project).folder() + "/last-prune";
    try {
        Attributes attributes;
        const std::int64_t last =
            attributesAt(AT_FDCWD, marker.c_str(), attributes) == 0 ? attributes.mtime / nanosPerSecond : INT64_MIN / 2;
        const std::int64_t since = secondsOf(now()) - last;
        if (since >= 0 && since <= age) return; // one in the future is from a wrong clock
        writeFileAtomically(marker, "");
        if (!clockIsConfirmed(store.history(project).snapshots(), now())) return;
        (void)pruneCapped(*this, lock, project, now(), Sweep::freed);
    } catch (const std::exception& error) {
        Warning& warning = result.warnings.emplace_back();
        warning.kind = Warning::Kind::pruneFailed;
        warning.detail = error.what();
    }
}

void Engine::setPinned(const Project& project, std::int64_t seq, bool pinned) const {
    const History history = store.history(project);
    const ProjectLock lock(history.lockPath());
    SnapshotMeta meta = history.snapshot(seq);
    meta.pinned = pinned;
    history.writeSnapshot(lock, meta);
}

} // namespace tidewrack
