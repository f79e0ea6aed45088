#include "Engine/Caps.hpp"

#include "Engine/RetentionPlan.hpp"
#include "Engine/Usage.hpp"
#include "Platform/FileSpace.hpp"
#include "Support/Errors.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

// What a prune of the projects frees that takes all unpinned snapshots up to that moment.
std::int64_t freed(const Engine& engine, const std::vector<Project>& projects, std::optional<Date> upTo, Date now) {
    std::int64_t sum = 0;
    for (const Project& project : projects) {
        const History history = engine.store.history(project);
        const PruneResult pruned = engine.foreseePrune(project, now, upTo);
        for (const std::string& blob : pruned.contents) sum += takenSpace(history.blobPath(blob));
        for (const std::int64_t seq : pruned.removedSnapshots) sum += takenSpace(history.metaPath(seq));
        for (const std::int64_t seq : pruned.manifests) sum += takenSpace(history.manifestPath(seq));
    }
    return sum;
}

// When the snapshots were taken that may go, oldest first.
std::vector<Date> candidates(const Engine& engine, const std::vector<Project>& projects, Date now) {
    std::vector<Date> times;
    for (const Project& project : projects) {
        const std::vector<SnapshotMeta> snapshots = engine.store.history(project).snapshots();
        for (const SnapshotMeta& meta : snapshots)
            if (!meta.pinned && now - meta.created >= keepsAll && &meta != &snapshots.back())
                times.push_back(meta.created);
    }
    std::sort(times.begin(), times.end());
    return times;
}

} // namespace

std::int64_t storeBytes(const Store& store, const std::vector<Project>& projects) {
    std::int64_t sum = vaultUsage(store).space.taken;
    for (const Project& project : projects) sum += storedBytes(store.history(project));
    return sum;
}

std::optional<Date> goesUpTo(const Engine& engine, const std::vector<Project>& projects, std::int64_t taken,
                             std::int64_t cap, Date now) {
    const auto fits = [&](std::optional<Date> upTo) { return taken - freed(engine, projects, upTo, now) <= cap; };
    if (taken <= cap) return std::nullopt;
    const std::vector<Date> times = candidates(engine, projects, now);
    if (times.empty() || fits(std::nullopt)) return std::nullopt;
    // The more go, the more is freed.
    const auto enough = std::partition_point(times.begin(), times.end(), [&](Date upTo) { return !fits(upTo); });
    return enough == times.end() ? times.back() : *enough;
}

} // namespace tidewrack
