#include "Timeline/UndoPlan.hpp"

#include "Changes/Changes.hpp"
#include "Changes/Merge.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <set>

namespace tidewrack {

namespace {

using Kind = UndoAction::Kind;
using Reason = UndoAction::Reason;
using Later = UndoOptions::Later;

// A path's state while steps are taken back one by one: an entry, nothing, or a text that was merged.
struct State {
    const Entry* entry = nullptr;
    std::optional<std::string> text;
    std::uint16_t mode = 0;
};

bool isFile(const Entry* entry) {
    return entry != nullptr && entry->kind == EntryKind::file;
}

bool isFolder(const Entry* entry) {
    return entry != nullptr && entry->kind == EntryKind::dir;
}

bool isModeChange(const Entry* before, const Entry* after) {
    return before != nullptr && after != nullptr && isFolderModeChange(*before, *after);
}

bool isIgnored(const Entry* entry) {
    return entry != nullptr && entry->isIgnoredFolder();
}

// Whether the path, a folder around it, or something in the folder that stands there is among them.
bool holds(const UndoStep::Paths& named, const std::string& path, bool folder) {
    for (std::string_view at = path; !at.empty(); at = parentOf(at))
        if (named.contains(at)) return true;
    const auto below = folder ? named.lower_bound(path + "/") : named.end();
    return below != named.end() && isAtOrBelow(*below, path);
}

constexpr const char* ignoredNow = "git ignores it now";

// The folder around the path that is listed as one that git ignores; empty: there is none.
std::string_view ignoredAround(const Manifest& listing, std::string_view path) {
    for (std::string_view at = parentOf(path); !at.empty(); at = parentOf(at))
        if (listing.listsIgnored(at)) return at;
    return {};
}

class PathPlanner {
  public:
    PathPlanner(const std::vector<UndoStep>& steps, const Manifest& now, const UndoOptions& options,
                const UndoContents& contents)
        : steps_(steps), now_(now), options_(options), contents_(contents) {}

    // None where everything is as it should be.
    std::optional<UndoAction> plan(const std::string& path) {
        const bool isUnseen = !ignoredAround(now_, path).empty();
        const Entry* now = isUnseen ? unseen(path) : now_.find(path);
        State state{now, std::nullopt, now != nullptr ? now->mode : std::uint16_t{0}};
        const Entry* oldest = nullptr; // what was there before all steps
        bool touched = false;
        bool ignored = false;
        UndoAction action;
        action.path = path;
        for (const UndoStep& step : steps_) {
            const Entry* before = step.before.find(path);
            const Entry* after = step.after.find(path);
            const bool mode = isModeChange(before, after) && isFolder(state.entry) && !isIgnored(state.entry);
            if (!ignoredAround(step.before, path).empty()) continue; // it looks as if all in there were added
            const bool unlisted = !ignoredAround(step.after, path).empty();
            if (unlisted ? before == nullptr : same(before, after) && !mode) continue;
            const bool folder = isFolder(before) || isFolder(after);
            if (!step.doubt.empty() && step.isOthers(path, folder)) continue;
            oldest = before;
            touched = true;
            ignored = ignored || isIgnored(before) || isIgnored(now);
            if (action.reason != Reason::none || ignored) continue;
            if (unlisted)
                takeBackUnlisted(step, *before, state, action);
            else if (mode)
                takeBackMode(step, *before, *after, state, action);
            else
                takeBack(step, before, after, state, action);
        }
        if (!touched) return std::nullopt;
        if (!isUnseen && now == nullptr && findNested(action)) return action;
        if (ignored && (!isUnseen || now == nullptr)) return ofIgnored(std::move(action), oldest, now);
        auto planned = withLater(std::move(action), state, oldest, now);
        return isUnseen ? amongUnseen(std::move(planned), now) : planned;
    }

    // Unlike `differs` by what the contents are, not by where they are kept.
    [[nodiscard]] bool same(const Entry* a, const Entry* b) const {
        if (a == nullptr || b == nullptr) return a == b;
        if (!differs(*a, *b)) return true;
        return a->kind == b->kind && a->mode == b->mode && sameContent(*a, *b);
    }

  private:
    [[nodiscard]] bool sameContent(const Entry& a, const Entry& b) const {
        return a.blob == b.blob || (a.size == b.size && contents_.same(a, b));
    }

