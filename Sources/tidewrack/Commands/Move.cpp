// A history follows its folder to another place.

#include "Commands/Commands.hpp"
#include "Engine/LostProject.hpp"
#include "Invocation.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack::commands {

namespace {

struct Move {
    Project project;
    std::string root; // from then on
};

// The project, and those inside it that came along.
std::vector<Move> movesOf(Invocation& call, const std::string& from, const std::string& to) {
    std::vector<Move> moves;
    bool isTracked = false;
    for (const Project& project : call.store().registry().projects) {
        if (!isAtOrBelow(project.root, from)) continue;
        const bool isIt = project.root == from;
        isTracked = isTracked || isIt;
        const std::string root = isIt ? to : joined(to, pathBelow(project.root, from));
        if (isIt || (isFolder(root) && !exists(project.root))) moves.push_back({project, root});
    }
    if (!isTracked) throw TidewrackError::notTracked(from);
    // The folder's own goes last: until then the same words do what was not done before a sudden death.
    std::sort(moves.begin(), moves.end(), [](const Move& a, const Move& b) { return a.root.size() > b.root.size(); });
    return moves;
}

} // namespace

int move(Invocation& call) {
    const auto word = call.args.word(0);
    if (!word || word->empty()) throw CliError("missing path");
    const std::string from = Store::canonical(call.absolute(*word));
    const std::string to = Store::canonical(call.absolute(call.args.word(1).value_or(call.around.currentFolder)));
    const std::vector<Move> moves = movesOf(call, from, to);
    for (const Move& each : moves) refuseMove(call.store(), each.project, each.root);
    const bool dryRun = call.args.has("--dry-run");
    nlohmann::json list = nlohmann::json::array();
    for (const Move& each : moves) {
        const std::size_t count = call.store().history(each.project).seqs().size();
        if (!dryRun) call.store().move(each.project, each.root);
        list.push_back(
            {{"from", repairedUtf8(each.project.root)}, {"to", repairedUtf8(each.root)}, {"snapshots", count}});
        if (!call.json())
            call.print((dryRun ? "Would move the history of " : "Moved the history of ") +
                       call.shown(each.project.root) + " to " + call.shown(each.root) + ": " +
                       countText(static_cast<std::int64_t>(count), "snapshot") + "\n");
    }
    if (call.json()) call.printJson({{"version", 1}, {"dryRun", dryRun}, {"moved", list}});
    return 0;
}

} // namespace tidewrack::commands
