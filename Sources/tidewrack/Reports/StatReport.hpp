#pragma once
// How much changed in each file, and which files only look changed.

#include "Engine/Engine.hpp"
#include "Output.hpp"

#include <string>

namespace tidewrack {

// The changes without the files and links of which both sides hold the same: touched ones, and such that were written
// again. Only contents of one size are read.
[[nodiscard]] Changes withoutTouched(const Store& store, const Project& project, const Engine::Sides& sides,
                                     const Changes& changes);

// One line for each changed file, by path, with the lines added and removed, and their sums; "No changes." for none.
[[nodiscard]] std::string statText(const Store& store, const Project& project, const Engine::Sides& sides,
                                   const Changes& changes, const Look& look);

} // namespace tidewrack
