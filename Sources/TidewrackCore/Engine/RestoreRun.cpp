#include "Engine/RestoreRun.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Walk/Walker.hpp"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

namespace tidewrack {

namespace {

constexpr std::size_t cloneThreads = 4;
constexpr int damaged = -1;                          // no errno value: a kept content that is not as large as it was
constexpr std::int64_t coarsestTime = 2'000'000'000; // nanoseconds; some volumes keep every second one

std::string describe(const Attributes& attributes) {
    switch (attributes.kind) {
    case Attributes::Kind::file: return "a file";
    case Attributes::Kind::link: return "a symlink";
    case Attributes::Kind::folder: return "a folder";
    case Attributes::Kind::other: break;
    }
    return "a pipe, socket or device";
}

constexpr const char* changedSince = "it changed after the safety snapshot";

// Whether a thing that was moved aside is what was recorded. Moving it was a change of its status.
bool isUnchangedAside(const Attributes& attributes, const Entry& recorded) {
    Entry there = entryOf(attributes);
    there.ctime = recorded.ctime;
    return there.sameAttributes(recorded);
}

// Whether a file or link has the size and time that it was written with. Volumes cut times down to what they keep; a
// change would bear a later one.
bool isAsWritten(const Attributes& attributes, const Entry& wanted) {
    const Entry there = entryOf(attributes);
    const bool inTime = there.mtime <= wanted.mtime &&
                        (wanted.mtime < INT64_MIN + coarsestTime || there.mtime > wanted.mtime - coarsestTime);
    return there.kind == wanted.kind && there.size == wanted.size && inTime;
}

bool nothingThere(int error) {
    return error == ENOENT || error == ENOTDIR;
}

} // namespace

RestoreRun::RestoreRun(const Engine& engine, const Project& project, const Manifest& target,
                       const TakenSnapshot& safety)
    : engine_(engine), target_(target), safety_(safety), files_(-1), parents_(files_) {
    if (const int error = openFolder(project.root, root_)) throw TidewrackError::io("read", project.root, error);
    files_ = FolderBelow(root_.get());
    // A link there is the user's own, who has put the contents on another volume.
    const std::string blobs = engine.store.history(project).blobsFolder();
    blobs_ = Descriptor(::open(blobs.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!blobs_) throw TidewrackError::io("read", blobs, errno);
    pending_.copies = mostWrittenOutOneByOne; // bringToDisk() waits for all that is put back
}

void RestoreRun::work(const RestoreInput& input) {
    RestorePlan plan = planRestore(input);
    nestedRoots_ = input.nestedRoots;
    for (const std::string& warning : plan.warnings) result_.warnings.push_back(warning);
    trace_.mark([] { return "plan"; });
    removeLeftovers();
    open(plan.closedFolders);
    remove(plan);
    files_.forget();
    makeFolders(plan);
    write(plan.writes);
    files_.forget();
    finishFolders(plan);
    bringToDisk();
}

// Temporaries of a restore that was killed are ours and nobody's work.
void RestoreRun::removeLeftovers() {
    for (const std::string& path : safety_.leftovers)
        if (isLeftover(lastComponent(path))) (void)files_.removeFile(path);
}

void RestoreRun::open(const RestorePlan::Items& folders) {
    for (const Manifest::Item* item : folders)
        if (files_.setMode(item->path, static_cast<std::uint16_t>(item->entry.mode | ownerAll)) == 0)
            opened_.push_back(item);
}

bool RestoreRun::untouched(const Entry& recorded, const Attributes& attributes) {
    Entry there = entryOf(attributes);
    if (there.sameAttributes(recorded)) return true;
    // Taking away one name of a file changes the status time of its other names: that was us.
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

RestoreRun::Standing RestoreRun::examine(FolderBelow& project, std::string_view path, std::string& reason,
                                         Attributes& attributes) {
    const int error = project.attributes(path, attributes);
    if (nothingThere(error)) return Standing::nothing;
    if (error != 0) {
        reason = errorText(error);
        return Standing::unsafe;
    }
    const Entry* recorded = safety_.manifest.find(path);
    if (recorded == nullptr) {
        // Where history lists nothing the folder may still hold exactly what is wanted.
        const Entry* wanted = target_.find(path);
        if (wanted != nullptr && wanted->sameAttributes(entryOf(attributes))) return Standing::asWanted;
        reason = "it isn't in history (ignored by git, or added just now)";
    } else if (recorded->kind == EntryKind::dir) {
        reason = "a folder with content we don't keep is in the way";
    } else if (recorded->notKept()) {
        reason = "it couldn't be saved first (" + recorded->notKeptReason().value_or("") + ")";
    } else if (!untouched(*recorded, attributes)) {
        reason = changedSince;
    } else {
        return Standing::safe;
    }
    return Standing::unsafe;
}

void RestoreRun::remove(const RestorePlan& plan) {
    for (const Manifest::Item* item : plan.removeFiles) {
        std::string reason;
        Attributes attributes;
        const Standing standing = examine(files_, item->path, reason, attributes);
        if (standing == Standing::nothing) {
            removed_.emplace(item->path); // somebody was faster
            continue;
        }
        if (standing != Standing::safe) {
            warn(item->path, "couldn't restore " + std::string(item->path) + ": " + reason);
            continue;
        }
        const int error = removeUnchanged(*item, reason);
        if (nothingThere(error)) {
            removed_.emplace(item->path);
            continue;
        }
        if (error != 0) {
            warn(item->path, "couldn't remove " + std::string(item->path) + ": " + errorText(error));
            continue;
        }
        if (!reason.empty()) {
            warn(item->path, "couldn't restore " + std::string(item->path) + ": " + reason);
            continue;
        }
        touched(attributes);
        removed_.emplace(item->path);
        result_.removed.emplace_back(item->path);
        ++result_.removedFiles;
    }
    files_.forget();
    for (const Manifest::Item* item : plan.removeFolders) {
        files_.forget(); // the open parent may be the next to go
        const int error = files_.removeFolder(item->path);
        if (nothingThere(error)) {
            removed_.emplace(item->path);
            continue;
        }
        if (error != 0) {
            warn(item->path, "couldn't remove " + std::string(item->path) + ": " + errorText(error));
            continue;
        }
        removed_.emplace(item->path);
        result_.removed.emplace_back(item->path);
        result_.folders.emplace(item->path);
    }
    trace_.mark([&] { return "remove " + std::to_string(result_.removed.size()); });
}

// Removes a file or link that is as the safety snapshot recorded it, which is looked at again when it stands aside: see
// `replace`. Put back it makes way for what somebody else has put into its place.
int RestoreRun::removeUnchanged(const Manifest::Item& item, std::string& reason) {
    Place place;
    if (const int error = files_.place(item.path, place)) return error;
    const std::string temporary = temporaryName();
    const Place aside{place.folder, temporary.c_str()};
    if (::renameat(place.folder, place.name, aside.folder, aside.name) != 0)
        return nothingThere(errno) ? errno : files_.removeFile(item.path); // a full volume has no room for a new name
    Attributes attributes;
    if (attributesAt(aside.folder, aside.name, attributes) != 0 || !isUnchangedAside(attributes, item.entry)) {
        reason = changedSince;
        if (::linkat(aside.folder, aside.name, place.folder, place.name, 0) != 0 && errno != EEXIST)
            return ::renameat(aside.folder, aside.name, place.folder, place.name) == 0 ? 0 : errno;
    }
    if (::unlinkat(aside.folder, aside.name, 0) == 0) return 0;
    const int error = errno;
    if (reason.empty()) (void)!::renameat(aside.folder, aside.name, place.folder, place.name);
    return error;
}

void RestoreRun::makeFolders(const RestorePlan& plan) {
    for (const Manifest::Item* item : plan.makeFolders) {
        if (warned_.contains(item->path)) continue; // what stands there could not be removed
        if (auto warning = parents_.prepare(item->path)) {
            warn(item->path, *warning);
            continue;
        }
        const auto mode = static_cast<std::uint16_t>(item->entry.mode | ownerAll);
        const int error = files_.makeFolder(item->path, mode);
        if (error == 0) {
            restored(item->path, true);
            continue;
        }
        Attributes there;
        if (error == EEXIST && files_.attributes(item->path, there) == 0) {
            if (there.kind == Attributes::Kind::folder) {
                if (isClosed(entryOf(there))) // finishFolder gives it the mode that it had
                    (void)files_.setMode(item->path, static_cast<std::uint16_t>(there.mode | ownerAll));
                remember(*item, there); // the safety snapshot could not see it
                continue;
            }
            warn(item->path,
                 "couldn't create " + std::string(item->path) + "/: something else is there (" + describe(there) + ")");
            continue;
        }
        warn(item->path, "couldn't create " + std::string(item->path) + "/: " + errorText(error));
    }
    trace_.mark([&] { return "create " + std::to_string(plan.makeFolders.size()) + " folders"; });
}

std::vector<RestoreRun::WriteJob> RestoreRun::examineWrites(const RestorePlan::Items& items) {
    std::vector<WriteJob> jobs;
    jobs.reserve(items.size());
    for (const Manifest::Item* item : items) {
        if (auto warning = parents_.prepare(item->path)) {
            warn(item->path, *warning);
            continue;
        }
        std::string reason;
        Attributes attributes;
        const Standing standing = examine(files_, item->path, reason, attributes);
        if (standing == Standing::unsafe)
            warn(item->path, "couldn't restore " + std::string(item->path) + ": " + reason);
        else if (standing == Standing::asWanted)
            remember(*item, attributes);
        else
            jobs.push_back({item, standing == Standing::safe, {}});
    }
    return jobs;
}

void RestoreRun::write(const RestorePlan::Items& items) {
    std::vector<WriteJob> jobs = examineWrites(items);
    std::vector<Attributes> landed(jobs.size());
    std::atomic<std::size_t> done = 0;
    const BackgroundFlush flushing(root_.get(), jobs.size(), pending_);
    const auto results = cloneAll(jobs.size(), cloneThreads, root_.get(), [&](std::size_t i, CloneWorker& worker) {
        if (engine_.progress) engine_.progress("restored", ++done);
        worker.memory.pending = &pending_;
        const int error = writeOne(jobs[i], worker);
        if (error == 0 && jobs[i].unsafe.empty()) (void)!worker.project.attributes(jobs[i].item->path, landed[i]);
        return error;
    });
    for (std::size_t i = 0; i < jobs.size(); ++i) {
        const std::string_view path = jobs[i].item->path;
        const std::string reason = results[i] == damaged ? "what was kept of it is damaged"
                                   : results[i] != 0     ? errorText(results[i])
                                                         : jobs[i].unsafe;
        if (!reason.empty()) {
            warn(path, "couldn't restore " + std::string(path) + ": " + reason);
            continue;
        }
        restored(path, false);
        rememberWritten(*jobs[i].item, landed[i]);
    }
    trace_.mark([&] { return "clone " + std::to_string(jobs.size()) + " files"; });
}

int RestoreRun::putContent(const Manifest::Item& item, Place to, CloneWorker& worker) const {
    const Entry& entry = item.entry;
    const std::string blob(entry.blob);
    if (entry.kind == EntryKind::link) {
        if (const int error = copyLink({blobs_.get(), blob.c_str()}, to)) return error;
        return setModificationTime(to.folder, to.name, entry.mtime);
    }
    const Descriptor content(::openat(blobs_.get(), blob.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!content) return errno;
    struct stat status {};
    if (::fstat(content.get(), &status) != 0) return errno;
    if (status.st_size != entry.size) return damaged;
    return copyOpenFile(content.get(), status, to, {entry.mode, entry.mtime}, worker.memory);
}

int RestoreRun::writeOne(WriteJob& job, CloneWorker& worker) {
    Place place;
    if (const int error = worker.project.place(job.item->path, place)) return error;
    if (!job.replaces) {
        const int error = putContent(*job.item, place, worker);
        if (error == EEXIST) job.unsafe = changedSince;
        return error == EEXIST ? 0 : error;
    }
    const std::string temporary = temporaryName();
    const Place aside{place.folder, temporary.c_str()};
    int error = putContent(*job.item, aside, worker);
    if (error == 0) error = replace(job, aside, place, worker);
    if (error != 0 && !job.unsafe.empty()) return error; // somebody's file that could not be put back
    if (error != 0 || !job.unsafe.empty()) ::unlinkat(aside.folder, aside.name, 0);
    return error;
}

// Puts the new file `aside` into the place of the old one. Copying may have taken a while, so the old one is looked at
// once more. Even after that look somebody may write: where the volume can exchange two files the old one is looked at
// a last time when it stands aside.
int RestoreRun::replace(WriteJob& job, Place aside, Place place, CloneWorker& worker) {
    Attributes attributes;
    const Standing standing = examine(worker.project, job.item->path, job.unsafe, attributes);
    if (standing == Standing::unsafe) return 0;
    if (standing == Standing::safe) touched(attributes);
    if (standing != Standing::safe) return putIntoGap(job, aside, place);
    if (const int error = exchange(aside, place)) {
        if (error == ENOENT) return putIntoGap(job, aside, place);
        return ::renameat(aside.folder, aside.name, place.folder, place.name) == 0 ? 0 : errno;
    }
    const Entry& recorded = *safety_.manifest.find(job.item->path);
    if (attributesAt(aside.folder, aside.name, attributes) != 0 || !isUnchangedAside(attributes, recorded)) {
        job.unsafe = changedSince;
        return putBack(job, aside, place);
    }
    (void)::unlinkat(aside.folder, aside.name, 0); // a leftover for the next restore, should that fail
    return 0;
}

// A new name never takes the place of what somebody puts there at the last moment, as a rename would.
int RestoreRun::putIntoGap(WriteJob& job, Place aside, Place place) {
    if (::linkat(aside.folder, aside.name, place.folder, place.name, 0) == 0)
        return ::unlinkat(aside.folder, aside.name, 0) == 0 ? 0 : errno;
    if (errno != EEXIST) // a volume without links
        return ::renameat(aside.folder, aside.name, place.folder, place.name) == 0 ? 0 : errno;
    job.unsafe = changedSince;
    return 0;
}

// The old file, which stands aside, changed after all. Should somebody have replaced the new one meanwhile, theirs is
// the newest of the three.
int RestoreRun::putBack(const WriteJob& job, Place aside, Place place) {
    if (const int error = exchange(aside, place)) {
        if (error == ENOENT && ::renameat(aside.folder, aside.name, place.folder, place.name) == 0) return 0;
        return error;
    }
    Attributes taken;
    if (attributesAt(aside.folder, aside.name, taken) == 0 && !isAsWritten(taken, job.item->entry))
        return exchange(aside, place);
    return 0;
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
    std::erase_if(folders, [this](const auto& folder) { return warned_.contains(folder.first); });
    for (const Manifest::Item* item : opened_) folders.emplace(item->path, nullptr); // unless it is there already
    for (const auto& [path, wanted] : folders) finishFolder(path, wanted);
    trace_.mark([&] { return "finish " + std::to_string(folders.size()) + " folders"; });
}

// Without `wanted` the folder was only opened: it gets back the mode that it had, and stays listed as it was.
void RestoreRun::finishFolder(std::string_view path, const Entry* wanted) {
    Attributes there;
    if (files_.attributes(path, there) != 0 || there.kind != Attributes::Kind::folder) return;
    const Entry* before = safety_.manifest.find(path);
    // The same for one that git ignores: no snapshot could tell its mode back.
    const bool asBefore = wanted == nullptr || (before != nullptr && before->isIgnoredFolder());
    const std::uint16_t mode = asBefore ? before->mode : wanted->mode;
    const std::int64_t mtime = asBefore ? there.mtime : wanted->mtime;
    const bool asListed = before != nullptr && before->mode == there.mode && before->mtime == there.mtime;
    // Within one tick of the clock a folder that was changed again may have the wanted time by itself.
    if (asListed && there.mode == mode && there.mtime == mtime) return;
    int error = there.mode == mode ? 0 : files_.setMode(path, mode);
    if (error == 0 && there.mtime != mtime) error = files_.setTime(path, mtime);
    if (error != 0) {
        warn(path, "couldn't restore " + std::string(path) + ": " + errorText(error));
    } else if (!asBefore && files_.attributes(path, there) == 0) {
        written_.insert_or_assign(std::string(path), entryOf(there));
    }
}

// A power cut soon after must not leave empty files where the record says that all is back.
void RestoreRun::bringToDisk() {
    if (written_.empty()) return;
    pending_.everything = true; // names all over the project, which flushing its root alone does not bring along
    if (const int error = flush(root_.get(), pending_))
        result_.warnings.push_back("couldn't bring what was restored to the disk for good: " + errorText(error));
    trace_.mark([] { return "flush"; });
}

// The path holds what the target says, with these attributes.
void RestoreRun::remember(const Manifest::Item& item, const Attributes& attributes) {
    Entry entry = entryOf(attributes);
    entry.blob = item.entry.blob;
    written_.emplace(item.path, entry);
}

// The same for what was just written, which somebody may have changed before its attributes were read. Then those are
// not of this content: with the ones of long ago the next snapshot finds the file changed, and looks into it.
void RestoreRun::rememberWritten(const Manifest::Item& item, const Attributes& landed) {
    if (isAsWritten(landed, item.entry))
        remember(item, landed);
    else
        written_.emplace(item.path, item.entry);
}

Manifest RestoreRun::manifestAfter() {
    ManifestBuilder builder;
    std::string_view gone; // the latest removed folder: everything listed below it went too
    std::set<std::string_view> ignored;
    for (const auto& item : safety_.manifest.items()) {
        if (!gone.empty() && item.path.starts_with(gone) && item.path[gone.size()] == '/') continue;
        if (removed_.contains(item.path)) {
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
    for (const auto& [path, entry] : written_)
        if (isListed(path, entry)) builder.add(path, entry);
    for (const std::string& path : parents_.created()) {
        Attributes now;
        if (written_.contains(path) || files_.attributes(path, now) != 0) continue;
        if (isListed(path, entryOf(now))) builder.add(path, entryOf(now));
    }
    return builder.finish(); // of two entries for one path the later one stays
}

RestoreResult RestoreRun::takeResult() {
    std::sort(result_.restored.begin(), result_.restored.end());
    std::sort(result_.removed.begin(), result_.removed.end());
    return std::move(result_);
}

void RestoreRun::warn(std::string_view path, const std::string& text) {
    warned_.emplace(path);
    result_.warnings.push_back(text);
}

void RestoreRun::restored(std::string_view path, bool folder) {
    result_.restored.emplace_back(path);
    if (!folder) {
        ++result_.restoredFiles;
        return;
    }
    result_.folders.emplace(path);
    Attributes now;
    if (files_.attributes(path, now) == 0) written_.emplace(path, entryOf(now));
}

} // namespace tidewrack
