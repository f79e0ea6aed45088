#include "Engine/RestorePlan.hpp"

#include "Changes/Changes.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <unordered_set>

namespace tidewrack {

namespace {

using Action = PathOutcome::Action;
using Reason = Obstacle::Reason;

// Folders in which nothing is removed: history does not hold their content, or has nothing to put in their place.
class ExcludedFolders {
  public:
    explicit ExcludedFolders(const RestoreInput& input) : folders_(input.nestedRoots) {
        for (const Manifest* manifest : {&input.current, &input.target})
            for (const auto& item : manifest->items())
                if (item.entry.isIgnoredFolder()) folders_.emplace(item.path);
        for (const auto& item : input.current.items()) {
            if (item.entry.kind != EntryKind::dir) continue;
            const Entry* wanted = input.target.find(item.path);
            if (wanted != nullptr && wanted->kind != EntryKind::dir &&
                (wanted->notKept() || input.lost.contains(item.path)))
                folders_.emplace(item.path);
        }
        if (input.knowsEverything) return;
        for (const auto& item : input.target.items())
            if (isUnreadable(item.entry) && !input.target.listsBelow(item.path)) unread_.emplace(item.path);
    }

    // The path is one of them or lies in one.
    [[nodiscard]] bool covers(std::string_view path) const {
        if (folders_.empty()) return false;
        for (std::string_view at = path; !at.empty(); at = parentOf(at))
            if (folders_.contains(at)) return true;
        return false;
    }
    // The folder around the path that could not be read when the target was taken, or nothing. What is in there now may
    // have been in there then.
    [[nodiscard]] std::string_view unreadAround(std::string_view path) const {
        if (unread_.empty()) return {};
        std::string_view at = parentOf(path);
        while (!at.empty() && !unread_.contains(at)) at = parentOf(at);
        return at;
    }

