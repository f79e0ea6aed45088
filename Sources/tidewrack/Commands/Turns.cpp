// What agents did, turn by turn, and taking it back.

#include "Commands/Turns.hpp"

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/PatchReport.hpp"
#include "Reports/StatReport.hpp"
#include "Reports/TextReports.hpp"
#include "Reports/TurnReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Text.hpp"
#include "Timeline/TurnUndo.hpp"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>

namespace tidewrack::commands {

namespace {

constexpr int leftAlone = 3; // the exit status when some of what was asked for was not done

constexpr const char* nothingToUndo =
    "There's nothing to undo: no turn changed anything here that wasn't taken back already.";

std::int64_t numberOf(const std::string& text, const char* option) {
    const auto number = parseSeq(text.starts_with('#') ? text.substr(1) : text);
    if (!number) throw CliError(std::string(option) + " needs a snapshot number, got " + text);
    return *number;
}

TurnUndo::Options optionsFrom(Invocation& call) {
    TurnUndo::Options options;
    if (call.args.has("--force")) options.later = UndoOptions::Later::overwritten;
    if (call.args.has("--keep-later")) options.later = UndoOptions::Later::kept;
    if (call.args.has("--force") && call.args.has("--keep-later"))
        throw CliError("--force and --keep-later contradict each other");
    options.dryRun = call.args.has("--dry-run");
    return options;
}

struct Done {
    Project project;
    UndoChoice choice;
    UndoResult result;
    std::string failure{}; // of another project: why nothing was done there
};

std::string summary(const Done& done, bool dryRun, const Look& look) {
    if (!done.failure.empty()) return done.failure + "\n";
    const std::string what = choiceText(done.choice, look);
    if (done.result.actions.empty()) return "Nothing is left to take back of " + what + ".\n";
    const bool acts = std::any_of(done.result.actions.begin(), done.result.actions.end(),
                                  [](const auto& each) { return each.action.acts(); });
    std::string text = !acts    ? "Nothing of " + what + " is taken back:\n"
                       : dryRun ? "Would take back " + what + ":\n"
                                : "Took back " + what + ":\n";
    text += undoText(done.result, look);
    std::size_t left = 0;
    for (const UndoneAction& each : done.result.actions) left += each.action.isLeft() ? 1U : 0U;
    if (left > 0)
        text += std::to_string(left) + (left == 1 ? " path is" : " paths are") +
                " left alone; --force puts such paths back whole, --keep-later passes over them.\n";
    return text;
}

// One line how to take it back.
void takeBackHint(Invocation& call, const Done& done, bool elsewhere) {
    if (!done.result.restored) return;
    std::string words = "redo";
    if (done.choice.by == "redo") words = "restore " + std::to_string(done.result.restored->safety.seq);
    if (elsewhere) words += " --project " + repairedUtf8(done.project.root);
    call.print("Take this back with: tidewrack " + words + "\n");
}

int report(Invocation& call, const std::vector<Done>& all, bool dryRun) {
    int status = 0;
    nlohmann::json list = nlohmann::json::array();
    std::string text;
    for (const Done& done : all) {
        if (!done.failure.empty() || !done.result.isComplete()) status = leftAlone;
        list.push_back(undoJson(done.project.root, done.choice, done.result));
        if (!done.failure.empty()) list.back()["warnings"].push_back(repairedUtf8(done.failure));
        if (&done != &all.front()) text += "In " + call.shown(done.project.root) + ": ";
        text += summary(done, dryRun, call.look());
    }
    if (call.json()) {
        call.printJson({{"version", 1}, {"dryRun", dryRun}, {"projects", list}});
    } else {
        call.print(text);
        for (const Done& done : all)
            if (done.result.restored) call.print(warningsText(*done.result.restored, call.look()));
        if (dryRun) call.print("Nothing was changed.\n");
        for (const Done& done : all) takeBackHint(call, done, &done != &all.front());
    }
    return status;
}

int nothing(Invocation& call, const std::string& sentence, bool dryRun) {
    if (call.json())
        call.printJson({{"version", 1}, {"dryRun", dryRun}, {"projects", nlohmann::json::array()}});
    else
        call.print(sentence + "\n");
    return 0;
}

// The same turn in the other projects that it worked in.
void addOtherProjects(Invocation& call, const TurnUndo::Options& options, std::vector<Done>& all) {
    const std::vector<TimelineRow> rows = all.front().choice.rows;
    for (const Project& other : call.store().projects()) {
        if (other.id == all.front().project.id) continue;
        try {
            const auto latest = call.store().history(other).latest();
            if (!latest || latest->created < rows.back().began) continue;
            const TurnUndo undo(call.engine(), other);
            const UndoChoice choice = undo.sameTurns(rows);
            if (choice.rows.empty()) continue;
            all.push_back({other, choice, undo.run(choice, options)});
        } catch (const TidewrackError& error) { // this project's turn can be taken back all the same
            all.push_back({other, {"undo", rows}, {}, error.what()});
        }
    }
}

// Carried out, or planned, in this project and where the same turn worked as well.
std::vector<Done> done(Invocation& call, const TurnUndo& undo, Done first, const TurnUndo::Options& options,
                       bool everywhere) {
    first.result = undo.run(first.choice, options);
    std::vector<Done> all;
    all.push_back(std::move(first));
    if (everywhere) addOtherProjects(call, options, all);
    return all;
}

UndoChoice chosen(Invocation& call, const TurnUndo& undo) {
    if (const auto turn = call.args.value("--turn")) return undo.turn(numberOf(*turn, "--turn"));
    if (const auto session = call.args.value("--session")) return undo.session(*session);
    if (const auto of = call.args.value("--session-of")) {
        const UndoChoice turn = undo.turn(numberOf(*of, "--session-of"));
        const auto& session = turn.rows.front().session;
        if (!session) throw TidewrackError::refused("That turn has no session.");
        return undo.session(*session);
    }
    return undo.last();
}

} // namespace

std::vector<std::string> pathsFrom(Invocation& call, const Project& project, std::size_t first) {
    std::vector<std::string> paths;
    for (std::size_t i = first; i < call.args.positional.size(); ++i) {
        // An unset variable of a script must not mean the whole folder.
        if (call.args.positional[i].empty()) throw CliError("missing path");
        paths.push_back(Engine::relative(project, call.absolute(call.args.positional[i])));
    }
    return paths;
}

void hintAtTurn(Invocation& call, const Project& project, std::int64_t seq) {
    const TurnUndo undo(call.engine(), project);
    const TimelineRow* row = undo.timeline().turnAt(seq);
    if (row == nullptr || row->last <= seq + 1) return;
    call.print("#" + std::to_string(seq) + " belongs to " + choiceText({"undo", {*row}}, call.look()) +
               ". To take back all of it, run: tidewrack undo --turn " + std::to_string(seq) + "\n");
}

bool isUndoOfTurns(const Args& args) {
    for (const char* option : {"--turn", "--session", "--session-of"})
        if (args.value(option)) return true;
    return args.has("--last") || args.word(0).value_or("").find("..") != std::string::npos;
}

int undoTurns(Invocation& call) {
    int ways = call.args.has("--last") ? 1 : 0;
    for (const char* option : {"--turn", "--session", "--session-of"}) ways += call.args.value(option) ? 1 : 0;
    if (ways > 1) throw CliError("undo takes one of --last, --turn, --session and --session-of");
    const Project project = call.project();
    const TurnUndo undo(call.engine(), project);
    TurnUndo::Options options = optionsFrom(call);
    UndoChoice choice;
    if (ways == 0) {
        const std::string range = call.args.word(0).value_or("");
        const std::size_t dots = range.find("..");
        const std::int64_t from = numberOf(range.substr(0, dots), "A..B");
        const std::int64_t to = numberOf(range.substr(dots + 2), "A..B");
        if (to < from) throw CliError("A..B goes from the older snapshot to the newer one, got " + range);
        choice = undo.range(from, to);
        options.paths = pathsFrom(call, project, 1);
    } else {
        choice = chosen(call, undo);
        options.paths = pathsFrom(call, project, 0);
    }
    if (choice.rows.empty()) return nothing(call, nothingToUndo, options.dryRun);
    const bool everywhere = ways > 0 && options.paths.empty() && !call.args.has("--here");
    return report(call, done(call, undo, {project, choice, {}}, options, everywhere), options.dryRun);
}

bool canAsk(Invocation& call) {
    return !call.json() && call.around.out.isTerminal() && ::isatty(call.around.input) == 1;
}

int undoAsking(Invocation& call) {
    const Project project = call.project();
    const TurnUndo undo(call.engine(), project);
    const UndoChoice choice = undo.last();
    TurnUndo::Options options;
    options.dryRun = true;
    if (choice.rows.empty()) return nothing(call, nothingToUndo, true);
    for (const Done& each : done(call, undo, {project, choice, {}}, options, true))
        call.print((each.project.id == project.id ? "" : "In " + call.shown(each.project.root) + ": ") +
                   summary(each, true, call.look()));
    call.print("Do it? (yes/no) ");
    call.around.out.flush();
    std::string answer;
    for (char letter = 0; ::read(call.around.input, &letter, 1) == 1 && letter != '\n';) answer += letter;
    if (answer != "y" && answer != "yes") {
        call.print("Nothing was changed.\n");
        return 0;
    }
    options.dryRun = false;
    return report(call, done(call, undo, {project, choice, {}}, options, true), false);
}

int redo(Invocation& call) {
    const Project project = call.project();
    const TurnUndo undo(call.engine(), project);
    const TurnUndo::Options options = optionsFrom(call);
    const UndoChoice choice = undo.redo();
    if (choice.rows.empty())
        return nothing(call, "There's nothing to redo: no undo or restore here that wasn't redone already.",
                       options.dryRun);
    return report(call, {{project, choice, undo.run(choice, options)}}, options.dryRun);
}

int show(Invocation& call) {
    const Project project = call.project();
    const TurnUndo undo(call.engine(), project);
    const Timeline& timeline = undo.timeline();
    const TimelineRow* found = nullptr;
    if (call.args.word(0)) {
        found = timeline.turnAt(call.args.number(0, "snapshot"));
        if (found == nullptr) (void)undo.turn(call.args.number(0, "snapshot")); // tells so
    } else {
        for (const TimelineRow& row : timeline.rows)
            if (found == nullptr && row.type == TimelineRow::Type::turn) found = &row;
        if (found == nullptr) throw TidewrackError::refused("No agent's turn is on record here yet.");
    }
    std::vector<TimelineRow> rows{*found};
    rows[0].counts = undo.counts(*found);
    addElsewhere(call.store(), project, rows);
    const auto to = found->isRunning() ? std::nullopt : std::optional(found->last);
    const Engine::Sides sides = call.engine().sides(project, found->first, to);
    const Changes changes = Changes::between(sides.older, sides.newer);
    if (call.json()) {
        call.printJson({{"version", 1}, {"turn", timelineJson(rows)["rows"][0]}, {"changes", changesJson(changes)}});
        return 0;
    }
    call.page();
    call.print(timelineText(rows, true, now(), call.look()));
    if (call.args.has("--stat"))
        call.print(statText(call.store(), project, sides, changes, call.look()));
    else
        writePatch(call.store(), project, sides, changes, call.look(),
                   [&call](const std::string& section) { call.print(section); });
    call.warn(sides.warnings);
    return 0;
}

int timeline(Invocation& call) {
    const auto most = mostListed(call.args);
    const Project project = call.project();
    const TurnUndo undo(call.engine(), project);
    call.page();
    std::vector<TimelineRow> rows;
    for (const TimelineRow& row : undo.timeline().rows) {
        if (rows.size() == most) break;
        const auto agent = call.args.value("--agent");
        const auto session = call.args.value("--session");
        if (agent && row.agent != *agent) continue;
        if (session && !row.session.value_or("").starts_with(*session)) continue;
        rows.push_back(row);
        rows.back().counts = undo.counts(row);
    }
    addElsewhere(call.store(), project, rows);
    if (call.json())
        call.printJson(timelineJson(rows));
    else if (rows.empty())
        call.print("Nothing happened here yet.\n");
    else
        call.print(timelineText(rows, call.args.has("--commands"), now(), call.look()));
    return 0;
}

} // namespace tidewrack::commands
