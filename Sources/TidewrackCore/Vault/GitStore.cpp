#include "Vault/GitStore.hpp"

#include "Platform/Attributes.hpp"
#include "Store/Store.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>

#include <cstdint>
#include <string_view>

namespace tidewrack {

namespace {

constexpr std::int64_t longestPointer = 8192; // a file that holds a path

bool isPlainFile(const std::string& path, std::int64_t most) {
    Attributes attributes;
    return attributesAt(AT_FDCWD, path.c_str(), attributes) == 0 && attributes.kind == Attributes::Kind::file &&
           attributes.size <= most;
}

// The path that a file holds behind `before`, relative to the file's folder.
std::optional<std::string> pointedTo(const std::string& file, std::string_view before) {
    std::string text;
    if (!isPlainFile(file, longestPointer) || readFile(file, text) != 0 || !text.starts_with(before))
        return std::nullopt;
    text.erase(0, before.size());
    while (text.ends_with('\n') || text.ends_with('\r')) text.pop_back();
    if (text.empty() || text.find('\0') != text.npos) return std::nullopt;
    return Store::canonical(absolutePath(text, parentOf(file)));
}

bool isWholeStore(const std::string& folder) {
    return exists(joined(folder, "HEAD")) && isFolder(joined(folder, "objects")) && isFolder(joined(folder, "refs"));
}

// The store at `path`, where a folder, a link to one or a file that names one may be.
std::optional<GitStore> openedStore(const std::string& path, const std::string& root) {
    const auto named = pointedTo(path, "gitdir: ");
    GitStore store{root, named.value_or(Store::canonical(path)), {}};
    store.common = pointedTo(joined(store.folder, "commondir"), "").value_or(store.folder);
    if (!exists(joined(store.folder, "HEAD")) || !isWholeStore(store.common)) return std::nullopt;
    return store;
}

} // namespace

std::vector<std::string> GitStore::statePaths(WorkTrees which) const {
    std::vector<std::string> paths;
    const auto add = [&](const std::string& in, const char* name) {
        std::string path = joined(in, name);
        if (exists(path)) paths.push_back(std::move(path));
    };
    for (const char* name : {"HEAD", "config", "packed-refs", "refs", "reftable", "logs", "index"}) add(common, name);
    // The user's own: of no other copy can they be had.
    add(common, "info");
    (void)visitNames(joined(common, "hooks"), [&](const char* name) {
        if (!std::string_view(name).ends_with(".sample")) paths.push_back(joined(common, "hooks/" + std::string(name)));
        return true;
    });
    if (which == WorkTrees::all)
        add(common, "worktrees");
    else if (folder != common)
        for (const char* name : {"HEAD", "config.worktree", "refs", "reftable", "logs", "index"}) add(folder, name);
    return paths;
}

std::optional<GitStore> gitStoreFor(const std::string& folder, const std::string& named) {
    if (!named.empty())
        return openedStore(named,
                           Store::canonical(lastComponent(named) == ".git" ? std::string(parentOf(named)) : named));
    for (std::string at = Store::canonical(folder); !at.empty(); at = std::string(parentOf(at))) {
        const std::string git = joined(at, ".git");
        if (exists(git))
            if (auto store = openedStore(git, at)) return store;
        if (isWholeStore(at)) return GitStore{at, at, at};
        if (at == "/") break;
    }
    return std::nullopt;
}

} // namespace tidewrack
