#pragma once
// What a restore or undo tells of the paths that it left alone.

#include "Engine/Engine.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace tidewrack {

// One line for each, and for whatever else went wrong; not repaired to UTF-8.
[[nodiscard]] std::vector<std::string> warningTexts(const RestoreResult& result);

// Why a path is or would be left alone; `target`: the snapshot gone back to.
[[nodiscard]] std::string reasonText(const Obstacle& obstacle, std::int64_t target);

} // namespace tidewrack
