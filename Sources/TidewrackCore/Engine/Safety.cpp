// What comes before a restore touches anything, so that nothing is lost which its safety snapshot alone would miss:
// what restores that were cut short left, and contents that changed without their times.

#include "Engine/CloneAll.hpp"
#include "Engine/ContentKeeper.hpp"
#include "Engine/Engine.hpp"
#include "Engine/SafeReplace.hpp"
#include "Engine/SameContent.hpp"
#include "Platform/FolderStream.hpp"
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
#include <map>
#include <utility>

namespace tidewrack {

namespace {

constexpr std::size_t threads = 4;

// What one restore that was cut short left in a project.
class Leftovers {
  public:
    Leftovers(const History& history, const MarkedRestore& restore, FolderBelow& project)
        : history_(history), restore_(restore), project_(project) {}

    [[nodiscard]] bool owns(const std::string& path) const { return restore_.owns(lastComponent(path)); }

    // Finds out which of these paths hold what a snapshot has. Each listing is read once.
    void lookUp(const std::vector<std::string>& paths) {
        std::vector<std::string> open;
        std::copy_if(paths.begin(), paths.end(), std::back_inserter(open), [&](const std::string& path) {
            return owns(path) && !nameOf(path).empty(); // what is no copy that was being made
        });
        // The safety snapshot has what was moved aside, the one gone back to what was about to replace it.
        lookIn({restore_.safety}, open);
        before_ = kept_;
        lookIn({restore_.target}, open);
        lookFurther(open);
        for (const auto& [path, names] : possible_)
            if (names.size() == 1 && !kept_.contains(path)) names_[path] = *names.begin();
    }

  private:
    void lookFurther(std::vector<std::string>& open) {
        const auto seqs = history_.seqs();
        if (std::binary_search(seqs.begin(), seqs.end(), restore_.target)) return;
        // There is no such one any more, or several were put together: any may have it, or it is a text made for the
        // record to come.
        const std::string texts = std::to_string(restore_.target);
        for (const std::string& name : listFolder(history_.blobPath(texts)))
            settle(open, [&](const std::string&, Place place) {
                return sameContent(place, {AT_FDCWD, history_.blobPath(joined(texts, name)).c_str()});
            });
        lookIn({seqs.rbegin(), seqs.rend()}, open);
    }

  public:
    [[nodiscard]] bool isUnfinishedCopy(const std::string& path) const { return owns(path) && nameOf(path).empty(); }
    // It holds what was there before that restore.
    [[nodiscard]] bool isFromBefore(const std::string& path) const { return before_.contains(path); }

    // Gives what a snapshot has its name back where that is free, and removes it else. What no snapshot has gets a name
    // that people find. The outcomes say so. False when the temporary is still there.
    bool clear(const std::string& path, std::vector<PathOutcome>& outcomes) {
        Place place;
        Attributes left;
        if (project_.place(path, place) != 0) return false;
        if (const int error = attributesAt(place.folder, place.name, left)) return error == ENOENT;
        const std::string name = nameOf(path);
        const bool isFolder = left.kind == Attributes::Kind::folder;
        bool bothNames = false;
        if (isFolder && !name.empty() && giveName(place, {place.folder, name.c_str()}, bothNames) == 0) return true;
        bool isCopy = !isFolder && (name.empty() || isEmptied(path, left) || isSecondName(place, left, name));
        if (!isFolder && !isCopy && kept_.contains(path)) {
            if (isEmptyFolder(place, name)) (void)::unlinkat(place.folder, name.c_str(), AT_REMOVEDIR);
            const int error = giveName(place, {place.folder, name.c_str()}, bothNames);
            if (error == 0) outcomes.push_back({beside(path, name), PathOutcome::Action::givenBack});
            if (error != EEXIST) return error == 0 && !bothNames;
            isCopy = true;
        }
        if (isCopy) return ::unlinkat(place.folder, place.name, 0) == 0;
        const std::string found = name.empty() ? std::string() : giveFreeName(place, name, bothNames);
        if (found.empty()) return false;
        outcomes.push_back(
            {beside(path, name), PathOutcome::Action::recovered, isFolder ? EntryKind::dir : EntryKind::file});
        outcomes.back().found = beside(path, found);
        return !bothNames;
    }

