// What a restore removes, and in which order: see RestoreRun.

#include "Engine/RestoreRun.hpp"

#include "Engine/SafeReplace.hpp"
#include "Engine/SameContent.hpp"
#include "Platform/FolderStream.hpp"
#include "Platform/Process.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace tidewrack {

using Action = PathOutcome::Action;
using Reason = Obstacle::Reason;

void RestoreRun::remove(const RestorePlan::Items& files, const RestorePlan::Items& folders) {
    for (const Manifest::Item* item : files) removeFile(*item, Removal::atOnce);
    files_.forget();
    for (const Manifest::Item* item : folders) {
        files_.forget(); // the open parent may be the next to be removed
        const int error = files_.removeFolder(item->path);
        if (error == 0)
            removed(*item);
        else if (nothingThere(error))
            states_[std::string(item->path)].gone = true; // another program was faster
        else
            leave(item->path, Action::notRemoved, Obstacle::system(error));
    }
    trace_.mark([&] { return "remove " + std::to_string(states_.size()); });
}

void RestoreRun::removeObstructing(const Removals& obstructing, const RestorePlan& plan) {
    std::set<std::string_view> going;
    for (const Manifest::Item* folder : obstructing.folders) going.insert(folder->path);
    RestorePlan::Items replacing;
    std::copy_if(
        plan.writes.begin(), plan.writes.end(), std::back_inserter(replacing),
        [&](const Manifest::Item* item) { return going.contains(item->path) && canEmpty(item->path, obstructing); });
    makeReady(replacing);
    RestorePlan::Items inside;
    for (const Manifest::Item* item : obstructing.files) {
        if (going.contains(parentOf(item->path)))
            inside.push_back(item);
        else
            removeFile(*item, Removal::onceReplaced);
    }
    remove(inside, obstructing.folders);
}

// Whether the removals leave nothing in the folder. Where it stays, nothing may be made beside it: the folder around it
// would get another time.
bool RestoreRun::canEmpty(std::string_view folder, const Removals& removals) {
    std::set<std::string, std::less<>> going;
    for (const auto* list : {&removals.files, &removals.folders})
        for (const Manifest::Item* item : *list)
            if (isAtOrBelow(item->path, folder)) going.emplace(item->path);
    for (const Manifest::Item* item : removals.files) {
        Obstacle obstacle;
        Attributes attributes;
        if (going.contains(item->path) && examine(files_, item->path, obstacle, attributes) == Standing::unsafe)
            return false;
    }
    for (const Manifest::Item* item : removals.folders) {
        Place place;
        if (!going.contains(item->path) || files_.place(item->path, place) != 0) continue;
        FolderStream names(place.folder, place.name);
        while (const char* name = names.next())
            if (!going.contains(joined(item->path, name))) return false;
        if (names.error() != 0) return false;
    }
    return true;
}

// Where that fails, as for want of room, the file is written once the folder is gone.
void RestoreRun::makeReady(const RestorePlan::Items& items) {
    if (items.empty()) return;
    const auto errors = cloneAll(items.size(), cloneThreads, root_.get(), [&](std::size_t i, CloneWorker& worker) {
        Place place;
        if (worker.project.place(items[i]->path, place) != 0) return 0;
        worker.memory.pending = &pending_;
        const std::string temporary = names_.forCopy();
        const std::string named = names_.aside(place.folder, place.name);
        bool bothNames = false;
        if (putContent(*items[i], {place.folder, temporary.c_str()}, worker) ||
            giveName({place.folder, temporary.c_str()}, {place.folder, named.c_str()}, bothNames) != 0) {
            if (::unlinkat(place.folder, temporary.c_str(), 0) != 0 && errno != ENOENT) names_.leave();
            return 0;
        }
        if (bothNames) names_.leave();
        const std::lock_guard lock(mutex_);
        ready_.emplace(items[i]->path, named);
        return 0;
    });
    if (std::any_of(errors.begin(), errors.end(), [](int error) { return error != 0; })) names_.leave();
    if (ready_.empty()) return;
    pending_.everything = true; // their names, too
    if (const int error = flush(root_.get(), pending_)) result_.flushError = error;
    pending_.everything = false;
}

