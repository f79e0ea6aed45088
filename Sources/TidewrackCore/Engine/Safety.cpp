// What comes before a restore touches anything, so that nothing is lost which its safety snapshot alone would miss:
// what restores that were cut short left, and contents that changed without their times.

#include "Engine/CloneAll.hpp"
#include "Engine/ContentKeeper.hpp"
#include "Engine/Engine.hpp"
#include "Engine/SafeReplace.hpp"
#include "Engine/SameContent.hpp"
#include "Platform/OpenFolder.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Walk/Walker.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <utility>

namespace tidewrack {

namespace {

constexpr std::size_t threads = 4;

// What one restore that was cut short left in a project.
class Leftovers {
  public:
    Leftovers(const History& history, const MarkedRestore& restore, FolderBelow& project)
        : history_(history), restore_(restore), project_(project) {}

    // Removes a temporary, or gives it a name that people find, when no snapshot has what it holds: then the outcome
    // says so. False when it is still there.
    bool clear(const std::string& path, std::vector<PathOutcome>& recovered) {
        Place place;
        Attributes left;
        if (project_.place(path, place) != 0) return false;
        if (const int error = attributesAt(place.folder, place.name, left)) return error == ENOENT;
        const std::string name(MarkedRestore::original(lastComponent(path), restore_.prefix));
        const std::string folder(parentOf(path));
        const std::string original = folder.empty() ? name : joined(folder, name);
        const bool isFolder = left.kind == Attributes::Kind::folder;
        bool bothNames = false;
        if (isFolder && !name.empty() && giveName(place, {place.folder, name.c_str()}, bothNames) == 0) return true;
        if (!isFolder && (name.empty() || isSecondName(place, left, name) || isKept(original, place)))
            return ::unlinkat(place.folder, place.name, 0) == 0;
        const std::string found = name.empty() ? std::string() : giveFreeName(place, name, bothNames);
        if (found.empty()) return false;
        recovered.push_back({original, PathOutcome::Action::recovered, isFolder ? EntryKind::dir : EntryKind::file});
        recovered.back().found = folder.empty() ? found : joined(folder, found);
        return !bothNames;
    }

  private:
    // Whether the item has a name that people find: a process died between giving it that name and removing this one.
    static bool isSecondName(Place place, const Attributes& left, const std::string& name) {
        if (left.links < 2) return false;
        std::string other = name;
        Attributes there;
        for (int number = 0; attributesAt(place.folder, other.c_str(), there) == 0 || number == 0; ++number) {
            if (there.device == left.device && there.ino == left.ino) return true;
            other = numberedName(place.folder, name, number + 1);
        }
        return false;
    }

    // The safety snapshot has what stood aside, the one gone back to what was about to take its place. Where there is
    // no such one any more, or several were put together, any may have it, or it is a text made for the record to come.
    bool isKept(const std::string& original, Place place) {
        if (hasIt(restore_.safety, original, place) || hasIt(restore_.target, original, place)) return true;
        const auto seqs = history_.seqs();
        if (std::binary_search(seqs.begin(), seqs.end(), restore_.target)) return false;
        const std::string texts = std::to_string(restore_.target);
        for (const std::string& name : listFolder(history_.blobPath(texts)))
            if (sameContent(place, {AT_FDCWD, history_.blobPath(joined(texts, name)).c_str()})) return true;
        return std::any_of(seqs.rbegin(), seqs.rend(), [&](std::int64_t seq) { return hasIt(seq, original, place); });
    }

    bool hasIt(std::int64_t seq, const std::string& original, Place place) {
        try {
            const Manifest listing = history_.manifest(history_.snapshot(seq));
            const Entry* entry = listing.find(original);
            if (entry == nullptr || !entry->isKept()) return false;
            const std::string blob = history_.blobPath(entry->blob);
            if (entry->kind == EntryKind::file) return sameContent(place, {AT_FDCWD, blob.c_str()});
            return sameLink(place, {AT_FDCWD, blob.c_str()});
        } catch (const std::exception&) { // pruned since, or damaged: then it has nothing
            return false;
        }
    }

