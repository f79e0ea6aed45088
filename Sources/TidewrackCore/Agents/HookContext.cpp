#include "Agents/HookContext.hpp"

#include "Engine/Tracking.hpp"
#include <utility>

namespace tidewrack {

void HookContext::loadProjectsForJudging() {
    try {
        loadProjects();
    } catch (const std::exception& error) {
        mayTrack_ = false;
        logError(error.what());
    }
}

std::optional<Project> HookContext::projectFor(const std::string& folder) {
    if (auto project = Store::projectContaining(folder, projects_)) return project;
    // Beginning to track takes a count of the whole repository and a full snapshot.
    if (!handler.autoTrack || !mayTrack_ || passed(share(2, 5))) return std::nullopt;
    const auto root = gitRoot(Store::canonical(folder));
    if (!root || isTooBroad(handler.store, *root) || untrackable_.contains(*root)) return std::nullopt;
    const auto start = std::chrono::steady_clock::now();
    try {
        projects_.push_back(track(handler.store, *root, false));
    } catch (const std::exception& error) {
        handler.log.append("-", "track", start, "didn't auto-track " + *root + ": " + error.what());
        untrackable_.insert(*root);
        return std::nullopt;
    }
    unjudged_.insert(*root);
    handler.log.append("-", "track", start, "auto-tracked " + *root);
    return projects_.back();
}

SnapshotRequest HookContext::request(const char* kind, std::string label, const Deadline& deadline) const {
    return {kind, std::move(label), std::string(rawValue(agent)), event.session, event.turn, deadline, &projects_};
}

std::string HookContext::noteOn(const SnapshotResult& result, const Project& project) {
    const std::string note = "#" + std::to_string(result.meta.seq) + " " + project.root;
    return result.late == 0 ? note : note + ", " + std::to_string(result.late) + " skipped";
}

std::string noteOn(const VaultEntry& entry) {
    return "vault " + entry.id + ": " + std::to_string(entry.items.size()) + " saved, " +
           std::to_string(entry.skipped.size()) + " skipped";
}

} // namespace tidewrack
