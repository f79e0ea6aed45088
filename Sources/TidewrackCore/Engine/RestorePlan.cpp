#include "Engine/RestorePlan.hpp"

#include "Changes/Changes.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <algorithm>
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
        if (input.readsEverything) return;
        constexpr std::uint16_t readable = 0500;
        for (const auto& item : input.target.items())
            if (item.entry.kind == EntryKind::dir && (item.entry.mode & readable) != readable &&
                !input.target.listsBelow(item.path))
                unread_.emplace(item.path);
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
        if (!input.scope(item.path)) continue;
        const Entry* wanted = input.target.find(item.path);
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
        if (!input.scope(item.path)) continue;
        const Entry* present = input.current.find(item.path);
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

std::vector<PathOutcome> aimOf(const RestorePlan& plan, const Manifest& current) {
    std::vector<PathOutcome> outcomes = plan.left;
    const auto add = [&](const RestorePlan::Items& items, Action action) {
        for (const Manifest::Item* item : items) {
            const Entry* present = item->entry.kind == EntryKind::dir ? nullptr : current.find(item->path);
            Obstacle obstacle;
            // A folder there is removed before, where it is not one that stays.
            if (present != nullptr && present->kind != EntryKind::dir) obstacle = obstacleIn(*present);
            const Action done = obstacle ? Action::notRestored : action;
            outcomes.push_back({std::string(item->path), done, item->entry.kind, std::move(obstacle)});
        }
    };
    add(plan.removeFiles, Action::removed);
    add(plan.removeFolders, Action::removed);
    add(plan.makeFolders, Action::restored);
    for (const auto* list : {&plan.keepFolders, &plan.lockedFolders})
        for (const Manifest::Item* item : *list)
            if (const Entry* present = current.find(item->path);
                present != nullptr && isFolderModeChange(*present, item->entry))
                outcomes.push_back({std::string(item->path), Action::restored, EntryKind::dir, {}, {}});
    add(plan.writes, Action::restored);
    return outcomes;
}

} // namespace tidewrack
