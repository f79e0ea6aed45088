// An old state somewhere else.

#include "Engine/Export.hpp"

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Reports/OutcomeTexts.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack::commands {

namespace {

constexpr int incomplete = 3; // the exit status when some of the snapshot is missing

nlohmann::json exportJson(const ExportResult& result, std::int64_t seq, const std::string& folder) {
    nlohmann::json missing = nlohmann::json::array();
    for (const PathOutcome& each : result.missing)
        missing.push_back(
            {{"path", repairedUtf8(each.path)}, {"reason", repairedUtf8(reasonText(each.obstacle, seq))}});
    nlohmann::json leftOut = nlohmann::json::array();
    for (const std::string& path : result.leftOut) leftOut.push_back(repairedUtf8(path));
    return {{"version", 1},          {"seq", seq},         {"folder", repairedUtf8(folder)},
            {"files", result.files}, {"missing", missing}, {"leftOut", leftOut}};
}

} // namespace

int exportSnapshot(Invocation& call) {
    const SnapshotWord word = call.snapshotWord(0, "snapshot");
    const auto folder = call.args.word(1);
    if (!folder || folder->empty()) throw CliError("missing folder, or - for a tar archive on standard output");
    const bool tar = *folder == "-" && call.args.plainFrom > 1;
    if (tar && call.json()) throw CliError("--json goes with a folder only: the archive takes standard output");
    if (tar && call.look().terminal)
        throw CliError("an archive is nothing for a terminal; redirect it, as in: tidewrack export 12 - >old.tar");
    const Project project = call.project();
    const auto paths = call.relativePaths(project, 2);
    const std::int64_t seq = call.number(project, word);
    const auto write = [&](std::string_view bytes) {
        call.print(bytes);
        return call.around.out.error() == 0;
    };
    const std::string target = tar ? "" : call.absolute(*folder);
    const ExportResult result = tar ? exportAsTar(call.engine(), project, seq, paths, write)
                                    : exportToFolder(call.engine(), project, seq, paths, target);
    if (call.json()) {
        call.printJson(exportJson(result, seq, target));
    } else {
        if (!tar)
            call.print("Exported " + filesText(result.files) + " of #" + std::to_string(seq) + " to " +
                       call.shown(*folder) + ".\n");
        std::vector<std::string> warnings;
        for (const PathOutcome& each : result.missing)
            warnings.push_back("couldn't export " + each.path + ": " + reasonText(each.obstacle, seq));
        call.warn(warnings);
        for (const std::string& path : result.leftOut)
            call.around.err.line(call.around.err.shown(path) + " is left out: it is ignored");
    }
    return result.missing.empty() ? 0 : incomplete;
}

} // namespace tidewrack::commands
