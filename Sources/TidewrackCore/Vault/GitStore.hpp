#pragma once
// Where git keeps its own things, found without running git.

#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

// Folders are canonical.
struct GitStore {
    std::string root;   // of the work tree, or the store itself where it has none
    std::string folder; // the store; of a linked work tree, what is its alone
    std::string common; // the store with branches, settings and objects

    // What tells which commits have names, had names and are staged, the smallest first: HEAD, settings, refs, ref
    // logs, index; of all linked work trees, or of none but this one. Those of them that are there.
    enum class WorkTrees { own, all };
    [[nodiscard]] std::vector<std::string> statePaths(WorkTrees which) const;
};

// The store that git would use in the folder, or the one at the absolute path `named`. A ".git" file is followed to the
// store that it names, a link in a store to nowhere.
[[nodiscard]] std::optional<GitStore> gitStoreFor(const std::string& folder, const std::string& named = {});

} // namespace tidewrack
