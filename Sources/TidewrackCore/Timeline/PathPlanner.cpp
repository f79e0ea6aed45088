#include "Timeline/PathPlanner.hpp"

#include "Changes/Changes.hpp"
#include "Changes/Merge.hpp"
#include "Engine/RestorePlan.hpp"
#include "Support/Paths.hpp"

namespace tidewrack {

using Kind = UndoAction::Kind;
using Reason = UndoAction::Reason;
using Later = UndoOptions::Later;

namespace {

bool isModeChange(const Entry* before, const Entry* after) {
    return before != nullptr && after != nullptr && isFolderModeChange(*before, *after);
}

bool isIgnored(const Entry* entry) {
    return entry != nullptr && entry->isIgnoredFolder();
}

constexpr const char* ignoredNow = "it is ignored now";

} // namespace

std::string_view unreadAround(const Manifest& listing, std::string_view path) {
    for (std::string_view at = parentOf(path); !at.empty(); at = parentOf(at))
        if (const Entry* folder = listing.find(at))
            return isUnreadable(*folder) && !listing.listsBelow(at) ? at : std::string_view();
    return {};
}

std::optional<UndoAction> PathPlanner::plan(const std::string& path) {
    const bool isUnseen = now_.leavesOut(path);
    const Entry* now = isUnseen ? unseen(path) : now_.find(path);
    State state{now, std::nullopt, now != nullptr ? now->mode : std::uint16_t{0}};
    const Entry* oldest = nullptr; // what was there before all steps
    bool touched = false;
    bool ignored = false;
    bool isCrossed = false; // a step ends with the path left out
    UndoAction action;
    action.path = path;
    for (const UndoStep& step : steps_) {
        const Entry* before = step.before.find(path);
        const Entry* after = step.after.find(path);
        const bool mode = isModeChange(before, after) && isFolder(state.entry) && !isIgnored(state.entry);
        if (step.before.leavesOut(path)) continue; // it looks as if all in there were added
        const bool unlisted = step.after.leavesOut(path);
        if (unlisted ? before == nullptr : same(before, after) && !mode) continue;
        if (before == nullptr && !options_.readsEverything) {
            const std::string_view closed = unreadAround(step.before, path);
            if (!closed.empty() && !step.found && state.entry != nullptr) return ofUnread(closed);
            if (!closed.empty() && step.found && step.found->contains(path)) continue;
        }
        const bool folder = isFolder(before) || isFolder(after);
        if (!step.doubt.empty() && step.isOthers(path, folder)) continue;
        oldest = before;
        touched = true;
        isCrossed = isCrossed || unlisted;
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
    const bool isOwners = isCrossed && options_.leavesOut && options_.leavesOut(path);
    return isUnseen || isOwners ? amongUnseen(std::move(planned), now, isOwners) : planned;
}

bool PathPlanner::same(const Entry* a, const Entry* b) const {
    if (a == nullptr || b == nullptr) return a == b;
    if (!differs(*a, *b)) return true;
    return a->kind == b->kind && a->mode == b->mode && sameContent(*a, *b);
}

bool PathPlanner::sameContent(const Entry& a, const Entry& b) const {
    return a.blob == b.blob || (a.size == b.size && contents_.same(a, b));
}

// What to do, unless later work keeps it.
std::optional<UndoAction> PathPlanner::withLater(UndoAction action, State state, const Entry* oldest,
                                                 const Entry* now) const {
    if (action.reason == Reason::none) return finished(std::move(action), std::move(state), now);
    UndoAction whole;
    whole.path = action.path;
    auto forced = finished(std::move(whole), {oldest, std::nullopt, 0}, now);
    if (options_.later == Later::overwritten) return forced;
    action.forcible = options_.hunks.empty() && (!forced || forced->acts());
    if (options_.later == Later::kept && action.isForOthers()) action.kind = Kind::keep;
    return action;
}

// One line for all that is in it. It stays open, so that people can look.
std::optional<UndoAction> PathPlanner::ofUnread(std::string_view folder) const {
    UndoAction action;
    action.path = std::string(folder);
    action.kind = options_.later == Later::kept ? Kind::keep : Kind::leave;
    action.folder = true;
    action.reason = Reason::doubt;
    action.detail = "it couldn't be read before, so that it can't be told what in it is new";
    return action;
}

// What stands there in a folder that no listing looks into.
const Entry* PathPlanner::unseen(const std::string& path) {
    const auto found = contents_.unseen(path);
    if (!found) return nullptr;
    made_.push_back(*found);
    return &made_.back();
}

// Into such a folder comes back what is gone from it, unless its owner took it out of the history: nothing tells who
// removed it since. What is there no snapshot could hold, so that stays: one line for all of it. A folder in it is made
// with what comes back into it.
std::optional<UndoAction> PathPlanner::amongUnseen(std::optional<UndoAction> action, const Entry* now,
                                                   bool isOwners) const {
    const bool stays = now != nullptr || isOwners;
    if (!action || (!stays && !(action->acts() && action->folder))) return action;
    if (!stays) return std::nullopt;
    UndoAction hidden;
    hidden.path = std::string(now_.ignoredAround(action->path));
    hidden.folder = !hidden.path.empty();
    if (!hidden.folder) hidden.path = action->path;
    hidden.reason = Reason::hidden;
    hidden.detail = ignoredNow;
    return hidden;
}

// What is not listed any more, because it is a project of its own, may be there all the same. One line for all of
// it.
bool PathPlanner::findNested(UndoAction& action) const {
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
std::optional<UndoAction> PathPlanner::ofIgnored(UndoAction action, const Entry* oldest, const Entry* now) {
    if (isFolder(oldest) ? isFolder(now) : !isIgnored(now)) return std::nullopt;
    action.folder = true;
    if (oldest == nullptr) {
        action.kind = Kind::keep;
        action.reason = Reason::ignored;
    } else {
        action.reason = isFolder(oldest) ? Reason::notKept : Reason::hidden;
        action.detail = isFolder(oldest) ? "it is ignored" : ignoredNow;
    }
    return action;
}

bool PathPlanner::isAt(const State& state, const Entry* entry) const {
    if (!state.text) return same(state.entry, entry);
    return isFile(entry) && entry->isKept() && state.mode == entry->mode && contents_.read(*entry).bytes == *state.text;
}

void PathPlanner::takeBack(const UndoStep& step, const Entry* before, const Entry* after, State& state,
                           UndoAction& action) {
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
void PathPlanner::takeBackUnlisted(const UndoStep& step, const Entry& before, State& state, UndoAction& action) {
    if (isAt(state, &before)) return;
    if (state.entry == nullptr && !state.text) return takeBack(step, &before, nullptr, state, action);
    action.reason = Reason::doubt;
    action.detail = "git ignored it then, so that it can't be told whose change this is";
}

// Of a folder that stays.
void PathPlanner::takeBackMode(const UndoStep& step, const Entry& before, const Entry& after, State& state,
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
PathPlanner::Reason PathPlanner::laterChange(const Entry* after, const State& state) {
    const bool gone = state.entry == nullptr && !state.text;
    if (gone) return Reason::deleted;
    return after == nullptr ? Reason::madeAnew : Reason::none;
}

// The lines of both, or why that can't be.
PathPlanner::Reason PathPlanner::merge(const Entry* before, const Entry* after, State& state) {
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

PathPlanner::Reason PathPlanner::take(const Entry& content, std::uint16_t mode, State& state) {
    made_.push_back(content);
    made_.back().mode = mode;
    state = {&made_.back(), std::nullopt, mode};
    return Reason::none;
}

std::optional<UndoAction> PathPlanner::finished(UndoAction action, State state, const Entry* now) const {
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

void PathPlanner::leave(UndoAction& action, Reason reason, std::string detail) {
    action.kind = Kind::leave;
    action.reason = reason;
    action.detail = std::move(detail);
}

} // namespace tidewrack