    const History& history_;
    const MarkedRestore& restore_;
    FolderBelow& project_;
};

// The files whose content the safety snapshot took over from the one before, and that were not compared yet.
std::vector<const Manifest::Item*> takenOver(const Engine::Scope& touched, const TakenSnapshot& safety) {
    const std::string own = std::to_string(safety.result.meta.seq) + "/";
    std::vector<const Manifest::Item*> files;
    for (const auto& item : safety.manifest.items())
        if (item.entry.kind == EntryKind::file && item.entry.isKept() && !item.entry.blob.starts_with(own) &&
            touched(item.path) && !safety.compared.contains(item.path))
            files.push_back(&item);
    return files;
}

// The number that a snapshot's next content gets.
std::size_t nextContent(const Manifest& manifest, const std::string& own) {
    std::int64_t next = 0;
    for (const auto& item : manifest.items())
        if (item.entry.blob.starts_with(own))
            next = std::max(next, parseSeq(item.entry.blob.substr(own.size())).value_or(0) + 1);
    return static_cast<std::size_t>(next);
}

// The files whose content on the disk is not the kept one.
std::vector<const Manifest::Item*> differing(const std::vector<const Manifest::Item*>& files, int root,
                                             const History& history, const Progress& progress) {
    const std::string blobs = history.blobsFolder();
    const Descriptor kept(::open(blobs.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!kept) throw TidewrackError::io("read", blobs, errno);
    std::atomic<std::size_t> done = 0;
    const auto same = cloneAll(files.size(), threads, root, [&](std::size_t i, CloneWorker& worker) {
        if (progress) progress("compared", ++done);
        const std::string blob(files[i]->entry.blob);
        Place place;
        return worker.project.place(files[i]->path, place) == 0 && sameContent(place, {kept.get(), blob.c_str()}) ? 1
                                                                                                                  : 0;
    });
    std::vector<const Manifest::Item*> changed;
    for (std::size_t i = 0; i < files.size(); ++i)
        if (same[i] != 1) changed.push_back(files[i]);
    return changed;
}

// Keeps their contents as the safety snapshot's own.
std::vector<KeepJob> keepAnew(const std::vector<const Manifest::Item*>& changed, int root, const History& history,
                              const TakenSnapshot& safety, PendingWrites& pending) {
    const std::string own = std::to_string(safety.result.meta.seq);
    const std::string path = history.blobPath(own);
    if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) throw TidewrackError::io("create", path, errno);
    Descriptor folder;
    if (const int error = openFolder(path, folder)) throw TidewrackError::io("open", path, error);
    const Keeper keeper(folder.get(), INT64_MAX); // what was kept once is kept again
    std::size_t next = nextContent(safety.manifest, own + "/");
    std::vector<KeepJob> jobs;
    jobs.reserve(changed.size());
    for (const Manifest::Item* item : changed) jobs.push_back({{}, own + "/" + std::to_string(next++), item->entry});
    const auto errors = cloneAll(jobs.size(), threads, root, [&](std::size_t i, CloneWorker& worker) {
        worker.memory.pending = &pending;
        keeper.keep(jobs[i], changed[i]->path, worker);
        return 0;
    });
    for (std::size_t i = 0; i < jobs.size(); ++i)
        if (errors[i] != 0) jobs[i].failure = KeepFailure::system(errors[i]); // no memory for it
    return jobs;
}

// The listing with the contents that were kept anew, and their number. A file that is gone by now stays as listed.
std::pair<Manifest, std::int64_t> relisted(const Manifest& listing, const std::vector<const Manifest::Item*>& changed,
                                           const std::vector<KeepJob>& jobs) {
    ManifestBuilder builder(listing);
    std::string blob;
    std::int64_t count = 0;
    std::size_t next = 0; // both are in the listing's order
    std::uint32_t rank = 0;
    for (const auto& item : listing.items()) {
        const KeepJob* job = next < changed.size() && changed[next] == &item ? &jobs[next++] : nullptr;
        if (job != nullptr && (job->failure.error == ENOENT || job->failure.error == ENOTDIR)) job = nullptr;
        Entry entry = job != nullptr ? job->entry : item.entry;
        if (job != nullptr) {
            blob = job->failure ? job->failure.blob() : job->blob;
            entry.blob = blob;
            ++count;
        }
        builder.add(item.path, entry, rank++);
    }
    return {builder.finish(), count};
}

} // namespace

Interrupted Engine::clearInterrupted(const ProjectLock& lock, const Project& project) const {
    const History history = store.history(project);
    Interrupted result{{}, markedRestores(history)};
    if (result.remaining.empty()) return result;
    std::vector<std::string> found;
    const auto walker =
        projectWalker(project, nestedRoots(project, store.projects()), {prefixesOf(result.remaining), &found});
    walker->walk([](const Walker::Item&) { return true; });
    const auto depth = [](const std::string& path) { return std::count(path.begin(), path.end(), '/'); };
    std::sort(found.begin(), found.end(), [&](const std::string& a, const std::string& b) { // what is in a folder first
        return std::pair(-depth(a), std::string_view(a)) < std::pair(-depth(b), std::string_view(b));
    });
    Descriptor root;
    if (const int error = openFolder(project.root, root)) throw TidewrackError::io("read", project.root, error);
    FolderBelow files(root.get());
    bool all = walker->unread().empty();
    for (const std::string& path : found)
        for (const MarkedRestore& restore : result.remaining)
            if (restore.owns(lastComponent(path)) && !Leftovers(history, restore, files).clear(path, result.outcomes)) {
                result.outcomes.push_back({path, PathOutcome::Action::leftover});
                all = false;
            }
    if (all) {
        result.remaining.clear();
        markRestores(lock, history, {});
    }
    return result;
}

TakenSnapshot Engine::safetySnapshot(const ProjectLock& lock, const Project& project,
                                     const SnapshotRequest& request) const {
    Interrupted interrupted = clearInterrupted(lock, project);
    TakenSnapshot taken = snapshotLocked(lock, project, request, FolderChanges::recorded);
    for (PathOutcome& outcome : interrupted.outcomes) {
        const Entry* entry = taken.manifest.find(outcome.found);
        if (outcome.action == PathOutcome::Action::recovered && (entry == nullptr || entry->notKept()))
            outcome.action = PathOutcome::Action::recoveredUnsaved;
    }
    taken.interrupted = std::move(interrupted);
    return taken;
}

bool Engine::keepUnseen(const ProjectLock& lock, const Project& project, const Scope& touched,
                        TakenSnapshot& safety) const {
    const History history = store.history(project);
    SnapshotMeta& meta = safety.result.meta;
    const auto files = takenOver(touched, safety);
    if (files.empty()) return false;
    for (const Manifest::Item* file : files) safety.compared.emplace(file->path);
    Descriptor root;
    if (const int error = openFolder(project.root, root)) throw TidewrackError::io("read", project.root, error);
    const auto changed = differing(files, root.get(), history, progress);
    if (changed.empty()) return false;
    PendingWrites pending;
    const auto jobs = keepAnew(changed, root.get(), history, safety, pending);
    auto [listing, count] = relisted(safety.manifest, changed, jobs);
    if (count == 0) return false;
    safety.manifest = std::move(listing);
    history.writeManifest(lock, meta.seq, safety.manifest, pending);
    meta.manifestOf = meta.seq;
    meta.modified += count;
    history.writeSnapshot(lock, meta);
    history.bringNamesToDisk(lock);
    return true;
}

} // namespace tidewrack