// Of folders that stay after all.
void RestoreRun::dropUnused() {
    for (const auto& [path, name] : ready_) {
        Place place;
        if (files_.place(path, place) != 0 || (::unlinkat(place.folder, name.c_str(), 0) != 0 && errno != ENOENT))
            names_.leave();
    }
    ready_.clear();
    files_.forget();
}

// After a power cut, too, what takes its place is there. Where that can't be made the file gets its name back, unless
// there may be room without the file.
void RestoreRun::removeAside() {
    if (aside_.empty()) return;
    bringToDisk();
    std::set<std::string_view> refused;
    for (const PathOutcome& outcome : result_.outcomes)
        if (outcome.obstacle && !isOutOfRoom(outcome.obstacle.error)) refused.insert(outcome.path);
    std::set<std::string_view> back;
    for (const auto& [path, item] : aside_) {
        Place aside;
        if (files_.place(path, aside) != 0) {
            names_.leave();
            continue;
        }
        const std::string name(lastComponent(item->path));
        const Place place{aside.folder, name.c_str()};
        bool bothNames = false;
        if (refused.contains(item->path) && giveName(aside, place, bothNames) == 0) {
            states_[std::string(item->path)].gone = false;
            back.insert(item->path);
            if (bothNames) names_.leave();
        } else if (auto obstacle = removeMoved(names_, aside, place, item->entry)) {
            result_.outcomes.push_back({std::string(item->path), Action::notRestored, EntryKind::file, obstacle});
        }
    }
    std::erase_if(result_.outcomes, [&](const PathOutcome& outcome) {
        return outcome.action == Action::removed && back.contains(outcome.path);
    });
    files_.forget();
}

void RestoreRun::removeFile(const Manifest::Item& item, Removal removal) {
    Obstacle obstacle;
    Attributes attributes;
    const Standing standing = examine(files_, item.path, obstacle, attributes);
    if (standing == Standing::unsafe) return leave(item.path, Action::notRestored, std::move(obstacle));
    if (standing == Standing::safe) {
        Place place;
        const int error = files_.place(item.path, place);
        std::string aside;
        if (error != 0)
            obstacle = Obstacle::system(error);
        else if (removal == Removal::onceReplaced)
            obstacle = moveUnchanged(names_, place, item.entry, aside);
        else
            obstacle = removeUnchanged(names_, place, item.entry);
        const std::string folder(parentOf(item.path));
        if (!aside.empty()) aside_.emplace_back(folder.empty() ? aside : joined(folder, aside), &item);
        if (!obstacle) {
            touched(attributes);
            return removed(item);
        }
    }
    if (standing == Standing::nothing || nothingThere(obstacle.error)) {
        states_[std::string(item.path)].gone = true; // another program was faster
        return;
    }
    const Action action = obstacle.reason == Reason::systemError ? Action::notRemoved : Action::notRestored;
    leave(item.path, action, std::move(obstacle));
}

// What holds the content of a write that failed stays until another removal has made room for that write. After a power
// cut, too, nothing is gone whose content is not back.
void RestoreRun::removeRest(RestorePlan& plan) {
    if (plan.removeFiles.empty() && plan.removeFolders.empty() && aside_.empty()) return;
    if (!plan.removeFiles.empty()) bringToDisk();
    const Removals kept = takeLastCopies(plan);
    remove(plan.removeFiles, plan.removeFolders);
    files_.forget();
    if (!plan.removeFiles.empty() || !aside_.empty()) retryForWantOfRoom(plan);
    const RestorePlan::Items left = leftOf(plan.writes);
    Removals rest;
    for (const Manifest::Item* item : kept.files) {
        if (const Manifest::Item* other = leftWithContentOf(*item, left))
            leave(item->path, Action::notRemoved, {Reason::contentNotBack, 0, {}, std::string(other->path)});
        else
            rest.files.push_back(item);
    }
    const auto holdsLeft = [&](const Manifest::Item* folder) {
        return std::any_of(kept.files.begin(), kept.files.end(), [&](const Manifest::Item* item) {
            return isLeft(item->path) && isAtOrBelow(item->path, folder->path);
        });
    };
    std::copy_if(kept.folders.begin(), kept.folders.end(), std::back_inserter(rest.folders),
                 [&](const Manifest::Item* folder) { return !holdsLeft(folder); });
    remove(rest.files, rest.folders);
    files_.forget();
}

