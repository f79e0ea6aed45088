#include "Reports/StatReport.hpp"

#include "Changes/LineDiff.hpp"
#include "Engine/SameContent.hpp"
#include "Reports/PatchReport.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack {

namespace {

bool isTouchedOnly(const Store& store, const Project& project, const Entry& older, const Entry& newer) {
    if (older.kind != newer.kind || older.mode != newer.mode || older.size != newer.size) return false;
    const auto before = sideOf(store, project, &older);
    const auto after = sideOf(store, project, &newer);
    if (!before || !after || !before->content || !after->content) return false;
    if (older.kind == EntryKind::link) return before->content == after->content;
    return sameContent(*before->content, *after->content);
}

std::string lineCounts(std::size_t added, std::size_t removed) {
    return "+" + std::to_string(added) + " -" + std::to_string(removed);
}

void measure(const std::optional<PatchSide>& before, const std::optional<PatchSide>& after, FileStat& stat) {
    for (const auto* side : {&before, &after}) {
        if (*side && (*side)->kind == PatchSide::Kind::link)
            stat.note = "link";
        else if (*side && !(*side)->content)
            stat.note = "not kept: " + (*side)->notKeptReason;
        if (!stat.note.empty()) return;
    }
    const auto result =
        LineDiff::compare(before ? before->content : std::nullopt, after ? after->content : std::nullopt);
    switch (result.kind) {
    case LineDiff::Result::Kind::binary: stat.note = "binary"; return;
    case LineDiff::Result::Kind::tooLarge: stat.note = "too large to compare"; return;
    case LineDiff::Result::Kind::text:
    case LineDiff::Result::Kind::unchanged: break;
    }
    stat.added = result.added;
    stat.removed = result.removed;
}

const char* mark(FileChange::Status status) {
    switch (status) {
    case FileChange::Status::added: return "+ ";
    case FileChange::Status::modified: return "~ ";
    case FileChange::Status::deleted: return "- ";
    }
    return "";
}

const char* name(FileChange::Status status) {
    switch (status) {
    case FileChange::Status::added: return "added";
    case FileChange::Status::modified: return "modified";
    case FileChange::Status::deleted: return "deleted";
    }
    return "";
}

} // namespace

Changes withoutTouched(const Store& store, const Project& project, const Engine::Sides& sides, const Changes& changes) {
    Changes result = changes;
    std::erase_if(result.modified, [&](const std::string& path) {
        const Entry* older = sides.older.find(path);
        const Entry* newer = sides.newer.find(path);
        return older != nullptr && newer != nullptr && isTouchedOnly(store, project, *older, *newer);
    });
    return result;
}

std::vector<FileStat> fileStats(const Store& store, const Project& project, const Engine::Sides& sides,
                                const Changes& changes) {
    std::vector<FileStat> stats;
    for (const std::string& path : changes.all()) {
        const auto before = sideOf(store, project, sides.older.find(path));
        const auto after = sideOf(store, project, sides.newer.find(path));
        if (!before && !after) continue; // a folder
        using Status = FileChange::Status;
        FileStat stat{path, !before ? Status::added : !after ? Status::deleted : Status::modified, 0, 0, ""};
        measure(before, after, stat);
        stats.push_back(std::move(stat));
    }
    return stats;
}

std::string statText(const std::vector<FileStat>& stats, const Look& look) {
    if (stats.empty()) return "No changes.\n";
    std::string text;
    std::size_t added = 0;
    std::size_t removed = 0;
    for (const FileStat& stat : stats) {
        text += mark(stat.status) + look.shown(stat.path) + "  " +
                (stat.note.empty() ? lineCounts(stat.added, stat.removed) : stat.note) + "\n";
        added += stat.added;
        removed += stat.removed;
    }
    return text + filesText(stats.size()) + " changed, " + lineCounts(added, removed) + "\n";
}

nlohmann::json statJson(const std::vector<FileStat>& stats) {
    nlohmann::json list = nlohmann::json::array();
    for (const FileStat& stat : stats) {
        list.push_back({{"path", repairedUtf8(stat.path)},
                        {"status", name(stat.status)},
                        {"added", stat.added},
                        {"removed", stat.removed}});
        if (!stat.note.empty()) list.back()["note"] = repairedUtf8(stat.note);
    }
    return {{"version", 1}, {"files", list}};
}

} // namespace tidewrack
