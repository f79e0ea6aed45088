// Taking snapshots and looking at what they hold.

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Platform/Descriptor.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/PatchReport.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <fcntl.h>

#include <future>

namespace tidewrack::commands {

namespace {

// "-n", 20 when it is not given.
std::size_t mostListed(const Args& args) {
    const auto text = args.value("-n");
    if (!text) return 20;
    const auto number = parseSeq(*text);
    if (!number) throw CliError("-n must be a whole number, 0 or more, got " + *text);
    return static_cast<std::size_t>(*number);
}

using CountsSoFar = std::future<Changes::Counts>;

CountsSoFar countsSoFar(const Engine& engine, const Project& project, std::int64_t seq) {
    return std::async(std::launch::async | std::launch::deferred, // deferred where no thread is to be had
                      [&engine, &project, seq] { return engine.diff(project, seq, std::nullopt).fileCounts(); });
}

// The older snapshots are worth listing even when the newest cannot be compared with the folder.
std::string changesSoFar(Invocation& call, CountsSoFar& soFar, std::int64_t seq) {
    try {
        const auto counts = soFar.get();
        return counts.sum() == 0 ? "no changes yet" : countsText(counts) + " so far";
    } catch (const TidewrackError& error) {
        call.warn({"can't tell what changed since #" + std::to_string(seq) + ": " + error.what()});
        return "unknown";
    }
}

// `place` is where the content would be kept; why it is not there is told by its name.
std::string notKeptText(const Store& store, const Project& project, std::int64_t seq, const std::string& place,
                        const std::string& shown) {
    Entry entry;
    entry.blob = std::string_view(place).substr(store.history(project).blobPath("").size());
    return "the content of " + repairedUtf8(shown) + " wasn't kept in snapshot #" + std::to_string(seq) + ": " +
           entry.notKeptReason().value_or("it is missing from the store");
}

} // namespace

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
    const Project project = call.project();
    // Reading the records takes a while too, so the comparison runs meanwhile. Should they be unreadable, that is
    // told when it has come to its end.
    const History history = call.store().history(project);
    const auto newest = call.json() || most == 0 ? std::nullopt : history.newestSeq();
    auto soFar = newest ? countsSoFar(call.engine(), project, *newest) : CountsSoFar();
    auto snapshots = history.snapshots();
    std::reverse(snapshots.begin(), snapshots.end());
    if (snapshots.size() > most) snapshots.resize(most);
    if (call.json()) {
        nlohmann::json list = nlohmann::json::array();
        for (const SnapshotMeta& meta : snapshots) list.push_back(toJson(meta));
        call.printJson(list);
        return 0;
    }
    if (!snapshots.empty() && snapshots.front().seq != newest) { // one came or went meanwhile
        soFar = {};                                              // waits for the end of the other comparison
        soFar = countsSoFar(call.engine(), project, snapshots.front().seq);
    }
    const SnapshotMeta* newer = nullptr;
    for (const SnapshotMeta& meta : snapshots) {
        std::string after;
        if (newer == nullptr) {
            after = changesSoFar(call, soFar, meta.seq);
        } else {
            after = countsText({newer->added, newer->modified, newer->deleted});
        }
        call.print(logLine(meta, after, now()) + "\n");
        newer = &meta;
    }
    return 0;
}

int diff(Invocation& call) {
    const std::int64_t from = call.args.number(0, "snapshot");
    const auto to = call.args.word(1) ? std::optional(call.args.number(1, "second snapshot")) : std::nullopt;
    const Project project = call.project();
    if (call.args.has("--patch")) {
        writePatch(call.store(), project, call.engine().sides(project, from, to),
                   call.colour() ? Colours::on : Colours::off,
                   [&call](const std::string& section) { call.print(section); });
        return 0;
    }
    const Changes changes = call.engine().diff(project, from, to);
    if (call.json())
        call.printJson(changesJson(changes));
    else
        call.print(changesText(changes, call.colour()));
    return 0;
}

int cat(Invocation& call) {
    const std::int64_t seq = call.args.number(0, "snapshot");
    const auto path = call.args.word(1);
    if (!path) throw CliError("missing path");
    const Project project = call.project();
    const std::string relative = Engine::relative(project, call.absolute(*path));
    const auto content = call.engine().contentPath(project, seq, relative);
    if (!content) throw CliError(repairedUtf8(*path) + " isn't in snapshot #" + std::to_string(seq));
    const Descriptor file(::open(content->c_str(), O_RDONLY | O_CLOEXEC));
    if (!file && errno != ENOENT) throw TidewrackError::io("read", *content, errno);
    if (!file) throw CliError(notKeptText(call.store(), project, seq, *content, *path));
    std::string bytes(1 << 16, '\0');
    while (true) {
        const ssize_t count = ::read(file.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw TidewrackError::io("read", *content, errno);
        if (count == 0) return 0;
        call.around.out.write(std::string_view(bytes).substr(0, static_cast<std::size_t>(count)));
    }
}

} // namespace tidewrack::commands
