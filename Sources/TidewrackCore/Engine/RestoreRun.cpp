#include "Engine/RestoreRun.hpp"

#include "Engine/KeptContent.hpp"
#include "Engine/SafeReplace.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/Volumes.hpp"
#include "Support/Errors.hpp"
#include "Support/Paths.hpp"
#include "Walk/Walker.hpp"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace tidewrack {

namespace {

constexpr std::int64_t coarsestTime = 2'000'000'000; // nanoseconds; some volumes keep every second one

using Action = PathOutcome::Action;
using Reason = Obstacle::Reason;

const char* describe(const Attributes& attributes) {
    switch (attributes.kind) {
    case Attributes::Kind::file: return "file";
    case Attributes::Kind::link: return "symlink";
    case Attributes::Kind::folder: return "folder";
    case Attributes::Kind::other: break;
    }
    return "other";
}

// Whether a file or link has the size and time that it was written with. Volumes cut times down to what they keep; a
// change would have a later one.
bool isAsWritten(const Attributes& attributes, const Entry& wanted) {
    const Entry there = entryOf(attributes);
    const bool inTime = there.mtime <= wanted.mtime &&
                        (wanted.mtime < INT64_MIN + coarsestTime || there.mtime > wanted.mtime - coarsestTime);
    return there.kind == wanted.kind && there.size == wanted.size && inTime;
}

} // namespace

