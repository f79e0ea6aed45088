#pragma once
// What the commands show as JSON. Paths and labels are repaired to UTF-8.

#include "Engine/Engine.hpp"

#include <nlohmann/json_fwd.hpp>

#include <optional>

namespace tidewrack {

[[nodiscard]] nlohmann::json changesJson(const Changes& changes);
[[nodiscard]] nlohmann::json snapshotJson(const SnapshotResult& result);
[[nodiscard]] nlohmann::json restoreJson(const RestoreResult& result);
// What a dry run of a restore or undo found.
[[nodiscard]] nlohmann::json planJson(const RestoreResult& result);
[[nodiscard]] nlohmann::json pruneJson(const PruneResult& result, bool dryRun);
[[nodiscard]] nlohmann::json projectJson(const Project& project, std::size_t snapshots,
                                         const std::optional<SnapshotMeta>& latest);

} // namespace tidewrack
