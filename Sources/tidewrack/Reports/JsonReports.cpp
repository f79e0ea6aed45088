#include "Reports/JsonReports.hpp"

#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

namespace {

nlohmann::json repairedList(const auto& texts) {
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& text : texts) list.push_back(repairedUtf8(text));
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
    object["warnings"] = repairedList(result.warnings);
    return object;
}

nlohmann::json restoreJson(const RestoreResult& result) {
    return {{"safety", toJson(result.safety)},
            {"restored", repairedList(result.restored)},
            {"removed", repairedList(result.removed)},
            {"folders", repairedList(result.folders)},
            {"warnings", repairedList(result.warnings)}};
}

nlohmann::json pruneJson(const PruneResult& result, bool dryRun) {
    return {{"dryRun", dryRun}, {"removedSnapshots", result.removedSnapshots}, {"removedBlobs", result.removedBlobs}};
}

nlohmann::json projectJson(const Project& project, std::size_t snapshots, const std::optional<SnapshotMeta>& latest) {
    nlohmann::json object = toJson(project);
    object["snapshots"] = snapshots;
    if (latest) object["latest"] = toJson(*latest);
    return object;
}

} // namespace tidewrack
