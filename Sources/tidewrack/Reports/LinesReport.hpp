#pragma once
// What changed in each file, line by line, as JSON: what the page draws, and what hunks are counted by.

#include "Changes/Changes.hpp"
#include "Engine/Engine.hpp"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>

namespace tidewrack {

// One "changed file" of docs/json.md for each file or link of `changes`, which are those between the sides or some of
// them, by path. The sides are those of `from` and `to`, none being now.
[[nodiscard]] nlohmann::json linesJson(const Store& store, const Project& project, const Engine::Sides& sides,
                                       const Changes& changes, std::int64_t from, std::optional<std::int64_t> to);

} // namespace tidewrack
