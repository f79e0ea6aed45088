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
    bool ignored = false; // a folder that git ignores, or what its owner leaves out
    std::string version;  // of a listed file or link: nodes with one version have one kept content

    [[nodiscard]] bool isFolder() const { return kind == 'd'; }
    [[nodiscard]] bool leftOutFile() const { return ignored && !isFolder(); }
    [[nodiscard]] bool notKept() const { return version.starts_with("big") || leftOutFile(); }
    [[nodiscard]] bool sameAttributes(const Node& other) const;
    [[nodiscard]] bool isCopy(const Node& other) const; // another file with the same content and time
};

using Tree = std::map<std::string, Node>; // by path relative to the root

[[nodiscard]] const Node* find(const Tree& tree, const std::string& path);
[[nodiscard]] std::string parentPath(const std::string& path); // empty for a path of one component
[[nodiscard]] bool hasBelow(const Tree& tree, const std::string& folder);

[[nodiscard]] bool hasAtOrAbove(const Paths& paths, std::string at);
[[nodiscard]] bool hasAtOrBelow(const Paths& paths, const std::string& at);

[[nodiscard]] Node readNode(const std::string& path);
// Everything below `root`. Not listed are excluded names, nested projects and what is in folders that are ignored.
[[nodiscard]] Tree readTree(const std::string& root, const Paths& nested);
[[nodiscard]] bool ignoresBuildFolders(const std::string& root);

[[nodiscard]] bool isOther(const Node& older, const Node& newer);
[[nodiscard]] bool leavesOut(const Tree& tree, const std::string& path); // by itself as a file, or with a folder
[[nodiscard]] bool rulesLeaveOut(const std::string& root, const std::string& path); // the project's own, as it is now
// Of listed nodes; `all`: those that one of them leaves out as well.
[[nodiscard]] Changes changesBetween(const Tree& older, const Tree& newer, bool all = false);
[[nodiscard]] bool listTheSame(const Tree& older, const Tree& newer); // of nodes and folders' modes

} // namespace tidewrack::testing