    // What to do, unless later work keeps it.
    std::optional<UndoAction> withLater(UndoAction action, State state, const Entry* oldest, const Entry* now) const {
        if (action.reason == Reason::none) return finished(std::move(action), std::move(state), now);
        UndoAction whole;
        whole.path = action.path;
        auto forced = finished(std::move(whole), {oldest, std::nullopt, 0}, now);
        if (options_.later == Later::overwritten) return forced;
        action.forcible = options_.hunks.empty() && (!forced || forced->acts());
        if (options_.later == Later::kept && action.isForOthers()) action.kind = Kind::keep;
        return action;
    }

    // What stands there in a folder that no listing looks into.
    const Entry* unseen(const std::string& path) {
        const auto found = contents_.unseen(path);
        if (!found) return nullptr;
        made_.push_back(*found);
        return &made_.back();
    }

    // Into such a folder comes back what is gone from it. What is there no snapshot could hold, so that stays: one line
    // for all of it. A folder in it is made with what comes back into it.
    [[nodiscard]] std::optional<UndoAction> amongUnseen(std::optional<UndoAction> action, const Entry* now) const {
        if (!action || (now == nullptr && !(action->acts() && action->folder))) return action;
        if (now == nullptr) return std::nullopt;
        UndoAction hidden;
        hidden.path = std::string(ignoredAround(now_, action->path));
        hidden.folder = true;
        hidden.reason = Reason::hidden;
        hidden.detail = ignoredNow;
        return hidden;
    }

    // What is not listed any more, because it is a project of its own, may be there all the same. One line for all of
    // it.
    [[nodiscard]] bool findNested(UndoAction& action) const {
        std::string_view at = action.path;
        while (!at.empty() && !options_.nestedRoots.contains(at)) at = parentOf(at);
        if (at.empty()) return false;
        action.path = std::string(at);
        action.folder = true;
        action.reason = Reason::hidden;
        action.detail = "it is a project of its own now";
        return true;
    }

    // History does not hold what is in such a folder: none is removed, and none can be put back.
    static std::optional<UndoAction> ofIgnored(UndoAction action, const Entry* oldest, const Entry* now) {
        if (isFolder(oldest) ? isFolder(now) : !isIgnored(now)) return std::nullopt;
        action.folder = true;
        if (oldest == nullptr) {
            action.kind = Kind::keep;
            action.reason = Reason::ignored;
        } else {
            action.reason = isFolder(oldest) ? Reason::notKept : Reason::hidden;
            action.detail = isFolder(oldest) ? "git ignores it" : ignoredNow;
        }
        return action;
    }

    [[nodiscard]] bool isAt(const State& state, const Entry* entry) const {
        if (!state.text) return same(state.entry, entry);
        return isFile(entry) && entry->isKept() && state.mode == entry->mode &&
               contents_.read(*entry).bytes == *state.text;
    }

    void takeBack(const UndoStep& step, const Entry* before, const Entry* after, State& state, UndoAction& action) {
        if (isAt(state, before)) return;
        if (!step.doubt.empty() && !step.isOwn(action.path, isFolder(before) || isFolder(after))) {
            action.reason = Reason::doubt;
            action.detail = step.doubt;
        } else if (options_.hunks.empty() && isAt(state, after)) {
            state = {before, std::nullopt, before != nullptr ? before->mode : std::uint16_t{0}};
        } else {
            action.reason = options_.later == Later::kept ? laterChange(after, state) : merge(before, after, state);
            if (action.reason == Reason::none && options_.later == Later::kept) action.reason = Reason::changed;
            if (action.reason == Reason::notKept) action.detail = *before->notKeptReason();
        }
    }

    // Of what was listed before, and then lay in a folder that git ignores: what became of it then is not on record.
    void takeBackUnlisted(const UndoStep& step, const Entry& before, State& state, UndoAction& action) {
        if (isAt(state, &before)) return;
        if (state.entry == nullptr && !state.text) return takeBack(step, &before, nullptr, state, action);
        action.reason = Reason::doubt;
        action.detail = "git ignored it then, so that it can't be told whose change this is";
    }

