#pragma once
// How much changed in each file, and which files only look changed.

#include "Engine/Engine.hpp"
#include "Output.hpp"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace tidewrack {

// The changes without the files and links that were touched or written again with the same content and mode. Only
// contents of equal size are read.
[[nodiscard]] Changes withoutTouched(const Store& store, const Project& project, const Engine::Sides& sides,
                                     const Changes& changes);

struct FileStat {
    std::string path;
    FileChange::Status status = FileChange::Status::modified;
    std::size_t added = 0; // lines
    std::size_t removed = 0;
    std::string note; // why lines were not counted; empty when they were

    bool operator==(const FileStat&) const = default;
};

// How much changed in each file, by path.
[[nodiscard]] std::vector<FileStat> fileStats(const Store& store, const Project& project, const Engine::Sides& sides,
                                              const Changes& changes);
// One line for each, and their sums; "No changes." for none.
[[nodiscard]] std::string statText(const std::vector<FileStat>& stats, const Look& look);
[[nodiscard]] nlohmann::json statJson(const std::vector<FileStat>& stats);

} // namespace tidewrack
