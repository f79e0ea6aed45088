#include "Commands/UndoElsewhere.hpp"

#include "Invocation.hpp"
#include "Reports/PathWords.hpp"
#include "Reports/TurnReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Text.hpp"
#include "Timeline/Elsewhere.hpp"

#include <optional>
#include <utility>

namespace tidewrack::commands {

namespace {

// A folder that is gone for good, such as a work tree that the turn itself removed, leaves nothing to take back.
Done inGoneProject(const Project& other, const UndoChoice& choice) {
    const std::string before = std::to_string(choice.rows.back().first);
    return {other,
            choice,
            {},
            "the folder is gone. To bring it back as it was before, run: " + bringingBack(other, before),
            true};
}

// Whether the turn can have worked in the project. What can't be read is no sign against it.
bool mayHoldSince(const History& history, Date began) {
    try {
        const auto latest = history.latest();
        return latest && began <= latest->created;
    } catch (const TidewrackError&) {
        return true;
    }
}

// A record that can't be read may have told that the turn worked there.
void warnOfUnreadSince(Invocation& call, const Project& other, const TurnUndo& undo, Date began) {
    std::int64_t before = 0;
    for (const SnapshotMeta& meta : undo.records())
        if (meta.created < began) before = meta.seq;
    for (const UnreadRecord& record : undo.unread())
        if (record.seq > before) call.warnOfUnread({record}, other.root);
}

// The turn where it still stands: its number in the first other project where it was not taken back.
std::optional<std::pair<Project, std::int64_t>> standingElsewhere(Invocation& call, const TimelineRow& row) {
    for (const std::string& root : row.projects) {
        const auto other = call.store().projectContaining(root);
        if (!other || other->root != root || !exists(root)) continue;
        try {
            const UndoChoice choice = TurnUndo(call.engine(), *other).sameTurns({row}, TurnUndo::Folder::there);
            if (!choice.rows.empty()) return std::pair(*other, choice.rows.front().first);
        } catch (const TidewrackError&) { // no reason to tell nothing of the others
        }
    }
    return std::nullopt;
}

} // namespace

std::string bringingBack(const Project& project, const std::string& snapshot) {
    return makingFolder(project.root) + "tidewrack restore " + snapshot + " --project " + shellWord(project.root);
}

void refuseGone(const Project& project, const std::string& snapshot) {
    if (exists(project.root)) return;
    throw TidewrackError::refused(
        project.root + " no longer exists. To bring it back as it was, run: " + bringingBack(project, snapshot));
}

std::vector<Done> inOtherProjects(Invocation& call, const Done& first, const TurnUndo::Options& options) {
    std::vector<Done> all;
    const std::vector<TimelineRow>& rows = first.choice.rows;
    for (const Project& other : call.store().projects()) {
        if (other.id == first.project.id || !mayHoldSince(call.store().history(other), rows.back().began)) continue;
        try {
            const TurnUndo undo(call.engine(), other);
            const bool gone = !exists(other.root);
            const UndoChoice choice = undo.sameTurns(rows, gone ? TurnUndo::Folder::gone : TurnUndo::Folder::there);
            if (choice.rows.empty()) {
                warnOfUnreadSince(call, other, undo, rows.back().began);
                continue;
            }
            if (gone)
                all.push_back(inGoneProject(other, choice));
            else
                all.push_back({other, choice, undo.run(choice, options)});
        } catch (const TidewrackError& error) { // this project's turn can be taken back all the same
            all.push_back({other, {"undo", rows}, {}, error.what()});
        }
    }
    return all;
}

std::string newerElsewhere(Invocation& call, const Project& project, const TurnUndo& undo, const UndoChoice& choice) {
    const std::int64_t last = choice.rows.empty() ? 0 : choice.rows.front().last;
    for (const TimelineRow& row : undo.timeline().rows) {
        if (row.last <= last) break;
        if (row.type != TimelineRow::Type::turn || (!row.undone && undo.hasChanges(row))) continue;
        std::vector<TimelineRow> rows{row};
        addElsewhere(call.store(), project, undo.timeline(), rows);
        const std::string newer =
            "Newer: " + choiceText({"undo", rows}, now(), call.look()) +
            (row.undone ? ", which is taken back here, but not " : ", which changed nothing here, but ");
        if (const auto there = standingElsewhere(call, rows.front())) {
            const std::string root = repairedUtf8(there->first.root);
            return newer + "in " + call.shown(root) + ". To take it back, run: tidewrack undo --turn " +
                   std::to_string(there->second) + " --project " + shellWord(there->first.root) + "\n";
        }
        if (!row.undone && !entriesToPutBack(call.store(), readVaultEntries(call.store()), rows).empty())
            return newer + "outside of projects. To put back what was saved there first, run: tidewrack undo --last "
                           "--vault\n";
    }
    return "";
}

} // namespace tidewrack::commands
