#include "Reports/MirrorReport.hpp"

#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

namespace {

nlohmann::json repairedList(const std::vector<std::string>& texts) {
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& text : texts) list.push_back(repairedUtf8(text));
    return list;
}

} // namespace

std::string mirrorText(const MirrorResult& result, bool dryRun, const Look& look) {
    const MirrorCounts& counts = result.counts;
    std::string text = (dryRun ? "Would mirror " : "Mirrored ") + countText(result.projects, "project") + " with " +
                       countText(result.snapshots, "snapshot") + " to " + look.shown(result.folder) + ".\n";
    text += "  Added: " + countText(result.addedSnapshots, "snapshot") + ", " + std::to_string(result.addedEntries) +
            " of the vault, " + countText(counts.files, "file") + " (" + bytesText(counts.bytes) +
            (counts.linked > 0 ? ", " + std::to_string(counts.linked) + " as links" : "") + ")\n";
    if (counts.removed > 0 || result.removedSnapshots > 0)
        text += "  Removed: " + countText(result.removedSnapshots, "snapshot") + ", " +
                std::to_string(result.removedEntries) + " of the vault, " + countText(counts.removed, "file") + "\n";
    return text;
}

nlohmann::json mirrorJson(const MirrorResult& result, bool dryRun) {
    const MirrorCounts& counts = result.counts;
    return {{"version", 1},
            {"dryRun", dryRun},
            {"folder", repairedUtf8(result.folder)},
            {"projects", result.projects},
            {"snapshots", result.snapshots},
            {"addedSnapshots", result.addedSnapshots},
            {"removedSnapshots", result.removedSnapshots},
            {"addedEntries", result.addedEntries},
            {"removedEntries", result.removedEntries},
            {"addedFiles", counts.files},
            {"linkedFiles", counts.linked},
            {"addedBytes", counts.bytes},
            {"removedFiles", counts.removed},
            {"warnings", repairedList(result.warnings)},
            {"failures", repairedList(result.failures)}};
}

} // namespace tidewrack