  private:
    std::set<std::string, std::less<>> folders_;
    std::set<std::string_view> unread_;
};

void planRemovals(const RestoreInput& input, const ExcludedFolders& excluded, RestorePlan& plan) {
    std::set<std::string_view> kept; // folders
    for (const auto& item : input.current.items()) {
        if (!input.scope(item.path) || item.entry.isIgnoredFile()) continue;
        const Entry* then = input.target.find(item.path);
        const bool wasLeftOut = then != nullptr && then->isIgnoredFile();
        if (wasLeftOut && item.entry.kind != EntryKind::dir) continue; // it was there then, too
        const Entry* wanted = wasLeftOut ? nullptr : then;
        if (excluded.covers(item.path)) {
            // Where its contents were listed then, items added since are in there unseen.
            const bool mayHoldNew = wanted == nullptr || (wanted->kind == EntryKind::dir && !wanted->isIgnoredFolder());
            if (mayHoldNew && input.removeNew && item.entry.isIgnoredFolder())
                plan.left.push_back({std::string(item.path), Action::kept, EntryKind::dir, {Reason::ignoredByGit}});
            continue;
        }
        // A link where a file is wanted, or the reverse, is replaced in one step by the write itself.
        const bool otherKind = wanted != nullptr && wanted->kind != item.entry.kind &&
                               (wanted->kind == EntryKind::dir || item.entry.kind == EntryKind::dir);
        if (wanted == nullptr ? !input.removeNew : !otherKind) continue;
        if (const auto unread = excluded.unreadAround(item.path); !unread.empty()) {
            kept.emplace(unread);
            continue;
        }
        (item.entry.kind == EntryKind::dir ? plan.removeFolders : plan.removeFiles).push_back(&item);
    }
    for (const std::string_view folder : kept)
        plan.left.push_back({std::string(folder), Action::keptContents, EntryKind::dir, {Reason::unreadThen}});
    // Sorted by path a folder comes before its contents; backwards, after them.
    std::reverse(plan.removeFolders.begin(), plan.removeFolders.end());
}

void planWrite(const Manifest::Item& item, const Entry* present, RestorePlan& plan) {
    if (present != nullptr && !differs(*present, item.entry)) return;
    if (item.entry.notKept()) {
        plan.left.push_back({std::string(item.path),
                             present != nullptr ? Action::notReplaced : Action::notRestored,
                             item.entry.kind,
                             {Reason::notKeptThen, 0, {}, std::string(item.entry.blob)}});
        return;
    }
    plan.writes.push_back(&item);
}

// A read-only folder refuses all changes in it, so it is opened for them. An agent that takes a folder's rights away
// makes all below it unreachable: to undo that, the folder stays open, although a folder's rights are no change of
// their own.
void planClosedFolders(const RestoreInput& input, RestorePlan& plan) {
    std::set<std::string_view> closed;
    for (const auto& item : input.current.items())
        if (item.entry.kind == EntryKind::dir && isClosed(item.entry)) closed.insert(item.path);
    if (closed.empty()) return;
    std::set<std::string_view> needed;
    for (const auto* list : {&plan.removeFiles, &plan.removeFolders, &plan.makeFolders, &plan.writes})
        for (const Manifest::Item* item : *list)
            for (std::string_view at = parentOf(item->path); !at.empty(); at = parentOf(at))
                if (closed.contains(at)) needed.insert(at);
    for (const auto& item : input.current.items())
        if (needed.contains(item.path)) plan.closedFolders.push_back(&item);
    for (const auto& item : input.target.items())
        if (needed.contains(item.path) && item.entry.kind == EntryKind::dir && !isClosed(item.entry) &&
            !input.scope(item.path))
            plan.lockedFolders.push_back(&item);
}

} // namespace

RestorePlan planRestore(const RestoreInput& input) {
    RestorePlan plan;
    const ExcludedFolders excluded(input);
    planRemovals(input, excluded, plan);
    for (const auto& item : input.target.items()) {
        if (!input.scope(item.path) || item.entry.isIgnoredFile()) continue;
        const Entry* present = input.current.findKnown(item.path);
        if (item.entry.kind != EntryKind::dir) {
            planWrite(item, present, plan);
        } else if (!item.entry.isIgnoredFolder() && !excluded.covers(item.path)) {
            const bool there = present != nullptr && present->kind == EntryKind::dir;
            (there ? plan.keepFolders : plan.makeFolders).push_back(&item);
        }
    }
    planClosedFolders(input, plan);
    return plan;
}

Removals takeObstructing(RestorePlan& plan, bool ignoresCase) {
    Removals taken;
    if (plan.removeFiles.empty() && plan.removeFolders.empty()) return taken;
    const auto name = [&](std::string_view path) { return ignoresCase ? caseFolded(path) : std::string(path); };
    std::unordered_set<std::string> needed;  // what is made, and the folders around it
    std::unordered_set<std::string> cleared; // nothing may be there
    for (const auto* list : {&plan.makeFolders, &plan.writes})
        for (const Manifest::Item* item : *list)
            for (std::string at = name(item->path); !at.empty() && needed.insert(at).second;)
                at = std::string(parentOf(at));
    for (const Manifest::Item* item : plan.writes) cleared.insert(name(item->path));
    const auto isInCleared = [&](std::string at) {
        while (!at.empty() && !cleared.contains(at)) at = std::string(parentOf(at));
        return !at.empty();
    };
    for (const Manifest::Item* item : plan.removeFolders) // one that has to go goes with all that is in it
        if (std::string at = name(item->path); needed.contains(at)) cleared.insert(std::move(at));
    const auto take = [&](RestorePlan::Items& from, RestorePlan::Items& to) {
        std::erase_if(from, [&](const Manifest::Item* item) {
            std::string at = name(item->path);
            if (!needed.contains(at) && !isInCleared(std::move(at))) return false;
            to.push_back(item);
            return true;
        });
    };
    take(plan.removeFiles, taken.files);
    take(plan.removeFolders, taken.folders);
    return taken;
}

namespace {

// What is left in the way of a plan that is carried out.
class Standing {
  public:
    Standing(const RestorePlan& plan, const Manifest& current, const FolderTest& holdsMore) : current_(current) {
        for (const Manifest::Item* item : plan.removeFiles)
            if (!obstacleIn(item->entry)) gone_.insert(item->path);
        for (const Manifest::Item* item : plan.removeFolders) gone_.insert(item->path);
        if (plan.removeFolders.empty()) return;
        for (const auto& item : current.items())
            if (!gone_.contains(item.path)) keepAround(item.path);
        for (const Manifest::Item* item : plan.removeFolders) // contents before their folder
            if (!kept_.contains(item->path) && holdsMore && holdsMore(item->path)) {
                kept_.insert(item->path);
                keepAround(item->path);
            }
    }

