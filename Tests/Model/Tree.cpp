#include "Model/Tree.hpp"

#include "Platform/Attributes.hpp"
#include "Support/Files.hpp"

#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace tidewrack::testing {

bool Node::sameAttributes(const Node& other) const {
    return kind == other.kind && mode == other.mode && size == other.size && mtime == other.mtime &&
           ctime == other.ctime && ino == other.ino;
}

bool Node::isCopy(const Node& other) const {
    return kind == 'f' && other.kind == 'f' && size == other.size && mtime == other.mtime && ino != other.ino &&
           text == other.text && !notKept();
}

const Node* find(const Tree& tree, const std::string& path) {
    const auto at = tree.find(path);
    return at == tree.end() ? nullptr : &at->second;
}

std::string parentPath(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool hasBelow(const Tree& tree, const std::string& folder) {
    const auto at = tree.lower_bound(folder + "/");
    return at != tree.end() && at->first.starts_with(folder + "/");
}

bool hasAtOrAbove(const Paths& paths, std::string at) {
    while (!at.empty() && !paths.contains(at)) at = parentPath(at);
    return !at.empty();
}

bool hasAtOrBelow(const Paths& paths, const std::string& at) {
    const auto below = paths.lower_bound(at + "/");
    return paths.contains(at) || (below != paths.end() && below->starts_with(at + "/"));
}

Node readNode(const std::string& path) {
    Attributes attributes;
    if (attributesAt(AT_FDCWD, path.c_str(), attributes) != 0) throw std::runtime_error("can't look at " + path);
    Node node;
    node.kind = "fldo"[static_cast<int>(attributes.kind)];
    node.mode = attributes.mode;
    node.size = attributes.size;
    node.mtime = attributes.mtime;
    node.ctime = attributes.ctime;
    node.ino = attributes.ino;
    if (node.kind == 'f' && readFile(path, node.text) != 0) throw std::runtime_error("can't read " + path);
    if (node.kind == 'l') node.text = std::filesystem::read_symlink(path).string();
    return node;
}

namespace {

// Of the rules that the random edits write.
bool isLeftOut(const std::string& name) {
    return name == "sub" || name.ends_with(".b");
}

bool hasRules(const std::string& root) {
    std::string rules;
    return readFile(root + "/.tidewrackignore", rules) == 0 && rules == "sub\n*.b\n";
}

struct Reader {
    const std::string& root;
    const Paths& nested;
    bool ignoring;
    bool leavingOut;
    Tree tree;

    void read(const std::string& folder, bool listed) {
        for (const std::string& name : listFolder(root + "/" + folder)) {
            const std::string path = folder.empty() ? name : folder + "/" + name;
            Node node = readNode(root + "/" + path);
            bool below = false;
            if (node.isFolder()) {
                node.listed = listed && name != ".git" && name != "node_modules" && !nested.contains(path);
                node.ignored = node.listed && ((ignoring && name == "build") || (leavingOut && isLeftOut(name)));
                below = node.listed && !node.ignored;
            } else {
                node.listed = listed && node.kind != 'o' && (node.kind == 'l' || name != ".DS_Store");
                node.ignored = node.listed && leavingOut && isLeftOut(name);
                if (node.ignored) node.version = "ign";
            }
            const bool folderHere = node.isFolder() && name != ".git"; // what git does there is its own business
            tree.emplace(path, std::move(node));
            if (folderHere) read(path, below);
        }
    }
};

} // namespace

bool ignoresBuildFolders(const std::string& root) {
    std::string rules;
    return exists(root + "/.git") && readFile(root + "/.gitignore", rules) == 0 && rules == "build/\n";
}

Tree readTree(const std::string& root, const Paths& nested) {
    Reader reader{root, nested, ignoresBuildFolders(root), hasRules(root), {}};
    reader.read("", true);
    return std::move(reader.tree);
}

bool rulesLeaveOut(const std::string& root, const std::string& path) {
    for (std::string at = path; !at.empty() && hasRules(root); at = parentPath(at))
        if (isLeftOut(at.substr(at.rfind('/') + 1))) return true; // from 0 where there is none
    return false;
}

bool isOther(const Node& older, const Node& newer) {
    if (older.isFolder() && newer.isFolder()) return false;
    return older.kind != newer.kind || older.mode != newer.mode || older.version != newer.version;
}

bool leavesOut(const Tree& tree, const std::string& path) {
    const Node* node = find(tree, path);
    if (node != nullptr && node->listed && !node->isFolder()) return node->ignored;
    for (std::string at = parentPath(path); !at.empty(); at = parentPath(at))
        if (const Node* folder = find(tree, at);
            folder != nullptr && folder->listed && folder->isFolder() && folder->ignored)
            return true;
    return false;
}

Changes changesBetween(const Tree& older, const Tree& newer, bool all) {
    Changes changes;
    const auto missing = [&](const Tree& from, const Tree& in, std::vector<std::string>& list) {
        for (const auto& [path, node] : from) {
            const Node* there = find(in, path);
            if (!node.listed || (there != nullptr && there->listed)) continue;
            if (!all && (leavesOut(from, path) || leavesOut(in, path))) continue;
            list.push_back(path);
            if (node.isFolder()) changes.folders.insert(path);
        }
    };
    missing(newer, older, changes.added);
    missing(older, newer, changes.deleted);
    for (const auto& [path, node] : newer) {
        const Node* before = find(older, path);
        if (node.listed && before != nullptr && before->listed && isOther(*before, node) &&
            (all || !(leavesOut(older, path) || leavesOut(newer, path))))
            changes.modified.push_back(path);
    }
    return changes;
}

bool listTheSame(const Tree& older, const Tree& newer) {
    const auto matches = [](const Tree& one, const Tree& other) {
        return std::all_of(one.begin(), one.end(), [&](const auto& item) {
            if (!item.second.listed) return true;
            const Node* there = find(other, item.first);
            if (there == nullptr || !there->listed || isOther(*there, item.second)) return false;
            return !there->isFolder() || (there->mode == item.second.mode && there->ignored == item.second.ignored);
        });
    };
    return matches(older, newer) && matches(newer, older);
}

} // namespace tidewrack::testing
