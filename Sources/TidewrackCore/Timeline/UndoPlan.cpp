#include "Timeline/UndoPlan.hpp"

#include "Changes/Changes.hpp"
#include "Support/Paths.hpp"
#include "Timeline/PathPlanner.hpp"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

namespace tidewrack {

namespace {

using Kind = UndoAction::Kind;
using Reason = UndoAction::Reason;
using Later = UndoOptions::Later;

// Whether the path, a folder around it, or something in the folder that stands there is among them.
bool holds(const UndoStep::Paths& named, const std::string& path, bool folder) {
    for (std::string_view at = path; !at.empty(); at = parentOf(at))
        if (named.contains(at)) return true;
    const auto below = folder ? named.lower_bound(path + "/") : named.end();
    return below != named.end() && isAtOrBelow(*below, path);
}

using Actions = std::map<std::string, UndoAction, std::less<>>;

std::set<std::string> changedPaths(const std::vector<UndoStep>& steps, const UndoOptions& options) {
    std::set<std::string> paths;
    for (const UndoStep& step : steps)
        for (std::string& path : changesWithFolderModes(step.before, step.after))
            if (!options.scope || options.scope(path)) paths.insert(std::move(path));
    return paths;
}

// What is above the path, and stays or becomes something else than a folder; empty: nothing is.
std::string_view noFolderAround(std::string_view path, const Manifest& now, const Actions& actions) {
    for (std::string_view at = parentOf(path); !at.empty(); at = parentOf(at)) {
        const auto action = actions.find(at);
        const Entry* standing = now.find(at);
        if (action != actions.end() && action->second.acts())
            return action->second.folder || action->second.kind == Kind::remove ? std::string_view() : at;
        if (isFolder(standing)) return {};
        if (standing != nullptr) return at;
    }
    return {};
}

void block(UndoAction& action, std::string detail, bool forcible, const UndoOptions& options) {
    action.kind = options.later == Later::kept ? Kind::keep : Kind::leave;
    action.reason = Reason::blocked;
    action.detail = std::move(detail);
    action.forcible = forcible;
    action.wanted.reset();
}

// Nothing can be put back below what is no folder.
void leaveBlocked(const Manifest& now, const UndoOptions& options, Actions& actions) {
    for (auto& [path, action] : actions) {
        if (action.kind != Kind::putBack) continue;
        const std::string_view around = noFolderAround(path, now, actions);
        if (around.empty()) continue;
        const auto standing = actions.find(around);
        const bool comes = standing != actions.end() && standing->second.acts();
        const Entry* entry = comes && standing->second.wanted ? &*standing->second.wanted : now.find(around);
        const char* what = isFile(entry) ? "file" : "symlink";
        block(action, std::string(around) + (comes ? " comes back as a " : " is now a ") + what + ", not a folder",
              standing != actions.end() && standing->second.forcible, options);
    }
}

// What was at the path before it was deleted, or moved away; null where it was not.
const Entry* takenAway(const std::string& path, const std::vector<UndoStep>& steps) {
    for (const UndoStep& step : steps)
        if (const Entry* before = step.before.find(path); before != nullptr && step.after.find(path) == nullptr)
            return before;
    return nullptr;
}

// What was moved stays where it is unless it gets back to where it was: it may be the only one.
void keepMoved(const std::vector<UndoStep>& steps, const Manifest& now, const UndoOptions& options,
               const PathPlanner& planner, Actions& actions) {
    std::multimap<std::int64_t, UndoAction*> removed; // by size
    for (auto& [path, action] : actions)
        if (const Entry* is = now.find(path); action.kind == Kind::remove && is != nullptr && !isFolder(is))
            removed.emplace(is->size, &action);
    for (auto& [path, action] : actions) {
        if (removed.empty()) return;
        const Entry* lost = action.isForOthers() ? takenAway(path, steps) : nullptr;
        if (lost == nullptr || isFolder(lost)) continue;
        auto [each, end] = removed.equal_range(lost->size);
        auto half = removed.end();
        for (; each != end; ++each) {
            const std::string& name = each->second->path;
            if ((half == removed.end() || lastComponent(name) == lastComponent(path)) &&
                planner.same(lost, now.find(name)))
                half = each;
        }
        if (half == removed.end()) continue;
        block(*half->second, "it can't go back to " + path, action.forcible, options);
        removed.erase(half);
    }
}

// Folders that hold something that stays, with the first such thing.
std::map<std::string, std::string, std::less<>> usedFolders(const Manifest& now, const Actions& actions) {
    std::map<std::string, std::string, std::less<>> used;
    for (const auto& item : now.items()) {
        const auto action = actions.find(item.path);
        const bool goes = action != actions.end() && action->second.kind == Kind::remove;
        const bool stays =
            action == actions.end() || !action->second.acts() || action->second.kind == Kind::overwrite; // of a folder
        if (goes || (item.entry.kind == EntryKind::dir && !item.entry.isIgnoredFolder() && !stays)) continue;
        for (std::string_view at = parentOf(item.path); !at.empty(); at = parentOf(at)) used.emplace(at, item.path);
    }
    return used;
}

// In place of a folder that stays, for what is `inside`, nothing is put back; then what the work had in it stays as
// well.
void leaveFolder(UndoAction& action, Kind kind, Reason reason, std::string detail, const std::string& inside,
                 Actions& actions) {
    action.kind = kind;
    action.reason = reason;
    action.detail = std::move(detail);
    action.folder = true;
    action.wanted.reset();
    for (auto below = actions.upper_bound(action.path + "/");
         below != actions.end() && isAtOrBelow(below->first, action.path); ++below) {
        if (below->second.kind != Kind::remove) continue;
        below->second.kind = kind;
        below->second.reason = Reason::blocked;
        below->second.detail = "stays, since " + inside + " is in the folder";
    }
}

// A folder goes only with all that is in it now, what history passes over included.
void keepUsedFolders(const Manifest& now, const UndoOptions& options, const UndoContents& contents, Actions& actions) {
    auto used = usedFolders(now, actions);
    std::vector<std::string> superfluous;
    for (auto each = actions.rbegin(); each != actions.rend(); ++each) { // what is in a folder comes before it
        auto& [path, action] = *each;
        const bool replaced = action.kind == Kind::overwrite && isFolder(now.find(path)) && !action.folder;
        if (!replaced && !(action.kind == Kind::remove && action.folder)) continue;
        const auto use = used.find(path);
        const bool isUsed = use != used.end();
        const std::string inside = isUsed ? use->second : "";
        const std::string name = isUsed ? "" : contents.unlisted(path);
        if (!isUsed && name.empty()) continue;
        for (std::string_view at = parentOf(path); !at.empty(); at = parentOf(at)) used.emplace(at, path);
        if (replaced) {
            const Kind kind = options.later == Later::kept && isUsed ? Kind::keep : Kind::leave;
            if (!isUsed)
                leaveFolder(action, kind, Reason::unlisted, name, joined(path, name), actions);
            else if (options.later == Later::overwritten) // which was asked for, so "changed" would tell nothing
                leaveFolder(action, kind, Reason::blocked, "stays, since " + inside + " is in it", inside, actions);
            else
                leaveFolder(action, kind, Reason::changed, "", inside, actions);
        } else if (isUsed) {
            superfluous.push_back(path);
        } else {
            action.kind = Kind::keep;
            action.reason = Reason::unlisted;
            action.detail = name;
        }
    }
    for (const std::string& path : superfluous) actions.erase(path);
}

} // namespace

bool UndoStep::isOwn(const std::string& path, bool folder) const {
    // A folder is put back for what is in it, and removed only with all of it.
    return holds(own.then, path, folder) && (folder || !holds(others.ever, path, folder));
}

bool UndoStep::isOthers(const std::string& path, bool folder) const {
    return holds(others.then, path, folder) && !holds(own.ever, path, folder);
}

bool UndoAction::isLater(Reason reason) {
    switch (reason) {
    case Reason::clash:
    case Reason::changed:
    case Reason::tooLarge:
    case Reason::deleted:
    case Reason::madeAnew: return true;
    case Reason::none:
    case Reason::doubt:
    case Reason::notKept:
    case Reason::damaged:
    case Reason::hidden:
    case Reason::ignored:
    case Reason::unlisted:
    case Reason::blocked:
    case Reason::obstacle: break;
    }
    return false;
}

void keepFoldersOfLeft(std::vector<UndoAction>& actions) {
    std::set<std::string_view> around;
    for (const UndoAction& action : actions)
        if (action.isLeft())
            for (std::string_view at = parentOf(action.path); !at.empty(); at = parentOf(at)) around.insert(at);
    std::erase_if(actions, [&](const UndoAction& action) {
        return action.kind == Kind::remove && action.folder && around.contains(action.path);
    });
}

std::vector<UndoAction> planUndo(const std::vector<UndoStep>& steps, const Manifest& now, const UndoOptions& options,
                                 const UndoContents& contents) {
    PathPlanner planner(steps, now, options, contents);
    Actions actions;
    for (const std::string& path : changedPaths(steps, options)) {
        auto action = planner.plan(path);
        if (!action) continue;
        std::string at = action->path;
        if (at != path) // what is in a folder says more than the folder
            actions.insert_or_assign(std::move(at), std::move(*action));
        else
            actions.emplace(std::move(at), std::move(*action));
    }
    leaveBlocked(now, options, actions);
    keepMoved(steps, now, options, planner, actions);
    keepUsedFolders(now, options, contents, actions);
    std::vector<UndoAction> result;
    result.reserve(actions.size());
    for (auto& [path, action] : actions) result.push_back(std::move(action));
    return result;
}

} // namespace tidewrack
