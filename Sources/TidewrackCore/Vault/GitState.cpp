// Copies of what git itself keeps of a repository, and how they come back: beside the live store, which no restore ever
// touches.

#include "Vault/Vault.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/Volumes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace tidewrack {

namespace {

constexpr std::size_t mostEntriesRead = 32; // the newest ones
constexpr std::int64_t largeIndex = std::int64_t{1} << 20;
constexpr std::chrono::hours betweenLargeIndexes{1};

const VaultEntry::Item* itemFor(const VaultEntry& entry, const std::string& path) {
    const auto isHere = [&](const VaultEntry::Item& item) { return item.original == path; };
    const auto found = std::find_if(entry.items.begin(), entry.items.end(), isHere);
    return found == entry.items.end() ? nullptr : &*found;
}

// The folder with the branches: the first item is HEAD, or what else was in it.
std::string storeOf(const VaultEntry& entry) {
    return std::string(parentOf(entry.items.front().original));
}

// A free name beside the store.
std::string nameBeside(const std::string& store, Date now) {
    for (std::int64_t number = secondsOf(now);; ++number) {
        std::string name = store + ".tidewrack-restored-" + std::to_string(number);
        if (!exists(name)) return name;
    }
}

// Makes the folders on the way to the relative path below an open folder of ours.
int makeWay(int folder, std::string_view path) {
    for (std::size_t slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
        const std::string part(path.substr(0, slash));
        if (::mkdirat(folder, part.c_str(), 0700) != 0 && errno != EEXIST) return errno;
    }
    return 0;
}

// What git needs to take the folder for a store: it reads objects from the live one, where it has none of its own.
void completeStore(const std::string& folder, const std::string& store) {
    (void)makeFolders(folder + "/refs", 0700);
    // Neither an index nor "git clean" is to take it.
    writeFileSoon(folder + "/.gitignore", "*\n");
    if (exists(folder + "/objects")) return;
    if (const int error = makeFolders(folder + "/objects/info", 0700))
        throw TidewrackError::io("create", folder, error);
    writeFileSoon(folder + "/objects/info/alternates", store + "/objects\n");
}

} // namespace

std::vector<VaultEntry> Vault::gitStates(const std::string& root) const {
    std::vector<std::string> names = listFolder(folder()); // an id begins with the time
    std::sort(names.rbegin(), names.rend());
    names.resize(std::min(names.size(), mostEntriesRead));
    std::vector<VaultEntry> states;
    for (const std::string& name : names)
        if (auto entry = find(name); entry && entry->gitState == root) states.push_back(std::move(*entry));
    std::sort(states.begin(), states.end(), [](const auto& one, const auto& other) { return other.isOlderThan(one); });
    return states;
}

namespace {

// An index lists every file and changes with every command, so that a large one takes more room than all the rest.
bool isWorthItsRoom(const std::string& path, const std::vector<VaultEntry>& states) {
    Attributes attributes;
    if (lastComponent(path) != "index" || attributesAt(AT_FDCWD, path.c_str(), attributes) != 0) return true;
    return attributes.size <= largeIndex || std::none_of(states.begin(), states.end(), [&](const VaultEntry& state) {
               return itemFor(state, path) != nullptr && now() - state.created < betweenLargeIndexes;
           });
}

} // namespace

// Whether the entry has these paths as they are. What it could not hold is a reason for another one only where there
// was no time for it.
bool Vault::holds(const VaultEntry& entry, const std::vector<std::string>& paths) const {
    const auto isHeld = [&](const std::string& path) {
        const VaultEntry::Item* item = itemFor(entry, path);
        if (item != nullptr) return isAsCopied(path, copyOf(entry, *item));
        const auto& skipped = entry.skipped;
        const auto found = std::find(skipped.begin(), skipped.end(), path);
        return found != skipped.end() &&
               entry.reason(static_cast<std::size_t>(found - skipped.begin())) != NotSaved::noTime;
    };
    const auto isThere = [](const VaultEntry::Item& item) { return exists(item.original); };
    return std::all_of(paths.begin(), paths.end(), isHeld) &&
           std::all_of(entry.items.begin(), entry.items.end(), isThere);
}

