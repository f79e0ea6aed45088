// The snapshots in a row, and what became of one path.

#include "Commands/Commands.hpp"
#include "Commands/Turns.hpp"
#include "Engine/PathHistory.hpp"
#include "Engine/RetentionPlan.hpp"
#include "Invocation.hpp"
#include "Reports/PatchReport.hpp"
#include "Reports/PathWords.hpp"
#include "Reports/TextReports.hpp"
#include "Reports/TurnReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"
#include "Timeline/Elsewhere.hpp"
#include "Timeline/TurnUndo.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <future>
#include <set>

namespace tidewrack::commands {

namespace {

struct SoFar {
    Changes::Counts counts;
    std::vector<Warning> warnings;
};
using CountsSoFar = std::future<SoFar>;

CountsSoFar countsSoFar(const Engine& engine, const Project& project, std::int64_t seq) {
    return std::async(std::launch::async | std::launch::deferred, // deferred where no thread is to be had
                      [&engine, &project, seq] {
                          SoFar result;
                          result.counts = engine.diff(project, seq, std::nullopt, &result.warnings).fileCounts();
                          return result;
                      });
}

// What changed after a snapshot; no counts where that cannot be told.
struct After {
    std::optional<Changes::Counts> counts;
    std::string text;

    [[nodiscard]] bool isNothing() const { return counts && counts->sum() == 0; }
};

// The older snapshots are worth listing even when the newest cannot be compared with the folder.
After changesSoFar(Invocation& call, CountsSoFar& soFar, std::int64_t seq) {
    try {
        const auto [counts, warnings] = soFar.get();
        call.warn(warnings);
        return {counts, counts.sum() == 0 ? "no changes yet" : countsText(counts) + " so far"};
    } catch (const TidewrackError& error) {
        call.warn({"can't tell what changed since #" + std::to_string(seq) + ": " + error.what()});
        return {std::nullopt, "unknown"};
    }
}

// What changed after `meta`, as the next newer record has it.
After changesAfter(const SnapshotMeta& meta, const SnapshotMeta& newer, const std::vector<UnreadRecord>& unread) {
    const Changes::Counts counts{newer.added, newer.modified, newer.deleted};
    const bool hasUnread = std::any_of(unread.begin(), unread.end(), [&](const UnreadRecord& record) {
        return record.seq > meta.seq && record.seq < newer.seq;
    });
    if (newer.seq == meta.seq + 1) return {counts, countsText(counts)};
    // The record knows only what changed since the snapshot before it, which is gone.
    const std::string first = "#" + std::to_string(meta.seq + 1);
    const std::string last = newer.seq == meta.seq + 2 ? "" : "–#" + std::to_string(newer.seq - 1);
    // A snapshot that was killed leaves a number without a record as well, and what is so new is not pruned yet.
    const bool maybePruned = now() - meta.created >= keepsAll;
    const char* why = hasUnread ? ", unreadable)" : maybePruned ? ", pruned)" : ")";
    return {std::nullopt, countsText(counts) + " (without " + first + last + why};
}

std::string whenText(const Invocation& call, Date date) {
    return call.args.has("--time") ? clockText(date, now()) : ago(date, now());
}

std::string row(const Invocation& call, const SnapshotMeta& meta, const std::string& after) {
    return logLine(meta, whenText(call, meta.created), after, call.look()) + "\n";
}

void logOfAll(Invocation& call, const Project& project, std::size_t most) {
    const bool changed = call.args.has("--changed");
    const History history = call.store().history(project);
    // Reading the records takes a while too, so the comparison runs meanwhile. Should they be unreadable, that is
    // told when it has come to its end.
    const bool compares = most > 0 && (changed || !call.json());
    const auto newest = compares ? history.newestSeq() : std::nullopt;
    auto soFar = newest ? countsSoFar(call.engine(), project, *newest) : CountsSoFar();
    std::vector<UnreadRecord> unread;
    auto snapshots = history.snapshots(unread);
    if (call.json()) call.warnOfUnread(unread);
    std::reverse(snapshots.begin(), snapshots.end());
    if (compares && !snapshots.empty() && snapshots.front().seq != newest) { // one came or went meanwhile
        soFar = {};                                                          // waits for the end of the other one
        soFar = countsSoFar(call.engine(), project, snapshots.front().seq);
    }
    nlohmann::json list = nlohmann::json::array();
    auto lost = unread.rbegin();
    const auto tellLost = [&](std::int64_t above) {
        for (; !call.json() && lost != unread.rend() && lost->seq > above && most > 0; ++lost, --most)
            call.print(logLine(*lost, call.look()) + "\n");
    };
    const SnapshotMeta* newer = nullptr;
    for (const SnapshotMeta& meta : snapshots) {
        tellLost(meta.seq);
        if (most == 0) break;
        After after;
        if (newer != nullptr)
            after = changesAfter(meta, *newer, unread);
        else if (compares)
            after = changesSoFar(call, soFar, meta.seq);
        newer = &meta;
        if (changed && after.isNothing()) continue;
        --most;
        if (call.json())
            list.push_back(toJson(meta));
        else
            call.print(row(call, meta, after.text));
    }
    tellLost(-1);
    if (call.json()) call.printJson(list);
}

void warnOrRefuse(Invocation& call, const PathTrail& trail, const std::string& path) {
    call.warn(trail.warnings);
    if (trail.known) return;
    throw TidewrackError::refused("No snapshot has " + path + ". To look for a part of its name, run: tidewrack find " +
                                  shellWord(lastComponent(path)));
}

std::string changesText(const Changes& changes) {
    const auto counts = changes.fileCounts();
    return counts.sum() == 0 ? "folders alone" : countsText(counts);
}

// The rows after which something at or below the path changed, with what changed there.
void logOfPath(Invocation& call, const Project& project, const std::string& path, std::size_t most) {
    std::vector<UnreadRecord> unread;
    const auto records = call.store().history(project).snapshots(unread);
    call.warnOfUnread(unread);
    nlohmann::json list = nlohmann::json::array();
    std::size_t listed = 0;
    const auto show = [&](const PathStep& step) {
        const SnapshotMeta& meta = records[step.before];
        if (call.json()) {
            list.push_back(toJson(meta));
            if (step.renamedFrom) list.back()["renamedFrom"] = repairedUtf8(*step.renamedFrom);
        } else {
            const std::string after =
                step.renamedFrom ? "renamed from " + call.shown(*step.renamedFrom) : changesText(step.changes);
            call.print(row(call, meta, after + (step.shownIn == 0 ? " so far" : "")));
            if (call.args.has("--patch") && !step.renamedFrom)
                writePatch(call.store(), project, step.sides, step.changes, call.look(),
                           [&](const std::string& section) { call.print(section); });
        }
        return ++listed < most;
    };
    const PathTrail trail = most == 0 ? PathTrail{true, {}} : followPath(call.engine(), project, records, path, show);
    warnOrRefuse(call, trail, path);
    if (call.json())
        call.printJson(list);
    else if (listed == 0 && most > 0)
        call.print("Nothing changed there in this history.\n");
}

void printTurns(Invocation& call, const Project& project, const Timeline& timeline, std::vector<TimelineRow> rows) {
    addElsewhere(call.store(), project, timeline, rows);
    if (call.json())
        call.printJson(timelineJson(rows));
    else
        call.print(timelineText(rows, false, now(), call.look()));
}

void turnsOfAll(Invocation& call, const Project& project, std::size_t most) {
    const TurnUndo undo(call.engine(), project);
    call.warnOfUnread(undo.unread());
    std::vector<TimelineRow> rows;
    for (const TimelineRow& row : undo.timeline().rows) {
        if (rows.size() >= most) break;
        if (!call.args.has("--changed") || undo.hasChanges(row)) rows.push_back(row);
    }
    countAll(call, undo, rows);
    printTurns(call, project, undo.timeline(), std::move(rows));
}

// The rows in which a step changed something, as far as that can be told; none: all that were at work.
std::set<const TimelineRow*> rowsOf(const TurnUndo& undo, const PathStep& step) {
    constexpr std::size_t mostLookedAt = 100;
    std::set<const TimelineRow*> rows;
    const std::vector<std::string> paths = step.changes.all();
    if (step.shownIn == 0 || paths.size() > mostLookedAt) return rows;
    for (const std::string& path : paths)
        for (const TimelineRow* row : undo.timeline().rowsThatLedTo(step.shownIn, path, undo.records(), undo.edits()))
            rows.insert(row);
    return rows;
}

// The rows of the timeline in which something at or below the path changed, with what changed there.
void turnsOfPath(Invocation& call, const Project& project, const std::string& path, std::size_t most) {
    const TurnUndo undo(call.engine(), project);
    call.warnOfUnread(undo.unread());
    std::vector<TimelineRow> rows = undo.timeline().rows;
    for (TimelineRow& row : rows) {
        row.counts = Changes::Counts();
        row.foldersAlone = false;
    }
    const auto add = [&](const PathStep& step) {
        const auto whose = rowsOf(undo, step);
        for (TimelineRow& row : rows) {
            const TimelineRow* told = &undo.timeline().rows[static_cast<std::size_t>(&row - rows.data())];
            if (!whose.empty() && !whose.contains(told)) continue; // another turn was at work then
            for (const Stretch& stretch : row.stretches) {
                const bool open = row.isRunning() && &stretch == &row.stretches.back();
                if (step.shownIn == 0 ? !open : stretch.from >= step.shownIn || (!open && step.shownIn > stretch.to))
                    continue;
                const auto more = step.changes.fileCounts();
                row.foldersAlone = true; // where no file is counted
                row.counts = {row.counts->added + more.added, row.counts->modified + more.modified,
                              row.counts->deleted + more.deleted};
            }
        }
        return true;
    };
    warnOrRefuse(call, followPath(call.engine(), project, undo.records(), path, add), path);
    for (TimelineRow& row : rows) row.foldersAlone = row.foldersAlone && row.counts->sum() == 0;
    std::erase_if(rows, [](const TimelineRow& row) { return row.counts->sum() == 0 && !row.foldersAlone; });
    rows.resize(std::min(rows.size(), most));
    printTurns(call, project, undo.timeline(), std::move(rows));
}

} // namespace

std::size_t mostListed(const Args& args) {
    const auto text = args.value("-n");
    if (!text) return 20;
    const auto number = parseSeq(*text);
    if (!number) throw CliError("-n must be a whole number, 0 or more, got " + *text);
    return static_cast<std::size_t>(*number);
}

int log(Invocation& call) {
    const std::size_t most = mostListed(call.args);
    const auto word = call.args.word(0);
    const bool turns = call.args.has("--turns");
    if (word && word->empty()) throw CliError("missing path");
    if (call.args.positional.size() > 1)
        throw CliError("log takes one path, got " + call.args.positional[1] + " as well");
    if (call.args.has("--patch") && call.json()) throw CliError("a patch is no JSON: give --patch or --json");
    if (call.args.has("--patch") && (!word || turns)) throw CliError("--patch goes with a path, and not with --turns");
    const Project project = call.project();
    const std::string path = word ? Engine::relative(project, call.absolute(*word)) : "";
    call.page();
    if (word)
        turns ? turnsOfPath(call, project, path, most) : logOfPath(call, project, path, most);
    else
        turns ? turnsOfAll(call, project, most) : logOfAll(call, project, most);
    return 0;
}

} // namespace tidewrack::commands
