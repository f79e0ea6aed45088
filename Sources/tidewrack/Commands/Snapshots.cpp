// Taking snapshots and looking at what they hold.

#include "Agents/SnapshotTexts.hpp"
#include "Commands/Commands.hpp"
#include "Commands/Turns.hpp"
#include "Commands/UnknownPaths.hpp"
#include "Invocation.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/LinesReport.hpp"
#include "Reports/PatchReport.hpp"
#include "Reports/StatReport.hpp"
#include "Reports/TextReports.hpp"
#include "Reports/TurnReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Timeline/TurnUndo.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack::commands {

namespace {

// A path that was written wrong must not read as if nothing changed there.
void refuseUnknown(Invocation& call, const Project& project, const Engine::Sides& sides,
                   const std::vector<std::string>& paths) {
    for (const std::string& path : paths)
        if (!path.empty() && !sides.older.lists(path) && !sides.newer.lists(path))
            throw CliError(path + " is on neither side" + adviceOn(call, project, sides.older, path));
}

void printChanges(Invocation& call, const Changes& changes) {
    if (!call.json()) return call.print(changesText(changes, call.look()));
    nlohmann::json document = changesJson(changes);
    document["version"] = 1;
    call.printJson(document);
}

} // namespace

int snap(Invocation& call) {
    const Project project = call.project();
    const SnapshotRequest request{call.args.value("--kind").value_or("manual"), call.args.value("--label"),
                                  call.args.value("--agent"), call.args.value("--session"), call.args.value("--turn")};
    const SnapshotResult result = call.engine().snapshot(project, request);
    const SnapshotMeta& meta = result.meta;
    if (call.json()) {
        nlohmann::json document = snapshotJson(result);
        document["version"] = 1;
        call.printJson(document);
    } else {
        call.print("#" + std::to_string(meta.seq) + "  " + countsText({meta.added, meta.modified, meta.deleted}) +
                   " since the previous snapshot  " + std::to_string(meta.files) + " files  " +
                   std::to_string(meta.durationMs) + " ms\n");
    }
    if (const std::string tooLarge = tooLargeText(result.notKept); !call.json() && !tooLarge.empty())
        call.print(tooLarge + ".\n");
    call.warn(result.warnings);
    return 0;
}

namespace {

// What to compare: a snapshot, the other side, which may be the folder as it is, and where.
struct Compared {
    std::int64_t from = 0;
    std::optional<std::int64_t> to;
    std::vector<std::string> paths;
};

// The second word is a snapshot where it can be one. Else it is a path that is there, or was.
bool isPath(Invocation& call, const Project& project, std::int64_t from, const std::string& word) {
    if (word.empty() || snapshotWord(word, now())) return false;
    if (exists(call.absolute(word))) return true;
    const History history = call.store().history(project);
    const Manifest manifest = history.manifest(history.snapshot(from));
    const std::string path = Engine::relative(project, call.absolute(word));
    return manifest.lists(path);
}

Compared compared(Invocation& call, const Project& project, const SnapshotWord& fromWord) {
    const Args& args = call.args;
    Compared result{call.number(project, fromWord), std::nullopt, {}};
    const bool more = args.positional.size() > 1 && args.plainFrom > 1;
    const bool hasSecond = more && !isPath(call, project, result.from, args.positional[1]);
    if (hasSecond) result.to = call.number(project, call.snapshotWord(1, "second snapshot"));
    result.paths = call.relativePaths(project, hasSecond ? 2 : 1);
    return result;
}

// The newest turn that changed something; a mere question after it is no reason to show nothing.
Compared comparedByTurn(Invocation& call, const Project& project) {
    const TurnUndo undo(call.engine(), project);
    call.warnOfUnread(undo.unread());
    const TimelineRow& newest = newestTurn(undo);
    const auto& rows = undo.timeline().rows;
    const auto changed = std::find_if(rows.begin(), rows.end(), [&](const TimelineRow& row) {
        return row.type == TimelineRow::Type::turn && undo.hasChanges(row);
    });
    const TimelineRow& row = changed == rows.end() ? newest : *changed;
    if (row.first != newest.first || row.last != newest.last)
        call.around.err.line("The newest turn (" + spanText(newest.first, newest.last) + ") changed nothing; this is " +
                             choiceText({"undo", {row}}, now(), {call.around.err.isTerminal()}) + ".");
    return {row.first, row.isRunning() ? std::nullopt : std::optional(row.last), call.relativePaths(project, 0)};
}

} // namespace

int diff(Invocation& call) {
    const Args& args = call.args;
    const bool last = args.has("--last");
    const SnapshotWord fromWord = last ? SnapshotWord() : call.snapshotWord(0, "snapshot");
    const Project project = call.project();
    const auto [from, to, paths] = last ? comparedByTurn(call, project) : compared(call, project, fromWord);
    const bool patch = args.has("--patch");
    const bool stat = args.has("--stat");
    const bool lines = args.has("--lines");
    if (lines && (!call.json() || stat)) throw CliError("--lines goes with --json, and without --stat");
    if (patch && call.json()) throw CliError("a patch is no JSON: give --patch or --json");
    call.page();
    if (!patch && !stat && !lines && !args.has("--content") && paths.empty()) {
        std::vector<Warning> warnings;
        printChanges(call, call.engine().diff(project, from, to, &warnings));
        call.warn(warnings);
        return 0;
    }
    const Engine::Sides sides = call.engine().sides(project, from, to);
    Changes changes = Changes::between(sides.older, sides.newer);
    if (!paths.empty()) {
        changes = changes.within(paths);
        refuseUnknown(call, project, sides, paths);
    }
    if (args.has("--content")) changes = withoutTouched(call.store(), project, sides, changes);
    if (lines)
        call.printJson({{"version", 1}, {"files", linesJson(call.store(), project, sides, changes, from, to)}});
    else if (stat && call.json())
        call.printJson(statJson(fileStats(call.store(), project, sides, changes)));
    else if (stat)
        call.print(statText(fileStats(call.store(), project, sides, changes), call.look()) + (patch ? "\n" : ""));
    else if (!patch)
        printChanges(call, changes);
    if (patch)
        writePatch(call.store(), project, sides, changes, call.look(),
                   [&](const std::string& section) { call.print(section); });
    call.warn(sides.warnings);
    return 0;
}

} // namespace tidewrack::commands
