#pragma once
// Makes sure that the parent folders of a path to be written are real folders, examining each once.

#include "Engine/FolderBelow.hpp"
#include "Engine/PathOutcome.hpp"

#include <set>
#include <string>
#include <string_view>

namespace tidewrack {

class ParentCache {
  public:
    // `project` must outlive the cache.
    explicit ParentCache(FolderBelow& project) : project_(project) {}

    // Creates missing parents of the project-relative `path`.
    [[nodiscard]] Obstacle prepare(std::string_view path);

    // The folders that prepare had to create.
    [[nodiscard]] const std::set<std::string, std::less<>>& created() const { return created_; }

  private:
    [[nodiscard]] Obstacle examine(std::string_view parent);

    FolderBelow& project_;
    std::set<std::string, std::less<>> known_; // real folders
    std::set<std::string, std::less<>> created_;
};

} // namespace tidewrack
