// What agents did, turn by turn.

#include "Commands/Turns.hpp"

#include "Agents/Agent.hpp"
#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/LinesReport.hpp"
#include "Reports/PatchReport.hpp"
#include "Reports/StatReport.hpp"
#include "Reports/TurnReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Sorted.hpp"
#include "Timeline/Elsewhere.hpp"
#include "Timeline/TurnUndo.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <set>

namespace tidewrack::commands {

namespace {

// What a turn changed between two snapshots.
struct Shown {
    Stretch stretch;
    Engine::Sides sides;
    Changes changes;
};

// The turn that a word names: by any of its snapshots, or by a time.
TimelineRow shownTurn(Invocation& call, const Project& project, const TurnUndo& undo) {
    const auto word = call.args.word(0);
    if (word && word != "last" && word != "last-turn")
        return undo.turn(call.number(project, call.snapshotWord(0, "snapshot"))).rows.front();
    return newestTurn(undo);
}

Changes joined(Changes all, const Changes& more) {
    const auto join = [](std::vector<std::string>& into, const std::vector<std::string>& from) {
        into.insert(into.end(), from.begin(), from.end());
        sortAndDedupe(into);
    };
    join(all.added, more.added);
    join(all.modified, more.modified);
    join(all.deleted, more.deleted);
    all.folders.insert(more.folders.begin(), more.folders.end());
    return all;
}

std::string stretchText(const Stretch& stretch) {
    const std::string to = stretch.to == untilNow ? " until now:" : " to #" + std::to_string(stretch.to) + ":";
    return "From #" + std::to_string(stretch.from) + to;
}

// A path that was written wrong must not read as if the turn left it alone. Nothing is known of it where a part could
// not be read.
void refuseUnknown(const std::vector<Shown>& parts, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        const auto lists = [&](const Shown& part) {
            return part.sides.older.lists(path) || part.sides.newer.lists(path);
        };
        if (!path.empty() && std::none_of(parts.begin(), parts.end(), lists))
            throw CliError(path + " is on neither side of this turn");
    }
}

// The first snapshot of a turn behind `seq` after which something changed; none where nothing did.
std::optional<std::int64_t> nextStep(Invocation& call, const Project& project, const TurnUndo& undo,
                                     const TimelineRow& row, std::int64_t seq) {
    const auto stretches = openStretches(row);
    const auto& records = undo.records();
    for (auto at = records.begin(); at != records.end(); ++at) {
        const auto holds = [&](const Stretch& stretch) {
            return stretch.from <= at->seq && (stretch.to == untilNow || at->seq < stretch.to);
        };
        if (at->seq <= seq || std::none_of(stretches.begin(), stretches.end(), holds)) continue;
        const auto next = std::next(at);
        if (next != records.end() && next->manifestOf == at->manifestOf) continue;
        const auto to = next == records.end() ? std::nullopt : std::optional(next->seq);
        const Engine::Sides sides = call.engine().sides(project, at->seq, to);
        if (!Changes::between(sides.older, sides.newer).all().empty()) return at->seq;
    }
    return std::nullopt;
}

} // namespace

const TimelineRow& newestTurn(const TurnUndo& undo) {
    const TimelineRow* turn = undo.timeline().newestTurn();
    if (turn == nullptr) throw TidewrackError::refused("No agent's turn is on record here yet.");
    return *turn;
}

void countAll(Invocation& call, const TurnUndo& undo, std::vector<TimelineRow>& rows) {
    std::set<std::string> told; // one listing may be the end of a row and the beginning of the next
    for (TimelineRow& row : rows) {
        try {
            undo.count(row);
        } catch (const TidewrackError& error) {
            if (told.insert(error.what()).second) call.warn(std::vector<std::string>{error.what()});
        }
    }
}

bool hintAtTurn(Invocation& call, const Project& project, std::int64_t seq, bool idle) {
    const TurnUndo undo(call.engine(), project);
    const TimelineRow* row = undo.timeline().turnAt(seq);
    if (row == nullptr) return false;
    const bool during = idle || row->isRunning() || seq < row->last;
    const bool all = seq == row->first && (row->isRunning() ? seq == row->last : row->last == seq + 1);
    if (!during || all) return false;
    call.print("#" + std::to_string(seq) + " belongs to " + choiceText({"undo", {*row}}, now(), call.look()) +
               ". To take back all of it, run: tidewrack undo --turn " + std::to_string(seq) + "\n");
    if (!idle || call.args.positional.size() > 1) return true; // with paths that another step need not have changed
    if (const auto next = nextStep(call, project, undo, *row, seq)) {
        const std::string number = std::to_string(*next);
        call.print("The next step of it that changed something is #" + number + ": tidewrack undo " + number + "\n");
    }
    return true;
}

