// Taking snapshots and looking at what they hold.

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Platform/Descriptor.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/PatchReport.hpp"
#include "Reports/StatReport.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Errors.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <future>

namespace tidewrack::commands {

namespace {

struct SoFar {
    Changes::Counts counts;
    std::vector<std::string> warnings;
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

// The older snapshots are worth listing even when the newest cannot be compared with the folder.
std::string changesSoFar(Invocation& call, CountsSoFar& soFar, std::int64_t seq) {
    try {
        const auto [counts, warnings] = soFar.get();
        call.warn(warnings);
        return counts.sum() == 0 ? "no changes yet" : countsText(counts) + " so far";
    } catch (const TidewrackError& error) {
        call.warn({"can't tell what changed since #" + std::to_string(seq) + ": " + error.what()});
        return "unknown";
    }
}

std::vector<SnapshotMeta> newestFirst(std::vector<SnapshotMeta> snapshots, std::size_t most) {
    std::reverse(snapshots.begin(), snapshots.end());
    if (snapshots.size() > most) snapshots.resize(most);
    return snapshots;
}

nlohmann::json recordsJson(const std::vector<SnapshotMeta>& snapshots) {
    nlohmann::json list = nlohmann::json::array();
    for (const SnapshotMeta& meta : snapshots) list.push_back(toJson(meta));
    return list;
}

// What changed after `meta`, as the next newer record has it.
std::string changesAfter(const SnapshotMeta& meta, const SnapshotMeta& newer) {
    std::string counts = countsText({newer.added, newer.modified, newer.deleted});
    if (newer.seq == meta.seq + 1) return counts;
    // The record knows only what changed since the snapshot before it, which is gone.
    const std::string first = "#" + std::to_string(meta.seq + 1);
    const std::string last = newer.seq == meta.seq + 2 ? "" : "–#" + std::to_string(newer.seq - 1);
    return counts + " (without " + first + last + ", pruned)";
}

void logOfAll(Invocation& call, const Project& project, std::size_t most) {
    // Reading the records takes a while too, so the comparison runs meanwhile. Should they be unreadable, that is
    // told when it has come to its end.
    const auto newest = most == 0 ? std::nullopt : call.store().history(project).newestSeq();
    auto soFar = newest ? countsSoFar(call.engine(), project, *newest) : CountsSoFar();
    const auto snapshots = newestFirst(call.store().history(project).snapshots(), most);
    if (!snapshots.empty() && snapshots.front().seq != newest) { // one came or went meanwhile
        soFar = {};                                              // waits for the end of the other comparison
        soFar = countsSoFar(call.engine(), project, snapshots.front().seq);
    }
    const SnapshotMeta* newer = nullptr;
    for (const SnapshotMeta& meta : snapshots) {
        const std::string after = newer == nullptr ? changesSoFar(call, soFar, meta.seq) : changesAfter(meta, *newer);
        call.print(logLine(meta, after, now(), call.look()) + "\n");
        newer = &meta;
    }
}

// The rows after which something at or below the path changed, with what changed there.
void logOfPath(Invocation& call, const Project& project, const std::string& path, std::size_t most) {
    const auto snapshots = newestFirst(call.store().history(project).snapshots(), Command::anyNumber);
    std::vector<SnapshotMeta> listed;
    const SnapshotMeta* newer = nullptr;
    for (const SnapshotMeta& meta : snapshots) {
        if (listed.size() == most) break;
        const auto to = newer == nullptr ? std::nullopt : std::optional(newer->seq);
        const bool same = newer != nullptr && newer->manifestOf == meta.manifestOf;
        newer = &meta;
        if (same) continue; // the same listing
        std::vector<std::string> warnings;
        const auto counts = call.engine().diff(project, meta.seq, to, &warnings).within({path}).fileCounts();
        call.warn(warnings);
        if (counts.sum() == 0) continue;
        listed.push_back(meta);
        const std::string after = countsText(counts) + (to ? "" : " so far");
        if (!call.json()) call.print(logLine(meta, after, now(), call.look()) + "\n");
    }
    if (call.json()) call.printJson(recordsJson(listed));
}

// The words from `first` on as paths relative to the project's root.
std::vector<std::string> relativePaths(Invocation& call, const Project& project, std::size_t first) {
    std::vector<std::string> paths;
    for (std::size_t i = first; i < call.args.positional.size(); ++i) {
        if (call.args.positional[i].empty()) throw CliError("missing path"); // a script's unset variable
        paths.push_back(Engine::relative(project, call.absolute(call.args.positional[i])));
    }
    return paths;
}

void warnOfUnknown(Invocation& call, const Engine::Sides& sides, const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        const auto knows = [&](const Manifest& side) { return side.find(path) != nullptr || side.listsBelow(path); };
        if (!path.empty() && !knows(sides.older) && !knows(sides.newer)) call.warn({path + " is on neither side"});
    }
}

void printChanges(Invocation& call, const Changes& changes) {
    if (call.json())
        call.printJson(changesJson(changes));
    else
        call.print(changesText(changes, call.look()));
}

} // namespace

std::size_t mostListed(const Args& args) {
    const auto text = args.value("-n");
    if (!text) return 20;
    const auto number = parseSeq(*text);
    if (!number) throw CliError("-n must be a whole number, 0 or more, got " + *text);
    return static_cast<std::size_t>(*number);
}

int snap(Invocation& call) {
    const Project project = call.project();
    const SnapshotRequest request{call.args.value("--kind").value_or("manual"), call.args.value("--label"),
                                  call.args.value("--agent"), call.args.value("--session"), call.args.value("--turn")};
    const SnapshotResult result = call.engine().snapshot(project, request);
    const SnapshotMeta& meta = result.meta;
    if (call.json())
        call.printJson(snapshotJson(result));
    else
        call.print("#" + std::to_string(meta.seq) + "  " + countsText({meta.added, meta.modified, meta.deleted}) +
                   " since the previous snapshot  " + std::to_string(meta.files) + " files  " +
                   std::to_string(meta.durationMs) + " ms\n");
    call.warn(result.warnings);
    return 0;
}

int log(Invocation& call) {
    const std::size_t most = mostListed(call.args);
    const auto path = call.args.word(0);
    if (path && path->empty()) throw CliError("missing path");
    const Project project = call.project();
    call.page();
    if (path)
        logOfPath(call, project, Engine::relative(project, call.absolute(*path)), most);
    else if (call.json())
        call.printJson(recordsJson(newestFirst(call.store().history(project).snapshots(), most)));
    else
        logOfAll(call, project, most);
    return 0;
}

int diff(Invocation& call) {
    const Args& args = call.args;
    const SnapshotWord fromWord = call.snapshotWord(0, "snapshot");
    const bool hasSecond = args.positional.size() > 1 && args.plainFrom > 1;
    const auto toWord = hasSecond ? std::optional(call.snapshotWord(1, "second snapshot")) : std::nullopt;
    const Project project = call.project();
    const std::int64_t from = call.number(project, fromWord);
    const auto to = toWord ? std::optional(call.number(project, *toWord)) : std::nullopt;
    const auto paths = relativePaths(call, project, hasSecond ? 2 : 1);
    const bool patch = args.has("--patch");
    call.page();
    const bool stat = args.has("--stat") && !patch && !call.json();
    if (!patch && !stat && !args.has("--content") && paths.empty()) {
        std::vector<std::string> warnings;
        printChanges(call, call.engine().diff(project, from, to, &warnings));
        call.warn(warnings);
        return 0;
    }
    const Engine::Sides sides = call.engine().sides(project, from, to);
    Changes changes = Changes::between(sides.older, sides.newer);
    if (!paths.empty()) {
        changes = changes.within(paths);
        warnOfUnknown(call, sides, paths);
    }
    if (args.has("--content")) changes = withoutTouched(call.store(), project, sides, changes);
    if (patch)
        writePatch(call.store(), project, sides, changes, call.look(),
                   [&](const std::string& section) { call.print(section); });
    else if (stat)
        call.print(statText(call.store(), project, sides, changes, call.look()));
    else
        printChanges(call, changes);
    call.warn(sides.warnings);
    return 0;
}

} // namespace tidewrack::commands
