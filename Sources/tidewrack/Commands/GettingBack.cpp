// Putting back what a snapshot holds.

#include "Commands/Commands.hpp"
#include "Commands/Turns.hpp"
#include "Commands/UndoElsewhere.hpp"
#include "Commands/UnknownPaths.hpp"
#include "Commands/Vault.hpp"
#include "Engine/Spelling.hpp"
#include "Invocation.hpp"
#include "Platform/Volumes.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack::commands {

namespace {

// The words from the second on as absolute paths; none: the whole folder.
std::optional<std::vector<std::string>> chosenPaths(const Invocation& call) {
    std::optional<std::vector<std::string>> paths;
    for (std::size_t i = 1; i < call.args.positional.size(); ++i) {
        if (!paths) paths.emplace();
        // An unset variable of a script must not mean the whole folder.
        if (call.args.positional[i].empty()) throw CliError("missing path");
        paths->push_back(call.absolute(call.args.positional[i]));
    }
    return paths;
}

void hint(Invocation& call, const std::vector<SnapshotMeta>& snapshots, std::int64_t turn) {
    // Whoever meant the changes that led to a snapshot needs the number before it.
    const auto here = std::lower_bound(snapshots.begin(), snapshots.end(), turn,
                                       [](const SnapshotMeta& meta, std::int64_t seq) { return meta.seq < seq; });
    if (here == snapshots.begin()) return;
    call.print("To undo the changes made before #" + std::to_string(turn) + ", run: tidewrack undo " +
               std::to_string(std::prev(here)->seq) + "\n");
}

Engine::Acting acting(const Invocation& call) {
    return call.args.has("--dry-run") ? Engine::Acting::dryRun : Engine::Acting::forReal;
}

void printRestored(Invocation& call, const RestoreResult& result) {
    const bool dry = call.args.has("--dry-run");
    if (call.json())
        call.printJson(dry ? planJson(result) : restoreJson(result));
    else
        call.print(dry ? planText(result, call.look()) : restoreText(result, call.look()));
    if (dry) call.warn(result.safetyWarnings);
}

// Throws where a path is in none of the snapshots, nor in the folder: then it was written wrong, and doing the rest
// would leave the impression that all was done.
void refuseUnknown(Invocation& call, const Project& project, const std::vector<std::int64_t>& seqs,
                   const std::vector<std::string>& paths) {
    std::vector<Manifest> manifests;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const std::string relative = Engine::relative(project, paths[i]);
        if (relative.empty() || exists(joined(project.root, relative))) continue;
        const History history = call.store().history(project);
        while (manifests.size() < seqs.size())
            manifests.push_back(history.manifest(history.snapshot(seqs[manifests.size()])));
        const auto lists = [&](const Manifest& manifest) {
            const auto names =
                volumeIgnoresCase(project.root) ? asListed({relative}, {&manifest}) : std::vector{relative};
            return std::any_of(names.begin(), names.end(),
                               [&](const std::string& name) { return manifest.lists(name); });
        };
        if (std::any_of(manifests.begin(), manifests.end(), lists)) continue;
        const std::string& word = call.args.positional[i + 1];
        std::string where = (seqs.size() == 1 ? "snapshot #" : "snapshots #") + std::to_string(seqs.front());
        if (seqs.size() > 1) where += " and #" + std::to_string(seqs.back());
        throw CliError(word + " is neither in " + where + " nor in the folder" +
                       adviceOn(call, project, manifests.front(), word));
    }
}

// The snapshots that `undo N` compares, where the second one is not the folder as it is.
std::vector<std::int64_t> sidesOf(const History& history, std::int64_t turn) {
    std::vector<std::int64_t> sides{turn};
    const auto seqs = history.seqs();
    if (const auto next = std::upper_bound(seqs.begin(), seqs.end(), turn); next != seqs.end()) sides.push_back(*next);
    return sides;
}

} // namespace

int restore(Invocation& call) {
    const SnapshotWord to = call.snapshotWord(0, "snapshot");
    const auto paths = chosenPaths(call);
    const Project project = call.project();
    const std::int64_t seq = call.number(project, to);
    refuseGone(project, std::to_string(seq));
    if (paths) refuseUnknown(call, project, {seq}, *paths);
    clearAfterVault(call);
    printRestored(call, call.engine().restore(project, seq, paths, !call.args.has("--keep-new"), acting(call)));
    return 0;
}

int undo(Invocation& call) {
    if (isUndoOfTurns(call.args)) return undoTurns(call);
    for (const char* option : {"--force", "--keep-later", "--here", "--vault", "--hunk"})
        if (call.args.has(option) || call.args.value(option))
            throw CliError(std::string(option) + " goes with --last, --turn, --session, --session-of or A..B");
    if (call.args.positional.empty() && !call.args.has("--dry-run") && canAsk(call)) return undoAsking(call);
    const SnapshotWord word = call.snapshotWord(0, "snapshot");
    if (word.kind != SnapshotWord::Kind::number)
        throw CliError("undo takes the number of a snapshot, not " + *call.args.word(0) +
                       ": it takes back what came between that one and the next. `tidewrack undo --last` takes back "
                       "the newest turn, `tidewrack timeline` lists them.");
    const std::int64_t turn = word.number;
    const auto paths = chosenPaths(call);
    const Project project = call.project();
    refuseGone(project, std::to_string(turn));
    if (paths) refuseUnknown(call, project, sidesOf(call.store().history(project), turn), *paths);
    clearAfterVault(call);
    const RestoreResult result = call.engine().undo(project, turn, paths, acting(call));
    const bool idle = result.nothingInScope;
    if (call.json() || !idle)
        printRestored(call, result);
    else
        call.print("Nothing changed after #" + std::to_string(turn) + (paths ? " there" : "") +
                   ", so there's nothing to undo.\n" + warningsText(result, call.look()));
    if (call.json()) return 0;
    try {
        if (!hintAtTurn(call, project, turn, idle) && !paths && (idle || result.prunedUpTo))
            hint(call, call.store().history(project).snapshots(), turn);
    } catch (const std::exception&) { // what was asked for is done; a damaged record costs a hint
    }
    return 0;
}

} // namespace tidewrack::commands