    // What clear() is going to recover or give back, if anything.
    std::optional<PathOutcome> foresee(const std::string& path) {
        Place place;
        Attributes left;
        const std::string name = nameOf(path);
        if (name.empty() || project_.place(path, place) != 0) return std::nullopt;
        if (attributesAt(place.folder, place.name, left) != 0 || left.kind == Attributes::Kind::folder ||
            isEmptied(path, left) || isSecondName(place, left, name))
            return std::nullopt;
        if (kept_.contains(path)) {
            const bool isFree = attributesAt(place.folder, name.c_str(), left) == ENOENT;
            if (!isFree && !isEmptyFolder(place, name)) return std::nullopt;
            PathOutcome outcome{beside(path, name), PathOutcome::Action::toGiveBack};
            outcome.found = path;
            return outcome;
        }
        PathOutcome outcome{beside(path, name), PathOutcome::Action::toRecover};
        int number = 1;
        for (Attributes there;
             attributesAt(place.folder, numberedName(place.folder, name, number).c_str(), there) == 0;)
            ++number;
        outcome.found = beside(path, numberedName(place.folder, name, number));
        return outcome;
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

    // Whether that restore came as far as making a folder in place of the item, and put nothing into it, or as emptying
    // the folder that the item was to replace.
    [[nodiscard]] bool isEmptyFolder(Place place, const std::string& name) const {
        bool isEmpty = true;
        FolderStream folder(place.folder, name.c_str());
        while (const char* inside = folder.next()) isEmpty = isEmpty && restore_.owns(inside);
        return folder.error() == 0 && isEmpty;
    }

    // A power cut can leave a file without the content that it was given, and nobody misses that.
    [[nodiscard]] bool isEmptied(const std::string& path, const Attributes& left) const {
        return left.kind == Attributes::Kind::file && left.size == 0 && hadContent_.contains(path) &&
               !kept_.contains(path);
    }

    // Empty for a copy that was being made.
    [[nodiscard]] std::string nameOf(const std::string& path) const {
        if (const auto found = names_.find(path); found != names_.end()) return found->second;
        return std::string(MarkedRestore::original(lastComponent(path), restore_.prefix));
    }

    static std::string beside(std::string_view path, const std::string& name) {
        const std::string folder(parentOf(path));
        return folder.empty() ? name : joined(folder, name);
    }

    // Takes those out of `open` that `isKept`.
    template <typename IsKept>
    void settle(std::vector<std::string>& open, IsKept isKept) {
        std::erase_if(open, [&](const std::string& path) {
            Place place;
            if (project_.place(path, place) != 0 || !isKept(path, place)) return false;
            kept_.insert(path);
            return true;
        });
    }

    void lookIn(const std::vector<std::int64_t>& seqs, std::vector<std::string>& open) {
        for (const std::int64_t seq : seqs) {
            if (open.empty()) return;
            try {
                const SnapshotMeta meta = history_.snapshot(seq);
                if (!lookedIn_.insert(meta.manifestOf).second) continue;
                const Manifest listing = history_.manifest(meta);
                settle(open, [&](const std::string& path, Place place) { return hasIt(listing, path, place); });
            } catch (const std::exception&) { // pruned since, or damaged: then it has nothing
            }
        }
    }

    bool hasIt(const Manifest& listing, const std::string& path, Place place) {
        for (const std::string& original : originalsIn(listing, path, nameOf(path))) {
            const Entry* entry = listing.find(original);
            if (entry == nullptr || !entry->isKept()) continue;
            const std::string name(lastComponent(original));
            const std::string blob = history_.blobPath(entry->blob);
            const Place kept{AT_FDCWD, blob.c_str()};
            possible_[path].insert(name);
            if (entry->kind == EntryKind::file && entry->size > 0) hadContent_.insert(path);
            if (!(entry->kind == EntryKind::file ? sameContent(place, kept) : sameLink(place, kept))) continue;
            names_[path] = name;
            return true;
        }
        return false;
    }

    const History& history_;
    const MarkedRestore& restore_;
    FolderBelow& project_;
    std::set<std::int64_t> lookedIn_;
    std::set<std::string, std::less<>> kept_;
    std::set<std::string, std::less<>> before_;             // those of them that the safety snapshot has
    std::set<std::string> hadContent_;                      // files that are not empty in a listing
    std::map<std::string, std::set<std::string>> possible_; // names that they may have had
    std::map<std::string, std::string> names_;              // those that they had, as far as content tells
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

namespace {

// The leftovers of all these restores. Returns the folders that could not be read.
std::vector<Walker::Unread> forEachLeftover(const Project& project, const std::set<std::string, std::less<>>& nested,
                                            const History& history, const std::vector<MarkedRestore>& restores,
                                            const std::function<void(Leftovers&, const std::string& path)>& visit) {
    std::vector<std::string> found;
    Project everything = project;
    everything.excludesIfIgnored.emplace(); // one may be in a folder that git has been told to ignore since
    const auto walker = projectWalker(everything, nested, {prefixesOf(restores), &found});
    walker->walk([](const Walker::Item&) { return true; });
    const auto depth = [](const std::string& path) { return std::count(path.begin(), path.end(), '/'); };
    std::sort(found.begin(), found.end(), [&](const std::string& a, const std::string& b) { // what is in a folder first
        return std::pair(-depth(a), std::string_view(a)) < std::pair(-depth(b), std::string_view(b));
    });
    Descriptor root;
    if (const int error = openFolder(project.root, root)) throw TidewrackError::io("read", project.root, error);
    FolderBelow files(root.get());
    std::vector<Leftovers> leftovers;
    for (const MarkedRestore& restore : restores) leftovers.emplace_back(history, restore, files).lookUp(found);
    // The name of a file is for what was there before, rather than for what was about to replace that.
    std::stable_partition(found.begin(), found.end(), [&](const std::string& path) {
        return std::any_of(leftovers.begin(), leftovers.end(),
                           [&](const Leftovers& each) { return each.isFromBefore(path); });
    });
    // Nothing but copies that were being made may be in a folder that gives its name back.
    std::stable_partition(found.begin(), found.end(), [&](const std::string& path) {
        return std::any_of(leftovers.begin(), leftovers.end(),
                           [&](const Leftovers& each) { return each.isUnfinishedCopy(path); });
    });
    for (const std::string& path : found)
        for (Leftovers& each : leftovers)
            if (each.owns(path)) visit(each, path);
    return walker->unread();
}

// Whether restores can have left something in these folders: then a snapshot has something in there.
bool mayHaveWorkedIn(const std::vector<Walker::Unread>& folders, const History& history) {
    if (folders.empty()) return false;
    std::set<std::int64_t> seen;
    try {
        for (const SnapshotMeta& meta : history.snapshots()) {
            if (!seen.insert(meta.manifestOf).second) continue;
            const Manifest listing = history.manifest(meta);
            for (const Walker::Unread& each : folders)
                if (!each.entries.empty() || listing.listsBelow(each.folder)) return true;
        }
        return false;
    } catch (const TidewrackError&) {
        return true;
    }
}

} // namespace

Interrupted Engine::clearInterrupted(const ProjectLock& lock, const Project& project) const {
    const History history = store.history(project);
    Interrupted result{{}, markedRestores(history)};
    if (result.remaining.empty()) return result;
    bool none = true;
    const auto clear = [&](Leftovers& leftovers, const std::string& path) {
        if (leftovers.clear(path, result.outcomes)) return;
        result.outcomes.push_back({path, PathOutcome::Action::leftover});
        none = false;
    };
    const auto nested = nestedRoots(project, store.projects());
    if (!mayHaveWorkedIn(forEachLeftover(project, nested, history, result.remaining, clear), history) && none) {
        result.remaining.clear();
        markRestores(lock, history, {});
    }
    return result;
}

Interrupted Engine::foreseeInterrupted(const Project& project) const {
    const History history = store.history(project);
    Interrupted result{{}, markedRestores(history)};
    if (result.remaining.empty()) return result;
    const auto foresee = [&](Leftovers& leftovers, const std::string& path) {
        auto outcome = leftovers.foresee(path);
        const auto isTold = [&](const PathOutcome& other) {
            return other.action == PathOutcome::Action::toGiveBack && other.action == outcome->action &&
                   other.path == outcome->path;
        };
        if (outcome && std::none_of(result.outcomes.begin(), result.outcomes.end(), isTold))
            result.outcomes.push_back(std::move(*outcome));
    };
    (void)forEachLeftover(project, nestedRoots(project, store.projects()), history, result.remaining, foresee);
    return result;
}

std::vector<PathOutcome> Engine::clearUp(const Project& project, Acting acting) const {
    if (!isFolder(project.root)) return {}; // nothing is left in it
    if (acting == Acting::dryRun) return foreseeInterrupted(project).outcomes;
    const ProjectLock lock(store.history(project).lockPath());
    std::vector<PathOutcome> outcomes = clearInterrupted(lock, project).outcomes;
    for (PathOutcome& outcome : outcomes)
        if (outcome.action == PathOutcome::Action::recovered) outcome.action = PathOutcome::Action::recoveredUnsaved;
    return outcomes;
}

TakenSnapshot Engine::safetySnapshot(const ProjectLock& lock, const Project& project,
                                     const SnapshotRequest& request) const {
    Interrupted interrupted = clearInterrupted(lock, project);
    TakenSnapshot taken = snapshotLocked(lock, project, request, Unchanged::waits);
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