    // Of a folder that stays.
    static void takeBackMode(const UndoStep& step, const Entry& before, const Entry& after, State& state,
                             UndoAction& action) {
        if (state.entry->mode == before.mode) return;
        action.folder = true;
        if (!step.doubt.empty() && !step.isOwn(action.path, true)) {
            action.reason = Reason::doubt;
            action.detail = step.doubt;
        } else if (state.entry->mode == after.mode) {
            state = {&before, std::nullopt, before.mode};
        } else {
            action.reason = Reason::changed;
        }
    }

    // That it is another thing now, or none: nothing for lines to tell.
    static Reason laterChange(const Entry* after, const State& state) {
        const bool gone = state.entry == nullptr && !state.text;
        if (gone) return Reason::deleted;
        return after == nullptr ? Reason::madeAnew : Reason::none;
    }

    // The lines of both, or why that can't be.
    [[nodiscard]] Reason merge(const Entry* before, const Entry* after, State& state) {
        if (const Reason reason = laterChange(after, state); reason != Reason::none) return reason;
        if (!isFile(before) || !isFile(after) || (!state.text && !isFile(state.entry))) return Reason::changed;
        const bool whole = options_.hunks.empty();
        const std::uint16_t mode = whole && state.mode == after->mode ? before->mode : state.mode;
        if (whole && !state.text) { // where one side changed the mode alone, no lines have to be looked at
            if (sameContent(*after, *state.entry)) return take(*before, mode, state);
            if (sameContent(*before, *after)) return take(*state.entry, mode, state);
        }
        if (!before->isKept()) return Reason::notKept;
        for (const Entry* entry : {after, state.entry})
            if (entry != nullptr && !entry->isKept())
                return entry->blob.starts_with("big:") ? Reason::tooLarge : Reason::changed;
        const LineDiff::Content base = contents_.read(*after);
        const LineDiff::Content older = contents_.read(*before);
        const LineDiff::Content newer =
            state.text ? LineDiff::Content{*state.text, false, 0} : contents_.read(*state.entry);
        for (const LineDiff::Content* content : {&base, &older, &newer}) {
            if (content->tooLarge) return Reason::tooLarge;
            if (content->error != 0) return content == &older ? Reason::damaged : Reason::changed;
        }
        Merge merged = Merge::of(
            base.bytes, newer.bytes,
            whole ? older.bytes : LineDiff::withoutHunks(older.bytes, base.bytes, options_.hunks).value_or(base.bytes));
        switch (merged.kind) {
        case Merge::Kind::clash: return Reason::clash;
        case Merge::Kind::binary: return Reason::changed;
        case Merge::Kind::tooLarge: return Reason::tooLarge;
        case Merge::Kind::clean: break;
        }
        state = {nullptr, std::move(merged.text), mode};
        return Reason::none;
    }

    Reason take(const Entry& content, std::uint16_t mode, State& state) {
        made_.push_back(content);
        made_.back().mode = mode;
        state = {&made_.back(), std::nullopt, mode};
        return Reason::none;
    }

    [[nodiscard]] std::optional<UndoAction> finished(UndoAction action, State state, const Entry* now) const {
        if (isAt(state, now) && !isModeChange(now, state.entry)) return std::nullopt;
        if (state.text) {
            action.kind = Kind::merge;
            action.merged = std::move(*state.text);
            action.mode = state.mode;
            return action;
        }
        const Entry* shown = state.entry != nullptr ? state.entry : now;
        action.folder = isFolder(shown);
        if (state.entry == nullptr)
            action.kind = Kind::remove;
        else if (state.entry->notKept())
            leave(action, Reason::notKept, *state.entry->notKeptReason());
        else if (isFile(state.entry) && !contents_.isWhole(*state.entry))
            leave(action, Reason::damaged, "");
        else {
            action.kind = now == nullptr ? Kind::putBack : Kind::overwrite;
            action.wanted = *state.entry;
        }
        return action;
    }

    static void leave(UndoAction& action, Reason reason, std::string detail) {
        action.kind = Kind::leave;
        action.reason = reason;
        action.detail = std::move(detail);
    }

    const std::vector<UndoStep>& steps_;
    const Manifest& now_;
    const UndoOptions& options_;
    const UndoContents& contents_;
    std::deque<Entry> made_; // contents with a mode of their own
};

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
        if (action->reason == Reason::hidden) // what is in a folder says more than the folder
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
