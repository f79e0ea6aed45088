// Putting back what a snapshot holds.

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/TextReports.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack::commands {

namespace {

// Whoever meant the changes that led to a snapshot needs the number before it.
void hintAtEarlier(Invocation& call, const Project& project, std::int64_t turn) {
    const auto seqs = call.store().history(project).seqs();
    const auto here = std::lower_bound(seqs.begin(), seqs.end(), turn);
    if (here == seqs.begin()) return;
    call.print("To undo the changes made before #" + std::to_string(turn) + ", run: tidewrack undo " +
               std::to_string(*std::prev(here)) + "\n");
}

void printRestored(Invocation& call, const RestoreResult& result) {
    if (call.json())
        call.printJson(restoreJson(result));
    else
        call.print(restoreText(result));
}

} // namespace

int restore(Invocation& call) {
    const std::int64_t to = call.args.number(0, "snapshot");
    std::optional<std::vector<std::string>> paths;
    for (std::size_t i = 1; i < call.args.positional.size(); ++i) {
        if (!paths) paths.emplace();
        // An unset variable of a script must not mean the whole folder.
        if (call.args.positional[i].empty()) throw CliError("missing path");
        paths->push_back(call.absolute(call.args.positional[i]));
    }
    printRestored(call, call.engine().restore(call.project(), to, paths, !call.args.has("--keep-new")));
    return 0;
}

int undo(Invocation& call) {
    const std::int64_t turn = call.args.number(0, "snapshot");
    const Project project = call.project();
    const RestoreResult result = call.engine().undo(project, turn);
    const bool idle = result.nothingInScope;
    if (call.json() || !idle)
        printRestored(call, result);
    else
        call.print("Nothing changed after #" + std::to_string(turn) + ", so there's nothing to undo.\n" +
                   warningsText(result));
    if (!call.json() && (idle || result.prunedUpTo)) hintAtEarlier(call, project, turn);
    return 0;
}

} // namespace tidewrack::commands
