#pragma once
// How much room histories may take: which snapshots have to go for that before their time.

#include "Engine/Engine.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace tidewrack {

// The room that these histories take, and the vault.
[[nodiscard]] std::int64_t storeBytes(const Store& store, const std::vector<Project>& projects);

// The latest moment up to which the unpinned snapshots of all these projects have to go, oldest first, so that what the
// projects take comes down from `taken` to `cap`; none where no further one has to. Those of the last 48 hours stay,
// and the newest of each project does: where that is not enough, all others go.
[[nodiscard]] std::optional<Date> goesUpTo(const Engine& engine, const std::vector<Project>& projects,
                                           std::int64_t taken, std::int64_t cap, Date now);

} // namespace tidewrack