RestorePlan::Items RestoreRun::leftOf(const RestorePlan::Items& items) const {
    RestorePlan::Items left;
    std::copy_if(items.begin(), items.end(), std::back_inserter(left),
                 [&](const Manifest::Item* item) { return isLeft(item->path); });
    return left;
}

// Takes the files and links out of the plan's removals that hold what could not be written, and the folders around
// them.
Removals RestoreRun::takeLastCopies(RestorePlan& plan) const {
    Removals kept;
    const RestorePlan::Items left = leftOf(plan.writes);
    if (left.empty()) return kept;
    std::set<std::string_view> around;
    std::erase_if(plan.removeFiles, [&](const Manifest::Item* item) {
        if (leftWithContentOf(*item, left) == nullptr) return false;
        kept.files.push_back(item);
        for (std::string_view at = parentOf(item->path); !at.empty(); at = parentOf(at)) around.insert(at);
        return true;
    });
    std::erase_if(plan.removeFolders, [&](const Manifest::Item* item) {
        if (!around.contains(item->path)) return false;
        kept.folders.push_back(item);
        return true;
    });
    return kept;
}

const Manifest::Item* RestoreRun::leftWithContentOf(const Manifest::Item& item, const RestorePlan::Items& left) const {
    const auto isSame = [&](const Manifest::Item* other) {
        const Entry& a = item.entry;
        const Entry& b = other->entry;
        if (a.kind != b.kind || a.size != b.size || a.size == 0 || !a.isKept()) return false;
        if (a.blob == b.blob) return true;
        const std::string first(a.blob);
        const std::string second(b.blob);
        const Place one{blobs_.get(), first.c_str()};
        const Place two{blobs_.get(), second.c_str()};
        return a.kind == EntryKind::file ? sameContent(one, two) : sameLink(one, two);
    };
    const auto found = std::find_if(left.begin(), left.end(), isSame);
    return found == left.end() ? nullptr : *found;
}

// Once more what the full disk had no room for before something was removed.
void RestoreRun::retryForWantOfRoom(const RestorePlan& plan) {
    std::set<std::string_view> refused;
    for (const PathOutcome& outcome : result_.outcomes)
        if (isOutOfRoom(outcome.obstacle.error)) refused.insert(outcome.path);
    if (refused.empty()) return;
    const auto again = [&](const RestorePlan::Items& items) {
        RestorePlan::Items found;
        for (const Manifest::Item* item : items)
            if (refused.contains(item->path) && isLeft(item->path)) found.push_back(item);
        return found;
    };
    const RestorePlan::Items folders = again(plan.makeFolders);
    const RestorePlan::Items writes = again(plan.writes);
    std::set<std::string_view> retried;
    for (const auto* list : {&folders, &writes})
        for (const Manifest::Item* item : *list) {
            retried.insert(item->path);
            states_[std::string(item->path)].left = false;
        }
    std::erase_if(result_.outcomes, [&](const PathOutcome& outcome) { return retried.contains(outcome.path); });
    makeFolders(folders);
    write(writes);
    files_.forget();
}

// The temporary name of a file that is ready, which whoever asks has to use up.
std::optional<std::string> RestoreRun::readyName(std::string_view path) {
    const std::lock_guard lock(mutex_);
    const auto found = ready_.find(path);
    if (found == ready_.end()) return std::nullopt;
    std::string name = std::move(found->second);
    ready_.erase(found);
    return name;
}

} // namespace tidewrack