    // A folder that is to be removed, and holds something that stays.
    [[nodiscard]] bool isKept(std::string_view folder) const { return kept_.contains(folder); }
    // What is at the path once the removals are done.
    [[nodiscard]] const Entry* at(std::string_view path) const {
        return gone_.contains(path) && !kept_.contains(path) ? nullptr : current_.findKnown(path);
    }
    // What is no folder above the path.
    [[nodiscard]] Obstacle above(std::string_view path) const {
        for (auto slash = path.find('/'); slash != std::string_view::npos; slash = path.find('/', slash + 1)) {
            const Entry* there = at(path.substr(0, slash));
            if (there == nullptr || there->kind == EntryKind::dir) continue;
            const Reason reason = there->kind == EntryKind::link ? Reason::parentIsLink : Reason::parentIsFile;
            return {reason, 0, std::string(path.substr(0, slash))};
        }
        return {};
    }

  private:
    void keepAround(std::string_view path) {
        for (std::string_view folder = parentOf(path); !folder.empty(); folder = parentOf(folder))
            if (gone_.contains(folder)) kept_.insert(folder);
    }

    const Manifest& current_;
    std::unordered_set<std::string_view> gone_; // what is to be removed, and can be as far as its entry tells
    std::unordered_set<std::string_view> kept_;
};

PathOutcome removalOf(const Manifest::Item& item, const Standing& standing) {
    PathOutcome outcome{std::string(item.path), Action::removed, item.entry.kind};
    if (item.entry.kind != EntryKind::dir) {
        outcome.obstacle = obstacleIn(item.entry);
        if (outcome.obstacle) outcome.action = Action::notRestored;
    } else if (standing.isKept(item.path)) {
        outcome = {std::string(item.path), Action::notRemoved, EntryKind::file, Obstacle::system(ENOTEMPTY)};
    }
    return outcome;
}

// None where it was told already what is in the way.
std::optional<PathOutcome> makingOf(const Manifest::Item& item, const Standing& standing) {
    const std::string path(item.path);
    const Entry* there = standing.at(item.path);
    const bool isFolder = item.entry.kind == EntryKind::dir;
    if (isFolder && there != nullptr && obstacleIn(*there)) return std::nullopt;
    if (auto obstacle = standing.above(item.path)) return PathOutcome{path, Action::skipped, {}, std::move(obstacle)};
    if (isFolder && there != nullptr)
        return PathOutcome{path,
                           Action::notCreated,
                           {},
                           {Reason::somethingInTheWay, 0, {}, there->kind == EntryKind::link ? "symlink" : "file"}};
    if (standing.isKept(item.path)) return PathOutcome{path, Action::notRestored, {}, {Reason::folderHoldsMore}};
    if (there != nullptr)
        if (auto obstacle = obstacleIn(*there)) return PathOutcome{path, Action::notRestored, {}, std::move(obstacle)};
    return PathOutcome{path, Action::restored, item.entry.kind};
}

} // namespace

std::vector<PathOutcome> aimOf(const RestorePlan& plan, const Manifest& current, const FolderTest& holdsMore) {
    std::vector<PathOutcome> outcomes = plan.left;
    const Standing standing(plan, current, holdsMore);
    for (const auto* list : {&plan.removeFiles, &plan.removeFolders})
        for (const Manifest::Item* item : *list) outcomes.push_back(removalOf(*item, standing));
    const auto addMade = [&](const RestorePlan::Items& items) {
        for (const Manifest::Item* item : items)
            if (auto outcome = makingOf(*item, standing)) outcomes.push_back(std::move(*outcome));
    };
    addMade(plan.makeFolders);
    for (const auto* list : {&plan.keepFolders, &plan.lockedFolders})
        for (const Manifest::Item* item : *list)
            if (const Entry* present = current.find(item->path);
                present != nullptr && isFolderModeChange(*present, item->entry))
                outcomes.push_back({std::string(item->path), Action::restored, EntryKind::dir, {}, {}});
    addMade(plan.writes);
    return outcomes;
}

} // namespace tidewrack
