// Putting a folder back. Before anything is touched a safety snapshot is taken; a path is replaced or removed only
// while it is exactly what that snapshot recorded, so nothing is destroyed that cannot be brought back.

#include "Engine/Excluding.hpp"
#include "Engine/FolderBelow.hpp"
#include "Engine/RestoreRun.hpp"
#include "Engine/SameContent.hpp"
#include "Engine/Spelling.hpp"
#include "Engine/Trace.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Flush.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/Volumes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Walk/LeaveOutRules.hpp"
#include "Walk/Walker.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace tidewrack {

namespace {

std::string afterLabel(std::string label) {
    for (auto at = label.find("Before"); at != std::string::npos; at = label.find("Before", at + 5))
        label.replace(at, 6, "After");
    return label;
}

bool isListed(const Manifest& manifest, const std::string& path) {
    return path.empty() || manifest.find(path) != nullptr;
}

// A path is in scope when a listed one is the root, the path itself or a folder above it.
bool inScope(const std::vector<std::string>& listed, std::string_view path) {
    return std::any_of(listed.begin(), listed.end(), [&](const std::string& each) { return isAtOrBelow(path, each); });
}

// Files and links of the target that would replace a folder and whose kept content is gone or cut short.
std::set<std::string, std::less<>> lostContents(const History& history, const Manifest& target,
                                                const Manifest& current) {
    std::set<std::string, std::less<>> lost;
    for (const auto& item : current.items()) {
        if (item.entry.kind != EntryKind::dir) continue;
        const Entry* wanted = target.find(item.path);
        if (wanted == nullptr || !wanted->isKept()) continue;
        Attributes kept;
        const int error = attributesAt(AT_FDCWD, history.blobPath(wanted->blob).c_str(), kept);
        if (error != 0 || (wanted->kind == EntryKind::file && kept.size != wanted->size)) lost.emplace(item.path);
    }
    return lost;
}

// Removes those of the texts kept for a record that could not be written, so that no listing names them.
void dropUnnamed(const History& history, std::int64_t seq, const Manifest& listing) {
    const std::string folder = std::to_string(seq);
    std::set<std::string_view> named;
    for (const auto& item : listing.items())
        if (item.entry.blob.starts_with(folder + "/")) named.insert(item.entry.blob);
    for (const std::string& name : listFolder(history.blobPath(folder)))
        if (!named.contains(folder + "/" + name)) (void)::unlink(history.blobPath(folder + "/" + name).c_str());
    (void)::rmdir(history.blobPath(folder).c_str()); // stays while something is in it
}

// Paths asked for by name that neither listing has.
void addMissing(const std::vector<std::string>& asked, const Manifest& target, const Manifest& current,
                RestoreResult& result) {
    for (const std::string& path : asked)
        if (!isListed(target, path) && !isListed(current, path))
            result.outcomes.push_back(
                {path, PathOutcome::Action::missing, EntryKind::file, {Obstacle::Reason::notInSnapshot}});
}

// The target with names of the user's alone. A snapshot that was taken between the death of a restore and the next one
// lists what the first had moved aside, under our name. That comes back under a name beside its own, or not at all
// where the snapshot has the same content under its own name.
struct UsersTarget {
    std::optional<Manifest> listing;                         // none: the target is that
    std::map<std::string, std::string, std::less<>> renamed; // the target's own paths, by the new ones
};

UsersTarget usersTarget(const History& history, const Manifest& target, const Manifest& current) {
    UsersTarget result;
    const auto isOurs = [&](const Manifest::Item& item) {
        return item.entry.kind != EntryKind::dir && !originalOfAny(lastComponent(item.path)).empty() &&
               current.find(item.path) == nullptr;
    };
    if (std::none_of(target.items().begin(), target.items().end(), isOurs)) return result;
    ManifestBuilder builder(target);
    std::uint32_t rank = 0;
    for (const auto& item : target.items()) {
        const std::uint32_t own = rank++;
        if (!isOurs(item)) {
            builder.add(item.path, item.entry, own);
            continue;
        }
        const std::string name(originalOfAny(lastComponent(item.path)));
        const std::string folder(parentOf(item.path));
        const std::string original = folder.empty() ? name : joined(folder, name);
        const auto originals = originalsIn(target, item.path, name);
        const auto isSame = [&](const std::string& each) {
            const Entry* there = target.find(each);
            if (there == nullptr || there->kind != item.entry.kind || !there->isKept() || !item.entry.isKept())
                return false;
            const std::string one = history.blobPath(there->blob);
            const std::string other = history.blobPath(item.entry.blob);
            return there->kind == EntryKind::file ? sameContent(one, other) : sameLink(one, other);
        };
        if (std::any_of(originals.begin(), originals.end(), isSame)) continue;
        std::string path;
        for (int number = 1; path.empty() || target.find(path) != nullptr || current.find(path) != nullptr ||
                             result.renamed.contains(path);)
            path = original + ".tidewrack-" + std::to_string(number++);
        builder.add(path, item.entry);
        result.renamed.emplace(path, item.path);
    }
    result.listing = builder.finish();
    return result;
}

Engine::Scope scopeOf(const UsersTarget& users, const Engine::Scope& scope) {
    return [&users, &scope](std::string_view path) {
        const auto renamed = users.renamed.find(path);
        return scope(renamed == users.renamed.end() ? path : std::string_view(renamed->second));
    };
}

// Whether the target lists all that there was, or leaves out on purpose what it lacks.
bool knowsEverything(const Engine::Target& target) {
    return !target.seq || ::geteuid() == 0;
}

// A copy gets the extended attributes and the owner of what is kept. So a merged text gets those of the file that it
// replaces; where there is none, it gets the folder's owner.
void giveAttributes(const Project& project, const History& history, const RestorePlan& plan, std::int64_t texts) {
    Descriptor root;
    if (openFolder(project.root, root) != 0) return;
    FolderBelow files(root.get());
    for (const Manifest::Item* item : plan.writes) {
        if (!item->entry.blob.starts_with(std::to_string(texts) + "/")) continue;
        Place place;
        struct stat there {};
        if (files.place(item->path, place) != 0) continue;
        const Descriptor kept(::open(history.blobPath(item->entry.blob).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        const Descriptor old(::openat(place.folder, place.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!kept) continue;
        if (old && ::fstat(old.get(), &there) == 0 && S_ISREG(there.st_mode) && ::fchmod(kept.get(), 0644) == 0) {
            copyOpenExtendedAttributes(old.get(), kept.get());
            if (::fchmod(kept.get(), 0444) != 0)
                throw TidewrackError::io("write", history.blobPath(item->entry.blob), errno);
        }
        if (::geteuid() == 0 && (::fstatat(place.folder, place.name, &there, AT_SYMLINK_NOFOLLOW) == 0 ||
                                 ::fstat(place.folder, &there) == 0))
            (void)!::fchown(kept.get(), there.st_uid, there.st_gid);
    }
}

// What the folders around the path refuse. One that is closed to its owner is opened first, and one that is not there
// is made.
Obstacle closedAround(FolderBelow& files, std::string_view path, const std::set<std::string_view>& opened) {
    const auto opens = [&](std::string_view folder, const struct stat& status) {
        return opened.contains(folder) && status.st_uid == ::geteuid();
    };
    Place place;
    struct stat folder {};
    if (const int error = files.place(path, place); error == EACCES) { // the first of them that can't be entered
        std::string_view closed = parentOf(path);
        while (!closed.empty() && files.place(closed, place) == EACCES) closed = parentOf(closed);
        if (files.place(closed, place) != 0 || ::fstatat(place.folder, place.name, &folder, AT_SYMLINK_NOFOLLOW) != 0 ||
            opens(closed, folder))
            return {};
        if (closed == parentOf(path)) return Obstacle::system(error);
        const std::size_t next = path.find('/', closed.size() + 1);
        return {Obstacle::Reason::parentUnreachable, error, std::string(path.substr(0, next))};
    } else if (error != 0 || ::faccessat(place.folder, ".", W_OK | X_OK, AT_EACCESS) == 0) {
        return {};
    }
    const int error = errno;
    return ::fstat(place.folder, &folder) == 0 && opens(parentOf(path), folder) ? Obstacle() : Obstacle::system(error);
}

// Whether a folder that stays is somebody else's, so that it keeps its permissions.
Obstacle modeRefused(FolderBelow& files, std::string_view path) {
    Place place;
    struct stat folder {};
    const bool isOthers = ::geteuid() != 0 && files.place(path, place) == 0 &&
                          ::fstatat(place.folder, place.name, &folder, AT_SYMLINK_NOFOLLOW) == 0 &&
                          folder.st_uid != ::geteuid();
    return isOthers ? Obstacle::system(EPERM) : Obstacle();
}

// Whether the file changed since the last snapshot, and can't be read to be saved first.
int unreadableFile(FolderBelow& files, const PathOutcome& outcome, const Manifest& current) {
    const Entry* there = current.find(outcome.path);
    if (there == nullptr || there->kind != EntryKind::file) return 0;
    if (there->blob != "?" && !there->blob.starts_with("live:")) return 0; // it is kept
    Place place;
    if (files.place(outcome.path, place) != 0) return 0;
    // What is not there yet comes back before, from what a restore left.
    return ::faccessat(place.folder, place.name, R_OK, AT_EACCESS) != 0 && errno == EACCES ? EACCES : 0;
}

// What the plan has, and the folders refuse.
void foreseeRefusals(const Project& project, const RestorePlan& plan, const Manifest& current, RestoreResult& result) {
    using Action = PathOutcome::Action;
    Descriptor root;
    if (openFolder(project.root, root) != 0) return;
    FolderBelow files(root.get());
    std::set<std::string_view> opened;
    for (const Manifest::Item* item : plan.closedFolders) opened.insert(item->path);
    for (PathOutcome& outcome : result.outcomes) {
        if (outcome.obstacle.reason == Obstacle::Reason::parentIsLink)
            (void)files.readLink(outcome.obstacle.parent, outcome.obstacle.detail);
        const bool removes = outcome.action == Action::removed;
        const bool stays = outcome.kind == EntryKind::dir && result.overwritten.contains(outcome.path);
        if (!removes && outcome.action != Action::restored) continue;
        if (auto refused = stays ? modeRefused(files, outcome.path) : closedAround(files, outcome.path, opened)) {
            outcome.action = removes ? Action::notRemoved : Action::notRestored;
            outcome.obstacle = std::move(refused);
        } else if (const int failure = unreadableFile(files, outcome, current)) {
            outcome.action = Action::notRestored;
            outcome.obstacle = {Obstacle::Reason::notSavedFirst, 0, {}, KeepFailure::system(failure).blob()};
        } else {
            continue;
        }
        result.overwritten.erase(outcome.path);
    }
    if (::geteuid() == 0) return;
    for (const Manifest::Item* item : plan.closedFolders)
        if (isUnreadable(item->entry) && !modeRefused(files, item->path))
            result.safetyWarnings.push_back({.kind = Warning::Kind::unseenYet, .path = std::string(item->path)});
}

// What is there of files that are left out, or in folders that are, stays, unless it is what is wanted.
void foreseeLeftOut(const Project& project, const Manifest& wanted, const Manifest& current, RestoreResult& result) {
    Descriptor root;
    if (openFolder(project.root, root) != 0) return;
    FolderBelow files(root.get());
    std::erase_if(result.outcomes, [&](PathOutcome& outcome) {
        const Entry* there = current.find(outcome.path);
        const Entry* then = wanted.find(outcome.path);
        Attributes attributes;
        if (outcome.action != PathOutcome::Action::restored || outcome.kind == EntryKind::dir) return false;
        if (there == nullptr ? current.ignoredAround(outcome.path).empty() : !there->isIgnoredFile()) return false;
        if (then == nullptr || files.attributes(outcome.path, attributes) != 0) return false;
        outcome.action = PathOutcome::Action::notRestored;
        outcome.obstacle = there != nullptr ? obstacleIn(*there) : Obstacle{Obstacle::Reason::notInHistory};
        result.overwritten.erase(outcome.path);
        return then->sameAttributes(entryOf(attributes));
    });
}

// A file that was recovered just now, and that the snapshot gone back to lacks, is not counted as removed: nobody has
// seen it yet.
void addInterrupted(const std::vector<PathOutcome>& outcomes, RestoreResult& result) {
    std::set<std::string_view> found;
    for (const PathOutcome& outcome : outcomes) found.insert(outcome.found);
    std::erase_if(result.outcomes, [&](const PathOutcome& outcome) {
        return outcome.action == PathOutcome::Action::removed && found.contains(outcome.path);
    });
    std::set<std::string, std::less<>> acted;
    for (const PathOutcome& outcome : result.outcomes) acted.insert(outcome.path);
    std::vector<PathOutcome> told;
    std::copy_if(outcomes.begin(), outcomes.end(), std::back_inserter(told), [&](const PathOutcome& outcome) {
        const bool isBack =
            outcome.action == PathOutcome::Action::givenBack || outcome.action == PathOutcome::Action::toGiveBack;
        return !isBack || !acted.contains(outcome.path); // else it was not there for long
    });
    result.outcomes.insert(result.outcomes.begin(), told.begin(), told.end());
}

// Copies of the paths, because what the plan points to may go with the listing.
std::set<std::string, std::less<>> touchedBy(const RestorePlan& plan) {
    std::set<std::string, std::less<>> touched;
    for (const auto* list : {&plan.removeFiles, &plan.writes})
        for (const Manifest::Item* item : *list) touched.emplace(item->path);
    return touched;
}

} // namespace

std::vector<std::string> Engine::relativePaths(const Project& project,
                                               const std::optional<std::vector<std::string>>& paths) {
    std::vector<std::string> listed;
    for (const std::string& path : paths.value_or(std::vector<std::string>()))
        listed.push_back(relative(project, path));
    return listed;
}

RestoreResult Engine::restore(const Project& project, std::int64_t to,
                              const std::optional<std::vector<std::string>>& paths, bool removeNew,
                              Acting acting) const {
    const History history = store.history(project);
    std::optional<ProjectLock> lock;
    if (acting == Acting::forReal) lock.emplace(history.lockPath());
    checkRoot(project);
    const Target target{to, history.manifest(history.snapshot(to))};
    std::vector<std::string> listed = relativePaths(project, paths);
    SnapshotRequest request{"restore", "Before restoring #" + std::to_string(to), {}, {}, {}};
    request.reversal = "restore";
    TakenSnapshot safety = lock ? safetySnapshot(*lock, project, request) : presentState(project);
    if (paths && volumeIgnoresCase(project.root)) listed = asListed(listed, {&target.manifest, &safety.manifest});
    const Scope scope = [&](std::string_view path) { return !paths || inScope(listed, path); };
    Reversal reversal;
    if (!paths && removeNew) reversal.tookBack.push_back({to, safety.result.meta.seq});
    RestoreResult result = lock ? apply(*lock, project, target, scope, safety, removeNew, reversal)
                                : aim(project, target, scope, safety, removeNew);
    addMissing(listed, target.manifest, safety.manifest, result);
    result.target = to;
    return result;
}

// What the safety snapshot would list if it were taken now, as far as that shows without copying anything.
TakenSnapshot Engine::presentState(const Project& project) const {
    const auto newest = store.history(project).newestSeq();
    if (!newest) throw TidewrackError::io("there is no snapshot yet");
    Sides sides = sidesNow(project, *newest, Unknown::asKept);
    TakenSnapshot present;
    present.manifest = std::move(sides.newer);
    present.result.warnings = std::move(sides.warnings);
    present.interrupted = foreseeInterrupted(project);
    return present;
}

// What the target would have to have and cannot: nothing of it is removed for that.
std::set<std::string, std::less<>> Engine::notIn(const Manifest& target, const Project& project) const {
    auto paths = nestedRoots(project, store.projects());
    paths.merge(keptSince(project, target));
    return paths;
}

RestoreResult Engine::aim(const Project& project, const Target& target, const Scope& scope,
                          const TakenSnapshot& present, bool removeNew) const {
    const Manifest& current = present.manifest;
    const History history = store.history(project);
    const UsersTarget users = usersTarget(history, target.manifest, current);
    const Manifest& wanted = users.listing ? *users.listing : target.manifest;
    const RestorePlan plan = planRestore({wanted, current, scopeOf(users, scope), notIn(wanted, project), removeNew,
                                          knowsEverything(target), lostContents(history, wanted, current)});
    const auto isCleared = [&](std::string_view name) {
        const auto owns = [&](const MarkedRestore& restore) { return restore.owns(name); };
        return std::any_of(present.interrupted.remaining.begin(), present.interrupted.remaining.end(), owns);
    };
    const auto holdsMore = [&](std::string_view folder) {
        bool more = false;
        const int error = visitNames(joined(project.root, folder), [&](const char* name) {
            more = current.find(joined(folder, name)) == nullptr && !isCleared(name);
            return !more;
        });
        return more || error == EACCES; // nobody closes an empty folder
    };
    RestoreResult result;
    result.outcomes = aimOf(plan, current, holdsMore);
    std::erase_if(result.outcomes, // cleared up before
                  [&](const PathOutcome& outcome) { return isCleared(lastComponent(outcome.path)); });
    addInterrupted(present.interrupted.outcomes, result);
    for (const PathOutcome& outcome : result.outcomes) {
        const Entry* standing = current.find(outcome.path);
        if (outcome.action == PathOutcome::Action::restored && standing != nullptr &&
            (outcome.kind == EntryKind::dir) == (standing->kind == EntryKind::dir))
            result.overwritten.insert(outcome.path);
    }
    result.safetyWarnings = present.result.warnings;
    foreseeRefusals(project, plan, current, result);
    foreseeLeftOut(project, wanted, current, result);
    return result;
}

RestoreResult Engine::apply(const ProjectLock& lock, const Project& project, const Target& target, const Scope& scope,
                            TakenSnapshot& safety, bool removeNew, const Reversal& reversal) const {
    const auto start = std::chrono::steady_clock::now();
    SnapshotMeta meta;
    meta.created = now();
    const History history = store.history(project);
    const UsersTarget users = usersTarget(history, target.manifest, safety.manifest);
    const Manifest& wanted = users.listing ? *users.listing : target.manifest;
    const RestoreInput input{wanted,
                             safety.manifest,
                             scopeOf(users, scope),
                             notIn(wanted, project),
                             removeNew,
                             knowsEverything(target),
                             lostContents(history, wanted, safety.manifest)};
    RestorePlan plan = planRestore(input);
    const auto touched = touchedBy(plan);
    const Scope isTouched = [&](std::string_view path) { return touched.contains(path); };
    if (!touched.empty() && keepUnseen(lock, project, isTouched, safety)) plan = planRestore(input);
    if (reversal.seq) giveAttributes(project, history, plan, *reversal.seq);
    Temporaries names;
    std::vector<MarkedRestore> marked = safety.interrupted.remaining;
    const bool needsMark = !plan.writes.empty() || !plan.removeFiles.empty();
    if (needsMark) {
        const std::int64_t goal = target.seq ? *target.seq : reversal.seq.value_or(0);
        marked.push_back({names.prefix(), safety.result.meta.seq, goal});
        markRestores(lock, history, marked);
    }
    // Else a power cut could leave what is put back now, and not the record of what it took the place of.
    if (!history.sharesVolume()) history.bringRecordsToDisk(lock);
    RestoreRun run(*this, project, wanted, safety, names);
    run.work(std::move(plan), input.nestedRoots);
    const Manifest after = run.manifestAfter();
    RestoreResult result = run.takeResult();
    const bool whole = std::none_of(result.outcomes.begin(), result.outcomes.end(),
                                    [](const PathOutcome& outcome) { return bool(outcome.obstacle); });
    meta.durationMs = millisecondsSince(start);
    meta.seq = reversal.seq ? *reversal.seq : nextSeq(history, history.newestSeq());
    meta.reversal = reversal.by;
    if (whole) meta.tookBack = reversal.tookBack;
    if (reversal.seq) dropUnnamed(history, meta.seq, after);
    try {
        recordAfterRestore(lock, project, safety, after, std::move(meta));
    } catch (const TidewrackError& error) {
        throw TidewrackError::io(std::string(error.what()) +
                                 ". The files were restored all the same; undo this with: tidewrack restore " +
                                 std::to_string(safety.result.meta.seq));
    }
    if (needsMark && !names.anyLeft()) {
        marked.pop_back();
        try {
            markRestores(lock, history, marked);
        } catch (const TidewrackError&) { // the next restore finds that nothing is left
        }
    }
    result.leavesTemporaries = names.anyLeft();
    addInterrupted(safety.interrupted.outcomes, result);
    result.safety = safety.result.meta;
    result.safetyWarnings = safety.result.warnings;
    return result;
}

void Engine::recordAfterRestore(const ProjectLock& lock, const Project& project, const TakenSnapshot& safety,
                                const Manifest& after, SnapshotMeta meta) const {
    const SnapshotMeta& before = safety.result.meta;
    const Changes changes = Changes::between(safety.manifest, after);
    const auto counts = changes.fileCounts();
    const History history = store.history(project);
    meta.kind = "restored";
    if (before.label) meta.label = afterLabel(*before.label);
    const bool share = changes.isEmpty() && listTheSame(safety.manifest, after);
    meta.manifestOf = share ? before.manifestOf : meta.seq;
    meta.files = after.fileCount();
    meta.added = counts.added;
    meta.modified = counts.modified;
    meta.deleted = counts.deleted;
    meta.folders = static_cast<std::int64_t>(changes.folders.size());
    if (!share) history.writeManifest(lock, meta.seq, after, PendingWrites());
    history.writeSnapshot(lock, meta);
    history.bringNamesToDisk(lock);
}

std::vector<std::string> Engine::keepTexts(const ProjectLock&, const Project& project,
                                           const std::vector<std::string>& texts, Reversal& reversal) const {
    std::vector<std::string> blobs;
    if (texts.empty()) return blobs;
    const History history = store.history(project);
    reversal.seq = nextSeq(history, history.newestSeq());
    const std::string folder = std::to_string(*reversal.seq);
    if (const int error = makeFolders(history.blobPath(folder), 0755))
        throw TidewrackError::io("create", history.blobPath(folder), error);
    for (const std::string& text : texts) {
        blobs.push_back(folder + "/" + std::to_string(blobs.size()));
        const std::string path = history.blobPath(blobs.back());
        writeFileAtomically(path, text);
        if (::chmod(path.c_str(), 0444) != 0) throw TidewrackError::io("write", path, errno);
    }
    return blobs;
}

RestoreResult Engine::undo(const Project& project, std::int64_t turn,
                           const std::optional<std::vector<std::string>>& paths, Acting acting) const {
    const auto seqs = store.history(project).seqs();
    const auto next = std::upper_bound(seqs.begin(), seqs.end(), turn);
    const auto to = next == seqs.end() ? std::nullopt : std::optional(*next);
    RestoreResult result = undo(project, turn, to, "Before undoing #" + std::to_string(turn), paths, acting);
    if (to && *to != turn + 1) result.prunedUpTo = to;
    return result;
}

RestoreResult Engine::undo(const Project& project, std::int64_t from, std::optional<std::int64_t> to,
                           const std::optional<std::string>& label,
                           const std::optional<std::vector<std::string>>& paths, Acting acting) const {
    const History history = store.history(project);
    std::optional<ProjectLock> lock;
    if (acting == Acting::forReal) lock.emplace(history.lockPath());
    checkRoot(project);
    const SnapshotMeta start = history.snapshot(from);
    const Target before{from, history.manifest(start)};
    std::optional<Manifest> after;
    if (to) after = history.manifest(history.snapshot(*to));
    std::vector<std::string> listed = relativePaths(project, paths);
    SnapshotRequest request{"restore", label.value_or("Before undoing #" + std::to_string(from)), {}, {}, {}};
    request.reversal = "undo";
    TakenSnapshot safety = lock ? safetySnapshot(*lock, project, request) : presentState(project);
    const auto all = changesWithFolderModes(before.manifest, after ? *after : safety.manifest);
    if (paths && volumeIgnoresCase(project.root)) listed = asListed(listed, {&before.manifest, &safety.manifest});
    std::set<std::string, std::less<>> changed(all.begin(), all.end());
    if (paths) std::erase_if(changed, [&](const std::string& path) { return !inScope(listed, path); });
    // What its owner took out of the history nobody is known to have changed.
    const Manifest& end = after ? *after : safety.manifest;
    if (const auto rules = LeaveOutRules::of(project); !rules.empty() && !paths)
        std::erase_if(changed,
                      [&](const std::string& path) { return end.leavesOut(path) && rules.leavesOut(path, false); });
    after.reset();
    const Scope scope = [&](std::string_view path) { return changed.contains(path); };
    Reversal reversal{"undo", {}, std::nullopt};
    if (!paths) reversal.tookBack.push_back({from, to.value_or(safety.result.meta.seq)});
    RestoreResult result =
        lock ? apply(*lock, project, before, scope, safety, true, reversal) : aim(project, before, scope, safety, true);
    result.nothingInScope = changed.empty();
    if (changed.empty()) addMissing(listed, before.manifest, safety.manifest, result);
    result.target = from;
    return result;
}

} // namespace tidewrack
