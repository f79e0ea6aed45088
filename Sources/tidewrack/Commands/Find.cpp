// Names in the whole history.

#include "Commands/Commands.hpp"
#include "Commands/Turns.hpp"
#include "Engine/PathSearch.hpp"
#include "Invocation.hpp"
#include "Reports/FindReports.hpp"
#include "Reports/PathWords.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Timeline/Elsewhere.hpp"
#include "Timeline/LineSearch.hpp"
#include "Timeline/TurnUndo.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <span>

namespace tidewrack::commands {

namespace {

// As it can be typed in the current folder.
std::string commandThatBringsBack(const Invocation& call, const Project& project, const FoundPath& found) {
    const std::string path = joined(project.root, found.path);
    const std::string folder = Store::canonical(call.around.currentFolder);
    const bool within = !call.around.currentFolder.empty() && isAtOrBelow(folder, project.root);
    std::string word = within ? seenFrom(path, folder) : path;
    if (word.starts_with('-')) word = "./" + word;
    const std::string made = exists(project.root) ? "" : makingFolder(project.root);
    return made + "tidewrack restore " + std::to_string(*found.keptIn) + " " + shellWord(word) +
           (within ? "" : " --project " + shellWord(project.root));
}

std::optional<std::size_t> numberOf(const Args& args, const char* option) {
    const auto text = args.value(option);
    if (!text) return std::nullopt;
    const auto number = parseSeq(*text);
    if (!number) throw CliError(std::string(option) + " must be a whole number, 0 or more, got " + *text);
    return static_cast<std::size_t>(*number);
}

int findInLines(Invocation& call, const std::string& text) {
    if (call.args.has("--deleted")) throw CliError("--deleted goes with names; lines that went stand behind a -");
    const auto most = numberOf(call.args, "-n");
    const auto skip = numberOf(call.args, "--skip").value_or(0);
    const Project project = call.project();
    const TurnUndo undo(call.engine(), project);
    call.warnOfUnread(undo.unread());
    std::span<const TimelineRow> rows = undo.timeline().rows;
    rows = rows.subspan(std::min(skip, rows.size()));
    rows = rows.first(std::min(most.value_or(rows.size()), rows.size()));
    LineReport report{findLines(call.engine(), project, undo.records(), rows, text), rows.size(),
                      undo.timeline().rows.size()};
    if (!call.json()) call.warn(report.found.warnings);
    if (!call.json() && report.found.rows.empty())
        throw TidewrackError::refused("No changed line holds " + text +
                                      (rows.size() < report.all ? " in these rows." : "."));
    for (LineFindings::Row& each : report.found.rows) {
        std::vector<TimelineRow> row{std::move(each.row)};
        countAll(call, undo, row);
        each.row = std::move(row.front());
    }
    call.page();
    if (call.json())
        call.printJson(linesFoundJson(report));
    else
        call.print(linesFoundText(report, now(), call.look()));
    return 0;
}

} // namespace

int find(Invocation& call) {
    const auto text = call.args.word(0);
    if (!text || text->empty()) throw CliError("missing text");
    if (call.args.positional.size() > 1)
        throw CliError("find takes one text or pattern; put quotes around it, as in: tidewrack find '*.c'");
    if (call.args.has("--lines")) return findInLines(call, *text);
    for (const char* option : {"-n", "--skip"})
        if (call.args.value(option)) throw CliError(std::string(option) + " goes with --lines");
    const Project project = call.project();
    FindReport report;
    std::vector<UnreadRecord> unread;
    report.records = call.store().history(project).snapshots(unread);
    call.warnOfUnread(unread);
    report.found = findPaths(call.engine(), project, report.records, NamePattern(*text));
    auto& paths = report.found.paths;
    const std::size_t all = paths.size();
    if (call.args.has("--deleted")) std::erase_if(paths, [](const FoundPath& found) { return found.isThere; });
    if (!call.json()) call.warn(report.found.warnings);
    if (paths.empty())
        throw TidewrackError::refused(all > 0 ? "Nothing that matches " + *text + " is gone: the folder has it."
                                              : "No snapshot has a path that matches " + *text + ".");
    report.edits = readNotedEdits(call.store().history(project).folder()).edits;
    report.timeline = Timeline::of(project.root, report.records, readLoggedHooks(call.store()), report.edits);
    report.command = [&](const FoundPath& found) { return commandThatBringsBack(call, project, found); };
    call.page();
    if (call.json())
        call.printJson(findJson(report));
    else
        call.print(findText(report, now(), call.look()));
    return 0;
}

} // namespace tidewrack::commands