int show(Invocation& call) {
    const bool lines = call.args.has("--lines");
    if (lines && !call.json()) throw CliError("--lines goes with --json; without it show prints a patch");
    if (call.json() && call.args.has("--stat")) throw CliError("--stat goes with text; --json names the files");
    const Project project = call.project();
    const TurnUndo undo(call.engine(), project);
    std::vector<TimelineRow> rows{shownTurn(call, project, undo)};
    call.warnOfUnread(undo.unread());
    const TimelineRow row = rows.front();
    countAll(call, undo, rows);
    addElsewhere(call.store(), project, undo.timeline(), rows);
    const std::vector<std::string> paths = call.relativePaths(project, 1);
    std::vector<Shown> parts;
    bool allRead = true;
    for (const Stretch& stretch : openStretches(row)) {
        const auto to = stretch.to == untilNow ? std::nullopt : std::optional(stretch.to);
        try {
            Engine::Sides sides = call.engine().sides(project, stretch.from, to);
            Changes changes = Changes::between(sides.older, sides.newer);
            if (!paths.empty()) changes = changes.within(paths);
            parts.insert(parts.begin(), {stretch, std::move(sides), std::move(changes)});
        } catch (const TidewrackError& error) { // the rest can be shown
            allRead = false;
            if (rows.front().counts) call.warn(std::vector<std::string>{error.what()}); // else that is told already
        }
    }
    if (allRead && !parts.empty()) refuseUnknown(parts, paths);
    if (call.json()) {
        Changes all;
        nlohmann::json files = nlohmann::json::array();
        for (const Shown& part : parts) {
            all = joined(std::move(all), part.changes);
            const auto [from, to] = part.stretch;
            if (lines)
                for (nlohmann::json& file : linesJson(call.store(), project, part.sides, part.changes, from,
                                                      to == untilNow ? std::nullopt : std::optional(to)))
                    files.push_back(std::move(file));
        }
        nlohmann::json document{{"version", 1}, {"turn", timelineJson(rows)["rows"][0]}, {"changes", changesJson(all)}};
        if (lines) document["files"] = std::move(files);
        call.printJson(document);
        return 0;
    }
    call.page();
    call.print(timelineText(rows, true, now(), call.look()) + timesText(row, now(), call.look()));
    for (const Shown& part : parts) {
        if (parts.size() > 1) call.print(stretchText(part.stretch) + "\n");
        if (call.args.has("--stat"))
            call.print(statText(fileStats(call.store(), project, part.sides, part.changes), call.look()));
        else
            writePatch(call.store(), project, part.sides, part.changes, call.look(),
                       [&call](const std::string& section) { call.print(section); });
        call.warn(part.sides.warnings);
    }
    return 0;
}

void refuseUnknownFilters(const Invocation& call, const TurnUndo& undo) {
    const auto& rows = undo.timeline().rows;
    const auto none = [&](const auto& fits) { return std::none_of(rows.begin(), rows.end(), fits); };
    if (const auto agent = call.args.value("--agent"))
        if (!agentNamed(*agent) && none([&](const TimelineRow& row) { return row.agent == *agent; }))
            throw CliError("unknown agent " + *agent);
    if (!undo.unread().empty()) return; // what can't be read may be of that session
    if (const auto session = call.args.value("--session"))
        if (none([&](const TimelineRow& row) { return row.session && row.session->starts_with(*session); }))
            throw CliError("nothing of a session " + *session + " is on record here");
}

int timeline(Invocation& call) {
    for (const char* option : {"--agent", "--session"}) // a script's unset variable must not mean all
        if (call.args.value(option) == "") throw CliError(std::string(option) + " needs a value");
    if (const auto file = call.args.value("--html")) return timelineAsPage(call, *file);
    for (const char* option : {"--contents", "--no-contents"})
        if (call.args.has(option)) throw CliError(std::string(option) + " goes with --html");
    if (call.args.word(0) == "-i") return pickFromTimeline(call);
    const auto most = mostListed(call.args);
    const Project project = call.project();
    const TurnUndo undo(call.engine(), project);
    refuseUnknownFilters(call, undo);
    call.warnOfUnread(undo.unread());
    call.page();
    std::vector<TimelineRow> rows;
    for (const TimelineRow& row : undo.timeline().rows) {
        if (rows.size() == most) break;
        const auto agent = call.args.value("--agent");
        const auto session = call.args.value("--session");
        if (agent && row.agent != *agent) continue;
        if (session && !row.session.value_or("").starts_with(*session)) continue;
        rows.push_back(row);
    }
    countAll(call, undo, rows);
    addElsewhere(call.store(), project, undo.timeline(), rows);
    if (call.json())
        call.printJson(timelineJson(rows));
    else if (rows.empty())
        call.print(undo.timeline().rows.empty() ? "Nothing happened here yet.\n" : "Nothing of that happened here.\n");
    else
        call.print(timelineText(rows, call.args.has("--commands"), now(), call.look()));
    return 0;
}

} // namespace tidewrack::commands
