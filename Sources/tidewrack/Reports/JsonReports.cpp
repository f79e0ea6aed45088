#include "Reports/JsonReports.hpp"

#include "Agents/SnapshotTexts.hpp"
#include "Reports/OutcomeTexts.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <set>
#include <string_view>

namespace tidewrack {

namespace {

nlohmann::json repairedList(const auto& texts) {
    nlohmann::json list = nlohmann::json::array();
    for (const std::string_view text : texts) list.push_back(repairedUtf8(text));
    return list;
}

} // namespace

nlohmann::json changesJson(const Changes& changes) {
    return {{"added", repairedList(changes.added)},
            {"modified", repairedList(changes.modified)},
            {"deleted", repairedList(changes.deleted)},
            {"folders", repairedList(changes.folders)}};
}

nlohmann::json snapshotJson(const SnapshotResult& result) {
    nlohmann::json object = toJson(result.meta);
    object["warnings"] = repairedList(warningTexts(result.warnings));
    return object;
}

nlohmann::json restoreJson(const RestoreResult& result) {
    using Action = PathOutcome::Action;
    std::set<std::string_view> folders;
    for (const PathOutcome& outcome : result.outcomes)
        if (outcome.kind == EntryKind::dir && (outcome.action == Action::restored || outcome.action == Action::removed))
            folders.insert(outcome.path);
    return {{"version", 1},
            {"safety", toJson(result.safety)},
            {"restored", repairedList(pathsOf(result.outcomes, Action::restored))},
            {"removed", repairedList(pathsOf(result.outcomes, Action::removed))},
            {"folders", repairedList(folders)},
            {"warnings", repairedList(warningTexts(result))}};
}

nlohmann::json planJson(const RestoreResult& result) {
    nlohmann::json object = restoreJson(result);
    object.erase("safety");
    object["dryRun"] = true;
    object["overwritten"] = repairedList(result.overwritten);
    return object;
}

nlohmann::json pruneJson(const PruneResult& result, bool dryRun) {
    return {{"version", 1},
            {"dryRun", dryRun},
            {"removedSnapshots", result.removedSnapshots},
            {"removedBlobs", result.removedBlobs}};
}

nlohmann::json projectJson(const Project& project, std::size_t snapshots, const std::optional<SnapshotMeta>& latest) {
    nlohmann::json object = toJson(project);
    object["snapshots"] = snapshots;
    if (latest) object["latest"] = toJson(*latest);
    return object;
}

} // namespace tidewrack