std::optional<VaultEntry> Vault::saveGitState(const GitStore& git, GitStore::WorkTrees workTrees, Objects objects,
                                              VaultRequest request) const {
    request.paths = git.statePaths(workTrees);
    request.isGuess = true;
    request.gitState = git.root;
    const std::vector<VaultEntry> states = gitStates(git.root);
    const bool clones = volumeClones(store.home) && sameVolume(git.common, store.home);
    if (clones && objects == Objects::saved) request.paths.push_back(joined(git.common, "objects"));
    if (!clones) std::erase_if(request.paths, [&](const auto& path) { return !isWorthItsRoom(path, states); });
    if (!states.empty() && holds(states.front(), request.paths)) return std::nullopt;
    EarlierCopies earlier;
    for (const VaultEntry& state : states) // newest first, and the first copy of a path stays
        for (const VaultEntry::Item& item : state.items) earlier.emplace(item.original, copyOf(state, item));
    return saveAs(Purpose::command, earlier, request).entry;
}

bool Vault::holdsObjects(const GitStore& git) const {
    const std::string objects = joined(git.common, "objects");
    const auto isNone = [](const std::string& name) { return name == "info" || name == "pack"; };
    const std::vector<std::string> names = listFolder(objects);
    if (std::all_of(names.begin(), names.end(), isNone) && listFolder(objects + "/pack").empty()) return true;
    const std::vector<VaultEntry> states = gitStates(git.root);
    const VaultEntry::Item* item = states.empty() ? nullptr : itemFor(states.front(), objects);
    return item != nullptr && isAsCopied(objects, copyOf(states.front(), *item));
}

VaultRestored Vault::restoreGitState(const VaultEntry& entry, Acting acting) const {
    VaultRestored result;
    result.isDryRun = acting == Acting::dryRun;
    if (entry.items.empty()) return result;
    const std::string live = storeOf(entry);
    const std::string parent(parentOf(live));
    const std::string beside = nameBeside(live, now());
    result.gitState = VaultRestored::GitState{entry.gitState, beside};
    Descriptor target;
    RestoredItem::Failure failure;
    if (const std::string real = Store::canonical(parent); real != parent)
        failure = {RestoredItem::Why::otherFolder, 0, parent, real};
    if (!result.isDryRun && failure.why == RestoredItem::Why::none) {
        int error = makeFolders(parent, 0755);
        if (error == 0 && ::mkdir(beside.c_str(), 0700) != 0) error = errno;
        if (error == 0) error = openFolder(beside, target);
        if (error != 0) throw TidewrackError::io("create", beside, error);
    }
    for (const VaultEntry::Item& item : entry.items) {
        RestoredItem& done = result.items.emplace_back();
        done.original = item.original;
        done.copy = entryFolder(entry.id) + "/" + item.stored;
        done.failure = failure;
        if (!done.isBack() || result.isDryRun) continue;
        const bool isInside = isAtOrBelow(item.original, live);
        const std::string relative = isInside ? item.original.substr(joined(live, "").size())
                                              : "worktrees/restored/" + std::string(lastComponent(item.original));
        CopyLimits limits;
        limits.unsaved = &done.missing;
        int error = makeWay(target.get(), relative);
        if (error == 0)
            error = copyTree(Place{AT_FDCWD, done.copy.c_str()}, Place{target.get(), relative.c_str()}, limits);
        if (error != 0) done.failure = {RestoredItem::Why::system, error};
    }
    if (!result.isDryRun && failure.why == RestoredItem::Why::none) completeStore(beside, live);
    return result;
}

} // namespace tidewrack
