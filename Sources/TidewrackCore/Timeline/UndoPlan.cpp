#include "Timeline/UndoPlan.hpp"

#include "Changes/Changes.hpp"
#include "Changes/Merge.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

namespace tidewrack {

namespace {

using Kind = UndoAction::Kind;
using Reason = UndoAction::Reason;
using Later = UndoOptions::Later;

// What stands at a path in thought: an entry, nothing, or a text that was merged.
struct State {
    const Entry* entry = nullptr;
    std::optional<std::string> text;
    std::uint16_t mode = 0;
};

bool isFile(const Entry* entry) {
    return entry != nullptr && entry->kind == EntryKind::file;
}

class PathPlanner {
  public:
    PathPlanner(const std::vector<UndoStep>& steps, const Manifest& now, const UndoOptions& options,
                const UndoContents& contents)
        : steps_(steps), now_(now), options_(options), contents_(contents) {}

    // None where everything is as it should be.
    std::optional<UndoAction> plan(const std::string& path) {
        const Entry* now = now_.find(path);
        State state{now, std::nullopt, now != nullptr ? now->mode : std::uint16_t{0}};
        const Entry* oldest = nullptr; // what stood there before all of it
        bool touched = false;
        UndoAction action;
        action.path = path;
        for (const UndoStep& step : steps_) {
            const Entry* before = step.before.find(path);
            const Entry* after = step.after.find(path);
            if (same(before, after)) continue;
            oldest = before;
            touched = true;
            if (action.reason == Reason::none) takeBack(step, before, after, state, action);
        }
        if (!touched) return std::nullopt;
        if (action.reason != Reason::none) {
            if (options_.later == Later::kept && action.reason != Reason::notKept) {
                action.kind = Kind::keep;
                return action;
            }
            if (options_.later != Later::overwritten) return action;
            state = {oldest, std::nullopt, 0};
            action.reason = Reason::none;
        }
        return finished(std::move(action), state, now);
    }

  private:
    // Unlike `differs` by what the contents are, not by where they are kept.
    [[nodiscard]] bool same(const Entry* a, const Entry* b) const {
        if (a == nullptr || b == nullptr) return a == b;
        if (!differs(*a, *b)) return true;
        if (a->kind != b->kind || a->mode != b->mode || a->size != b->size) return false;
        return contents_.same(*a, *b);
    }

    [[nodiscard]] bool isAt(const State& state, const Entry* entry) const {
        if (!state.text) return same(state.entry, entry);
        return isFile(entry) && entry->isKept() && state.mode == entry->mode &&
               contents_.read(*entry).bytes == *state.text;
    }

    void takeBack(const UndoStep& step, const Entry* before, const Entry* after, State& state, UndoAction& action) {
        if (isAt(state, before)) return;
        if (!step.company.empty()) {
            action.reason = Reason::company;
            action.detail = step.company;
        } else if (isAt(state, after)) {
            state = {before, std::nullopt, before != nullptr ? before->mode : std::uint16_t{0}};
        } else if (options_.later == Later::kept) {
            action.reason = Reason::changed;
        } else {
            action.reason = merge(before, after, state);
            if (action.reason == Reason::notKept) action.detail = *before->notKeptReason();
        }
    }

    // The lines of both, or why that can't be.
    [[nodiscard]] Reason merge(const Entry* before, const Entry* after, State& state) const {
        const bool gone = state.entry == nullptr && !state.text;
        if (gone) return Reason::deleted;
        if (after == nullptr) return Reason::madeAnew;
        if (!isFile(before) || !isFile(after) || (!state.text && !isFile(state.entry))) return Reason::changed;
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
            if (content->error != 0) return Reason::changed;
        }
        Merge merged = Merge::of(base.bytes, newer.bytes, older.bytes);
        switch (merged.kind) {
        case Merge::Kind::clash: return Reason::clash;
        case Merge::Kind::binary: return Reason::changed;
        case Merge::Kind::tooLarge: return Reason::tooLarge;
        case Merge::Kind::clean: break;
        }
        state = {nullptr, std::move(merged.text), state.mode == after->mode ? before->mode : state.mode};
        return Reason::none;
    }

    [[nodiscard]] std::optional<UndoAction> finished(UndoAction action, State state, const Entry* now) const {
        if (isAt(state, now)) return std::nullopt;
        if (state.text) {
            action.kind = Kind::merge;
            action.merged = std::move(*state.text);
            action.mode = state.mode;
            return action;
        }
        action.wanted = state.entry;
        const Entry* shown = state.entry != nullptr ? state.entry : now;
        action.folder = shown->kind == EntryKind::dir;
        if (state.entry == nullptr)
            action.kind = Kind::remove;
        else
            action.kind = now == nullptr ? Kind::putBack : Kind::overwrite;
        if (state.entry != nullptr && state.entry->notKept()) {
            action.kind = Kind::leave;
            action.reason = Reason::notKept;
            action.detail = *state.entry->notKeptReason();
            action.wanted = nullptr;
        }
        return action;
    }

    const std::vector<UndoStep>& steps_;
    const Manifest& now_;
    const UndoOptions& options_;
    const UndoContents& contents_;
};

std::set<std::string> changedPaths(const std::vector<UndoStep>& steps, const UndoOptions& options) {
    std::set<std::string> paths;
    for (const UndoStep& step : steps)
        for (std::string& path : Changes::between(step.before, step.after).all())
            if (!options.scope || options.scope(path)) paths.insert(std::move(path));
    return paths;
}

// A folder that was added goes only with all that is in it now.
void keepUsedFolders(const Manifest& now, std::map<std::string, UndoAction, std::less<>>& actions) {
    std::set<std::string_view> used;
    for (const auto& item : now.items()) {
        if (item.entry.kind == EntryKind::dir && !item.entry.isIgnoredFolder()) continue;
        const auto action = actions.find(item.path);
        if (action != actions.end() && action->second.kind == Kind::remove) continue;
        for (std::string_view at = parentOf(item.path); !at.empty(); at = parentOf(at))
            if (!used.insert(at).second) break;
    }
    // Empty folders made since.
    for (const auto& item : now.items())
        if (item.entry.kind == EntryKind::dir && !actions.contains(item.path))
            for (std::string_view at = parentOf(item.path); !at.empty(); at = parentOf(at)) used.insert(at);
    std::erase_if(actions, [&](const auto& each) {
        return each.second.kind == Kind::remove && each.second.folder && used.contains(each.first);
    });
}

} // namespace

std::vector<UndoAction> planUndo(const std::vector<UndoStep>& steps, const Manifest& now, const UndoOptions& options,
                                 const UndoContents& contents) {
    PathPlanner planner(steps, now, options, contents);
    std::map<std::string, UndoAction, std::less<>> actions;
    for (const std::string& path : changedPaths(steps, options))
        if (auto action = planner.plan(path)) actions.emplace(path, std::move(*action));
    keepUsedFolders(now, actions);
    std::vector<UndoAction> result;
    result.reserve(actions.size());
    for (auto& [path, action] : actions) result.push_back(std::move(action));
    return result;
}

} // namespace tidewrack
