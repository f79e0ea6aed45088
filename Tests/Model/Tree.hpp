#pragma once
// A folder as plain system calls show it. What judges the history shares no listing or comparing code with it.

#include "Changes/Changes.hpp"

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace tidewrack::testing {

using Paths = std::set<std::string>;

struct Node {
    char kind = 'o'; // f file, l link, d folder, o anything else
    unsigned mode = 0;
    std::int64_t size = 0;
    std::int64_t mtime = 0;
    std::int64_t ctime = 0;
    std::uint64_t ino = 0;
    std::string text;     // content or destination
    bool listed = false;  // snapshots list it
    bool ignored = false; // a folder that git ignores
    std::string version;  // of a listed file or link: nodes with one version have one kept content

    [[nodiscard]] bool isFolder() const { return kind == 'd'; }
    [[nodiscard]] bool tooLarge() const { return version.starts_with("big"); }
    [[nodiscard]] bool sameAttributes(const Node& other) const;
};

using Tree = std::map<std::string, Node>; // by path relative to the root

[[nodiscard]] const Node* find(const Tree& tree, const std::string& path);
[[nodiscard]] std::string parentPath(const std::string& path); // empty for a path of one component
[[nodiscard]] bool hasBelow(const Tree& tree, const std::string& folder);

[[nodiscard]] Node readNode(const std::string& path);
// Everything below `root`. Not listed are excluded names, nested projects and what is in folders that git ignores.
[[nodiscard]] Tree readTree(const std::string& root, const Paths& nested);
[[nodiscard]] bool ignoresBuildFolders(const std::string& root);

[[nodiscard]] bool isOther(const Node& older, const Node& newer);
[[nodiscard]] Changes changesBetween(const Tree& older, const Tree& newer); // of listed nodes
[[nodiscard]] bool sameFolders(const Tree& older, const Tree& newer);       // of the folders that both have

} // namespace tidewrack::testing
