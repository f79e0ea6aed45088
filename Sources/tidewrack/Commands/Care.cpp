// What is kept of the history, and for how long.

#include "Commands/Commands.hpp"
#include "Engine/Check.hpp"
#include "Engine/Repair.hpp"
#include "Engine/Usage.hpp"
#include "Invocation.hpp"
#include "Reports/CareReports.hpp"
#include "Reports/JsonReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Paths.hpp"
#include "Timeline/TurnUndo.hpp"
#include "Walk/GitIgnore.hpp"
#include "Walk/Walker.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace tidewrack::commands {

namespace {

int setPinned(Invocation& call, bool pinned) {
    const SnapshotWord word = call.snapshotWord(0, "snapshot");
    const Project project = call.project();
    const std::int64_t seq = call.number(project, word);
    call.engine().setPinned(project, seq, pinned);
    if (call.json())
        call.printJson({{"version", 1}, {"seq", seq}, {"pinned", pinned}});
    else
        call.print((pinned ? "Pinned #" : "Unpinned #") + std::to_string(seq) + ".\n");
    return 0;
}

// The turns that brought the largest contents, as far as the records tell.
void addTurns(Invocation& call, const Project& project, UsageReport::Of& of) {
    try {
        const TurnUndo undo(call.engine(), project);
        for (const LargeContent& content : of.usage.largest) {
            const auto& rows = undo.timeline().rows;
            const auto found = std::find_if(rows.begin(), rows.end(), [&](const TimelineRow& row) {
                return row.type == TimelineRow::Type::turn && row.first < content.seq && content.seq <= row.last;
            });
            if (found == rows.end()) continue;
            of.turns[content.blob] = {found->first, found->agent.value_or(""), found->title};
        }
    } catch (const TidewrackError&) { // the sizes are worth having
    }
}

// Folders that may be a project's whose record is lost: this one and those around it.
std::vector<std::string> foldersAround(Invocation& call) {
    std::vector<std::string> folders = {Store::canonical(call.absolute(call.around.currentFolder))};
    while (folders.back().size() > 1) folders.emplace_back(parentOf(folders.back()));
    return folders;
}

// Mends what can be mended; the report then has what is left.
void repair(Invocation& call, CheckDepth depth, CheckReport& report) {
    report.repairs.emplace();
    for (CheckedProject& project : report.projects) {
        if (project.damages.empty()) continue;
        try {
            report.repairs->push_back(repairProject(call.engine(), project, foldersAround(call)));
            project = report.repairs->back().after;
        } catch (const TidewrackError& error) { // the others can be mended all the same
            report.repairs->push_back({{}, {error.what()}, {}, {}});
        }
    }
    if (report.vault.damages.empty()) return;
    report.repairs->push_back(repairVault(call.store(), report.vault));
    report.vault = checkVault(call.store(), depth);
}

} // namespace

int pin(Invocation& call) {
    return setPinned(call, true);
}

int unpin(Invocation& call) {
    return setPinned(call, false);
}

int prune(Invocation& call) {
    const bool dryRun = call.args.has("--dry-run");
    const PruneResult result = call.engine().prune(call.project(), now(), dryRun);
    if (call.json())
        call.printJson(pruneJson(result, dryRun));
    else
        call.print((dryRun ? "Would remove " : "Removed ") + std::to_string(result.removedSnapshots.size()) +
                   " snapshots, " + std::to_string(result.removedBlobs) + " stored files.\n");
    return 0;
}

int check(Invocation& call) {
    const CheckDepth depth = call.args.has("--contents") ? CheckDepth::bytes : CheckDepth::attributes;
    const bool everything = !call.args.value("--project");
    CheckReport report;
    for (const std::string& id : everything ? projectFolders(call.store()) : std::vector{call.project().id})
        report.projects.push_back(checkProject(call.store(), id, depth, call.engine().progress));
    report.withVault = everything;
    if (everything) report.vault = checkVault(call.store(), depth);
    if (call.args.has("--repair")) repair(call, depth, report);
    if (call.json())
        call.printJson(checkJson(report));
    else
        call.print(checkText(report, call.look()));
    return report.isHealthy() ? 0 : 1;
}

int usage(Invocation& call) {
    const bool everything = !call.args.value("--project");
    UsageReport report;
    for (const Project& project : everything ? call.store().registry().projects : std::vector{call.project()}) {
        report.projects.push_back({projectUsage(call.engine(), project, now()), {}});
        addTurns(call, project, report.projects.back());
    }
    if (everything) report.vault = vaultUsage(call.store());
    if (call.json())
        call.printJson(usageJson(report));
    else
        call.print(usageText(report, call.look()));
    return 0;
}

int benchWalk(Invocation& call) {
    const Project project = call.project(call.args.word(0));
    for (const bool withGit : {true, false}) {
        const auto start = std::chrono::steady_clock::now();
        std::size_t count = 0;
        const auto body = [&](const Walker::Item&) {
            ++count;
            return true;
        };
        if (withGit) {
            projectWalker(project, {})->walk(body);
        } else {
            Walker::Options options;
            options.excludes = NameSet(project.excludes.begin(), project.excludes.end());
            Walker(project.root, std::move(options)).walk(body);
        }
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
        char text[96];
        std::snprintf(text, sizeof text, "walk %s git: %zu entries %.1f ms\n", withGit ? "with" : "without", count,
                      elapsed.count());
        call.print(text);
    }
    return 0;
}

} // namespace tidewrack::commands
