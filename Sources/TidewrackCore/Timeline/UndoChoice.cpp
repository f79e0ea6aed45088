// Which turns, restores or undos are taken back.

#include "Timeline/TurnUndo.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Timeline/Elsewhere.hpp"

#include <algorithm>
#include <map>
#include <set>

namespace tidewrack {

using Type = TimelineRow::Type;

namespace {

// Whether a path was there before all that was looked at, and whether it is after it.
struct Existence {
    bool before = false;
    bool after = false;
};

void follow(const Changes& changes, std::map<std::string, Existence>& files) {
    const auto add = [&](const std::vector<std::string>& paths, bool before, bool after) {
        for (const std::string& path : paths)
            if (!changes.folders.contains(path))
                files.emplace(path, Existence{before, after}).first->second.after = after;
    };
    add(changes.added, false, true);
    add(changes.modified, true, true);
    add(changes.deleted, true, false);
}

} // namespace

// A file counts once, also where something else was recorded in between.
void TurnUndo::count(TimelineRow& row) const {
    if (row.counts) return;
    std::map<std::string, Existence> files;
    bool any = false;
    const std::vector<Stretch> newestFirst = openStretches(row);
    for (auto stretch = newestFirst.rbegin(); stretch != newestFirst.rend(); ++stretch) {
        const auto to = stretch->to == untilNow ? std::nullopt : std::optional(stretch->to);
        const Engine::Sides sides = engine_.sides(project_, stretch->from, to);
        const Changes changes = Changes::between(sides.older, sides.newer);
        follow(changes, files);
        any = any || !changes.isEmpty() || !folderModeChanges(sides.older, sides.newer).empty();
    }
    row.counts.emplace();
    for (const auto& [path, file] : files) {
        if (file.before && file.after) ++row.counts->modified;
        if (!file.before && file.after) ++row.counts->added;
        if (file.before && !file.after) ++row.counts->deleted;
    }
    row.foldersAlone = any && files.empty();
}

bool TurnUndo::hasChanges(const TimelineRow& row) const {
    TimelineRow counted = row;
    try {
        count(counted);
    } catch (const TidewrackError&) {
        return true;
    }
    return counted.foldersAlone || counted.counts->sum() > 0;
}

bool TurnUndo::isLeftElsewhere(const TimelineRow& row, const std::vector<Project>& projects,
                               OtherProjects& others) const {
    for (const Project& other : projects) {
        if (other.id == project_.id || !exists(other.root)) continue;
        try {
            const auto latest = engine_.store.history(other).latest();
            if (!latest || latest->created < row.began) continue;
            auto& undo = others[other.id];
            if (!undo) undo = std::make_unique<TurnUndo>(engine_, other);
            const UndoChoice choice = undo->sameTurns({row}, Folder::there);
            if (!choice.rows.empty() && undo->whatIsLeft(choice) != Left::nothing) return true;
        } catch (const TidewrackError&) { // another project's damage is no reason to stay with this turn
        }
    }
    return false;
}

UndoChoice TurnUndo::passing(UndoChoice choice, const std::vector<TimelineRow>& rows,
                             const std::optional<std::vector<VaultEntry>>& vault, bool here) const {
    const std::vector<Project> projects = here ? std::vector<Project>() : engine_.store.registry().projects;
    OtherProjects others;
    for (const TimelineRow& row : rows) {
        choice.rows = {row};
        Left left = Left::something;
        try {
            left = whatIsLeft(choice);
        } catch (const TidewrackError&) { // whoever takes it back is told
        }
        // A redo has no other way to the one before it.
        if (left == Left::something || (left == Left::unkept && choice.by == "undo")) return choice;
        if (vault) {
            std::vector<TimelineRow> turns{row};
            addVaultEntries(*vault, project_, timeline_, turns);
            if (!entriesToPutBack(engine_.store, *vault, turns).empty()) return choice;
        }
        if (!hasChanges(row)) continue;
        if (isLeftElsewhere(row, projects, others)) return choice;
        choice.passed.push_back(row);
    }
    choice.rows.clear();
    return choice;
}

UndoChoice TurnUndo::last(const Options& options) const {
    std::vector<TimelineRow> turns = timeline_.rows;
    std::optional<std::vector<VaultEntry>> vault;
    if (options.vault) {
        vault = readVaultEntries(engine_.store);
        addVaultEntries(*vault, project_, timeline_, turns);
    }
    std::erase_if(turns, [&](const TimelineRow& row) {
        const bool changed =
            !row.counts || row.counts->sum() > 0 || row.foldersAlone || (options.vault && !row.vault.empty());
        return row.type != Type::turn || row.undone || !changed;
    });
    return passing({"undo", {}}, turns, vault, options.here);
}

const TimelineRow* TurnUndo::turnBefore(const TimelineRow& row) const {
    for (const TimelineRow& each : timeline_.rows) {
        const bool before = std::pair(each.last, each.first) < std::pair(row.last, row.first);
        if (each.type != Type::turn || each.undone || !before || !hasChanges(each)) continue;
        try {
            if (whatIsLeft({"undo", {each}}) == Left::something) return &each;
        } catch (const TidewrackError&) { // nobody can take that back either
        }
    }
    return nullptr;
}

UndoChoice TurnUndo::turn(std::int64_t seq) const {
    const TimelineRow* row = timeline_.turnAt(seq);
    try {
        (void)history_.snapshot(seq);
    } catch (const TidewrackError& error) { // one that was pruned may be named as well
        if (error.kind() != TidewrackError::Kind::noSnapshot || row == nullptr || row->last < seq) throw;
    }
    if (row == nullptr)
        throw TidewrackError::refused("Snapshot #" + std::to_string(seq) +
                                      " belongs to no turn. `tidewrack timeline` lists the turns.");
    return {"undo", {*row}};
}

UndoChoice TurnUndo::session(const std::string& name) const {
    if (name.empty()) throw TidewrackError::refused("--session needs a value"); // a script's unset variable
    UndoChoice choice;
    std::set<std::string> names;
    bool exact = false;
    for (const TimelineRow& row : timeline_.rows) exact = exact || (row.type == Type::turn && row.session == name);
    for (const TimelineRow& row : timeline_.rows) {
        if (row.type != Type::turn || !row.session) continue;
        if (exact ? *row.session != name : !row.session->starts_with(name)) continue;
        names.insert(*row.session);
        if (!row.undone) choice.rows.push_back(row);
    }
    if (names.empty()) throw TidewrackError::refused("No turn of a session " + name + " here.");
    if (names.size() > 1)
        throw TidewrackError::refused(std::to_string(names.size()) + " sessions begin with " + name + ", among them " +
                                      *names.begin() + " and " + *names.rbegin() + ".");
    return choice;
}

UndoChoice TurnUndo::range(std::int64_t from, std::int64_t to) const {
    for (const UnreadRecord& record : unread_) // it may be readable by now, but the rest was worked out without it
        if (record.seq == from || record.seq == to) throw TidewrackError::refused(record.reason);
    TimelineRow row;
    row.type = Type::outside;
    row.first = history_.snapshot(from).seq;
    row.last = history_.snapshot(to).seq;
    row.stretches.push_back({from, to});
    return {"undo", {row}};
}

UndoChoice TurnUndo::redo() const {
    std::vector<TimelineRow> rows;
    for (const TimelineRow& row : timeline_.rows) {
        const bool goes = row.type == Type::restore || (row.type == Type::undo && !row.redo);
        if (goes && !row.undone && !row.stretches.empty()) rows.push_back(row);
    }
    return passing({"redo", {}}, rows, std::nullopt, true);
}

UndoChoice TurnUndo::sameTurns(const std::vector<TimelineRow>& rows, Folder folder) const {
    UndoChoice choice;
    for (const TimelineRow& row : timeline_.rows) {
        const auto same =
            std::find_if(rows.begin(), rows.end(), [&](const auto& each) { return isSameTurn(row, each); });
        if (row.undone || same == rows.end()) continue;
        const bool unseen = folder == Folder::gone && row.isRunning(); // nobody can look what it did last
        if (!unseen && !hasChanges(row)) continue;
        choice.rows.push_back(row);
        if (row.title.empty()) choice.rows.back().title = same->title;
        // Its end was seen where it was asked for: what came here since may be anybody's.
        if (row.isRunning() && !same->isRunning()) choice.rows.back().waits.push_back({row.last, untilNow});
    }
    return choice;
}

} // namespace tidewrack
