#pragma once
// The differences between two listings, line by line, as one patch.

#include "Changes/Patch.hpp"
#include "Engine/Engine.hpp"
#include "Output.hpp"

#include <functional>
#include <string>

namespace tidewrack {

// What a listing's entry is as a side of a patch; none for a folder, and where there is no entry.
[[nodiscard]] std::optional<PatchSide> sideOf(const Store& store, const Project& project, const Entry* entry);

// Hands the sections of the patch for `changes`, which are those between the sides or some of them, to `write`, one per
// changed file or link, by path; nothing for no changes.
void writePatch(const Store& store, const Project& project, const Engine::Sides& sides, const Changes& changes,
                const Look& look, const std::function<void(const std::string&)>& write);

} // namespace tidewrack
