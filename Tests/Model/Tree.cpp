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

struct Reader {
    const std::string& root;
    const Paths& nested;
    bool ignoring;
    Tree tree;

    void read(const std::string& folder, bool listed) {
        for (const std::string& name : listFolder(root + "/" + folder)) {
            const std::string path = folder.empty() ? name : folder + "/" + name;
            Node node = readNode(root + "/" + path);
            bool below = false;
            if (node.isFolder()) {
                node.listed = listed && name != ".git" && name != "node_modules" && !nested.contains(path);
                node.ignored = node.listed && ignoring && name == "build";
                below = node.listed && !node.ignored;
            } else {
                node.listed = listed && node.kind != 'o' && (node.kind == 'l' || name != ".DS_Store");
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
    Reader reader{root, nested, ignoresBuildFolders(root), {}};
    reader.read("", true);
    return std::move(reader.tree);
}

bool isOther(const Node& older, const Node& newer) {
    if (older.isFolder() && newer.isFolder()) return false;
    return older.kind != newer.kind || older.mode != newer.mode || older.version != newer.version;
}

Changes changesBetween(const Tree& older, const Tree& newer) {
    Changes changes;
    const auto missing = [&](const Tree& from, const Tree& in, std::vector<std::string>& list) {
        for (const auto& [path, node] : from) {
            const Node* there = find(in, path);
            if (!node.listed || (there != nullptr && there->listed)) continue;
            list.push_back(path);
            if (node.isFolder()) changes.folders.insert(path);
        }
    };
    missing(newer, older, changes.added);
    missing(older, newer, changes.deleted);
    for (const auto& [path, node] : newer) {
        const Node* before = find(older, path);
        if (node.listed && before != nullptr && before->listed && isOther(*before, node))
            changes.modified.push_back(path);
    }
    return changes;
}

bool sameFolders(const Tree& older, const Tree& newer) {
    return std::all_of(newer.begin(), newer.end(), [&](const auto& item) {
        const Node* before = find(older, item.first);
        if (!item.second.listed || !item.second.isFolder() || before == nullptr || !before->listed) return true;
        return before->mode == item.second.mode && before->ignored == item.second.ignored;
    });
}

} // namespace tidewrack::testing