RestoreRun::RestoreRun(const Engine& engine, const Project& project, const Manifest& target,
                       const TakenSnapshot& safety, Temporaries& names)
    : engine_(engine), ignoresCase_(volumeIgnoresCase(project.root)), target_(target), safety_(safety), names_(names),
      files_(-1), parents_(files_) {
    if (const int error = openFolder(project.root, root_)) throw TidewrackError::io("read", project.root, error);
    files_ = FolderBelow(root_.get());
    // A link there is the user's, who has put the contents on another volume.
    const std::string blobs = engine.store.history(project).blobsFolder();
    blobs_ = Descriptor(::open(blobs.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!blobs_) throw TidewrackError::io("read", blobs, errno);
}

void RestoreRun::work(RestorePlan plan, const std::set<std::string, std::less<>>& nestedRoots) {
    nestedRoots_ = nestedRoots;
    result_.outcomes = std::move(plan.left);
    open(plan.closedFolders);
    // Of a renamed file one name is there at any time: the old one is made before the new one is removed.
    const Removals first = takeObstructing(plan, ignoresCase_);
    removeObstructing(first, plan);
    files_.forget();
    makeFolders(plan.makeFolders);
    write(plan.writes);
    files_.forget();
    dropUnused();
    removeAside();
    removeRest(plan);
    finishFolders(plan);
    bringToDisk();
}

void RestoreRun::open(const RestorePlan::Items& folders) {
    for (const Manifest::Item* item : folders)
        if (files_.setMode(item->path, static_cast<std::uint16_t>(item->entry.mode | ownerAll)) == 0)
            opened_.push_back(item);
}

bool RestoreRun::untouched(const Entry& recorded, const Attributes& attributes) {
    Entry there = entryOf(attributes);
    if (there.sameAttributes(recorded)) return true;
    // Removing one name of a file changes the status time of its other names: that was us.
    const std::lock_guard lock(mutex_);
    if (!sharedInodes_.contains(attributes.ino)) return false;
    there.ctime = recorded.ctime;
    return there.sameAttributes(recorded);
}

void RestoreRun::touched(const Attributes& attributes) {
    if (attributes.links < 2 || attributes.kind == Attributes::Kind::folder) return;
    const std::lock_guard lock(mutex_);
    sharedInodes_.insert(attributes.ino);
}

RestoreRun::Standing RestoreRun::examine(FolderBelow& project, std::string_view path, Obstacle& obstacle,
                                         Attributes& attributes) {
    const int error = project.attributes(path, attributes);
    if (nothingThere(error)) return Standing::nothing;
    if (error != 0) {
        obstacle = Obstacle::system(error);
        return Standing::unsafe;
    }
    const Entry* recorded = safety_.manifest.findKnown(path);
    if (recorded == nullptr) {
        // Where history lists nothing the folder may still hold exactly what is wanted.
        const Entry* wanted = target_.find(path);
        if (wanted != nullptr && wanted->sameAttributes(entryOf(attributes))) return Standing::asWanted;
        const Entry* listed = safety_.manifest.find(path);
        obstacle = listed != nullptr ? obstacleIn(*listed) : Obstacle{Reason::notInHistory};
    } else if (recorded->kind == EntryKind::dir && isLeft(path)) {
        obstacle = {Reason::folderHoldsMore};
    } else if (obstacle = obstacleIn(*recorded); !obstacle && !untouched(*recorded, attributes)) {
        obstacle = {Reason::changedSince};
    }
    return obstacle ? Standing::unsafe : Standing::safe;
}

void RestoreRun::makeFolders(const RestorePlan::Items& items) {
    for (const Manifest::Item* item : items) {
        if (isLeft(item->path)) continue; // what is there could not be removed
        if (auto obstacle = parents_.prepare(item->path)) {
            leave(item->path, Action::skipped, std::move(obstacle));
            continue;
        }
        const auto mode = static_cast<std::uint16_t>(item->entry.mode | ownerAll);
        const int error = files_.makeFolder(item->path, mode);
        if (error == 0) {
            restored(*item);
            if (Attributes now; files_.attributes(item->path, now) == 0) remember(item->path, entryOf(now));
            continue;
        }
        Attributes there;
        if (error != EEXIST || files_.attributes(item->path, there) != 0) {
            leave(item->path, Action::notCreated, Obstacle::system(error));
        } else if (there.kind != Attributes::Kind::folder) {
            leave(item->path, Action::notCreated, {Reason::somethingInTheWay, 0, {}, describe(there)});
        } else {
            if (isClosed(entryOf(there))) // finishFolder gives it the mode that it had
                (void)files_.setMode(item->path, static_cast<std::uint16_t>(there.mode | ownerAll));
            remember(*item, there); // the safety snapshot could not see it
        }
    }
    trace_.mark([&] { return "create " + std::to_string(items.size()) + " folders"; });
}

std::vector<RestoreRun::WriteJob> RestoreRun::examineWrites(const RestorePlan::Items& items) {
    std::vector<WriteJob> jobs;
    jobs.reserve(items.size());
    for (const Manifest::Item* item : items) {
        if (auto obstacle = parents_.prepare(item->path)) {
            leave(item->path, Action::skipped, std::move(obstacle));
            continue;
        }
        Obstacle obstacle;
        Attributes attributes;
        const Standing standing = examine(files_, item->path, obstacle, attributes);
        if (standing == Standing::unsafe)
            leave(item->path, Action::notRestored, std::move(obstacle));
        else if (standing == Standing::asWanted)
            remember(*item, attributes);
        else
            jobs.push_back({item, standing == Standing::safe, {}, {}});
    }
    return jobs;
}

void RestoreRun::write(const RestorePlan::Items& items) {
    std::vector<WriteJob> jobs = examineWrites(items);
    std::atomic<std::size_t> done = 0;
    const BackgroundFlush flushing(root_.get(), jobs.size(), pending_);
    const auto errors = cloneAll(jobs.size(), cloneThreads, root_.get(), [&](std::size_t i, CloneWorker& worker) {
        WriteJob& job = jobs[i];
        job.obstacle = Obstacle::system(ENOMEM); // in case the rest finds no memory
        if (engine_.progress) engine_.progress("restored", ++done);
        worker.memory.pending = &pending_;
        job.obstacle = writeOne(job, worker);
        if (!job.obstacle) (void)!worker.project.attributes(job.item->path, job.landed);
        return 0;
    });
    if (std::any_of(errors.begin(), errors.end(), [](int error) { return error != 0; })) names_.leave();
    for (WriteJob& job : jobs) {
        if (job.obstacle) {
            leave(job.item->path, Action::notRestored, std::move(job.obstacle));
            continue;
        }
        restored(*job.item);
        rememberWritten(*job.item, job.landed);
    }
    trace_.mark([&] { return "clone " + std::to_string(jobs.size()) + " files"; });
}

Obstacle RestoreRun::putContent(const Manifest::Item& item, Place to, CloneWorker& worker) const {
    return putKept(blobs_.get(), item.entry, to, worker.memory);
}

Obstacle RestoreRun::writeOne(const WriteJob& job, CloneWorker& worker) {
    Place place;
    if (const int error = worker.project.place(job.item->path, place)) return Obstacle::system(error);
    // Under its own name a half-written file would pass for the user's if this process dies, and others could write to
    // it.
    const auto ready = readyName(job.item->path);
    const std::string temporary = ready ? *ready : names_.forCopy();
    const Place made{place.folder, temporary.c_str()};
    Obstacle obstacle = ready ? Obstacle() : putContent(*job.item, made, worker);
    // Copying may have taken a while, so the old one is checked once more.
    Attributes attributes;
    Standing standing = job.replaces ? Standing::unsafe : Standing::nothing;
    if (!obstacle && job.replaces) standing = examine(worker.project, job.item->path, obstacle, attributes);
    if (obstacle || standing == Standing::unsafe) {
        if (::unlinkat(made.folder, made.name, 0) != 0 && errno != ENOENT) names_.leave();
        return obstacle;
    }
    if (standing != Standing::safe) return putIntoGap(names_, made, place);
    touched(attributes);
    return replaceUnchanged(names_, made, place, *safety_.manifest.find(job.item->path));
}

// Folders get the mode and time they had, deepest first, once nothing is written into them any more and nothing below
// them has to be reached.
void RestoreRun::finishFolders(const RestorePlan& plan) {
    std::map<std::string_view, const Entry*, std::greater<>> folders;
    for (const auto* list : {&plan.makeFolders, &plan.keepFolders, &plan.lockedFolders})
        for (const Manifest::Item* item : *list) folders.emplace(item->path, &item->entry);
    for (const std::string& path : parents_.created()) {
        const Entry* wanted = target_.find(path);
        if (wanted != nullptr && wanted->kind == EntryKind::dir && wanted->blob.empty()) folders.emplace(path, wanted);
    }
    std::erase_if(folders, [this](const auto& folder) { return isLeft(folder.first); });
    for (const Manifest::Item* item : opened_) folders.emplace(item->path, nullptr); // unless it is there already
    for (const auto& [path, wanted] : folders) finishFolder(path, wanted);
    trace_.mark([&] { return "finish " + std::to_string(folders.size()) + " folders"; });
}

// Without `wanted` the folder was only opened: it gets back the mode that it had, and stays listed as it was.
void RestoreRun::finishFolder(std::string_view path, const Entry* wanted) {
    Attributes there;
    if (files_.attributes(path, there) != 0 || there.kind != Attributes::Kind::folder) return;
    const Entry* before = safety_.manifest.find(path);
    // The same for a folder that git ignores: no snapshot holds its mode.
    const bool asBefore = wanted == nullptr || (before != nullptr && before->isIgnoredFolder());
    const std::uint16_t mode = asBefore ? before->mode : wanted->mode;
    const std::int64_t mtime = asBefore ? there.mtime : wanted->mtime;
    const bool asListed = before != nullptr && before->mode == there.mode && before->mtime == there.mtime;
    // Within one tick of the clock a folder that was changed again may have the wanted time by itself.
    if (asListed && there.mode == mode && there.mtime == mtime) return;
    int error = there.mode == mode ? 0 : files_.setMode(path, mode);
    if (error == 0 && there.mtime != mtime) error = files_.setTime(path, mtime);
    if (error != 0) {
        leave(path, Action::notRestored, Obstacle::system(error));
    } else if (!asBefore && files_.attributes(path, there) == 0) {
        states_[std::string(path)].now = entryOf(there);
        if (before != nullptr && isFolderModeChange(*before, *wanted))
            result_.outcomes.push_back({std::string(path), Action::restored, EntryKind::dir, {}, {}});
    }
}

// A power cut soon after must not leave empty files where the record says that all is back.
void RestoreRun::bringToDisk() {
    if (std::none_of(states_.begin(), states_.end(), [](const auto& each) { return each.second.now.has_value(); }))
        return;
    pending_.everything = true; // names all over the project, which flushing its root alone does not bring along
    const int error = flush(root_.get(), pending_);
    if (error != 0) result_.flushError = error;
    pending_.everything = false;
    trace_.mark([] { return "flush"; });
}

// The path holds what the target says, with these attributes.
void RestoreRun::remember(const Manifest::Item& item, const Attributes& attributes) {
    Entry entry = entryOf(attributes);
    entry.blob = item.entry.blob;
    remember(item.path, entry);
}

void RestoreRun::remember(std::string_view path, const Entry& entry) {
    std::optional<Entry>& now = states_[std::string(path)].now;
    if (!now) now = entry;
}

// The same for what was just written. When another program changed it before its attributes were read, those of the
// target are listed: the next snapshot then finds the file changed, and looks into it.
void RestoreRun::rememberWritten(const Manifest::Item& item, const Attributes& landed) {
    if (isAsWritten(landed, item.entry))
        remember(item, landed);
    else
        remember(item.path, item.entry);
}

Manifest RestoreRun::manifestAfter() {
    ManifestBuilder builder;
    std::string_view gone; // the latest removed folder: everything listed below it was removed too
    std::set<std::string_view> ignored;
    auto state = states_.begin(); // both are sorted by path
    for (const auto& item : safety_.manifest.items()) {
        while (state != states_.end() && state->first < item.path) ++state;
        if (!gone.empty() && item.path.starts_with(gone) && item.path[gone.size()] == '/') continue;
        if (state != states_.end() && state->first == item.path && state->second.gone) {
            if (item.entry.kind == EntryKind::dir) gone = item.path;
            continue;
        }
        if (item.entry.isIgnoredFolder()) ignored.insert(item.path);
        Entry entry = item.entry;
        Attributes now;
        if (sharedInodes_.contains(entry.ino) && files_.attributes(item.path, now) == 0 && untouched(entry, now)) {
            entry = entryOf(now);
            entry.blob = item.entry.blob;
        }
        builder.add(item.path, entry);
    }
    // What was put back into a folder that git ignores by now, or that is a project of its own by now, is listed no
    // more than the rest of that folder.
    const auto isListed = [&](std::string_view path, const Entry& entry) {
        if (nestedRoots_.empty() && ignored.empty()) return true;
        if (entry.kind == EntryKind::dir && nestedRoots_.contains(path)) return false;
        for (std::string_view at = parentOf(path); !at.empty(); at = parentOf(at))
            if (nestedRoots_.contains(at) || ignored.contains(at)) return false;
        return true;
    };
    for (const auto& [path, each] : states_)
        if (each.now && isListed(path, *each.now)) builder.add(path, *each.now);
    for (const std::string& path : parents_.created()) {
        Attributes now;
        const auto found = states_.find(path);
        const bool known = found != states_.end() && found->second.now;
        if (known || files_.attributes(path, now) != 0) continue;
        if (isListed(path, entryOf(now))) builder.add(path, entryOf(now));
    }
    return builder.finish(); // of two entries for one path the later one stays
}

RestoreResult RestoreRun::takeResult() {
    return std::move(result_);
}

bool RestoreRun::isLeft(std::string_view path) const {
    const auto found = states_.find(path);
    return found != states_.end() && found->second.left;
}

void RestoreRun::leave(std::string_view path, PathOutcome::Action action, Obstacle obstacle) {
    states_[std::string(path)].left = true;
    result_.outcomes.push_back({std::string(path), action, EntryKind::file, std::move(obstacle)});
}

void RestoreRun::removed(const Manifest::Item& item) {
    states_[std::string(item.path)].gone = true;
    result_.outcomes.push_back({std::string(item.path), Action::removed, item.entry.kind});
}

void RestoreRun::restored(const Manifest::Item& item) {
    result_.outcomes.push_back({std::string(item.path), Action::restored, item.entry.kind});
}

} // namespace tidewrack
