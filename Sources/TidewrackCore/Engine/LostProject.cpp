#include "Engine/LostProject.hpp"

#include "Engine/FolderBelow.hpp"
#include "Engine/Tracking.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/OpenFolder.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

constexpr std::size_t mostLookedAt = 64; // of a project
constexpr std::size_t leastFound = 3;    // fewer may be alike by chance

bool isListed(FolderBelow& files, const Manifest::Item& item) {
    Attributes there;
    if (files.attributes(item.path, there) != 0) return false;
    const Entry entry = entryOf(there);
    return entry.kind == item.entry.kind && entry.size == item.entry.size;
}

// What part of the listed files is in the folder, of 100, by some of them from all over the listing.
std::size_t likeness(const Manifest& listing, FolderBelow& files) {
    std::vector<const Manifest::Item*> listed;
    for (const Manifest::Item& item : listing.items())
        if (item.entry.kind != EntryKind::dir && !item.entry.isIgnored()) listed.push_back(&item);
    if (listed.empty()) return 0;
    const std::size_t step = listed.size() / mostLookedAt + 1;
    std::size_t asked = 0;
    std::size_t found = 0;
    for (std::size_t at = 0; at < listed.size(); at += step, ++asked)
        if (isListed(files, *listed[at])) ++found;
    return found < leastFound ? 0 : found * 100 / asked;
}

} // namespace

std::optional<Project> lostProjectLike(const Store& store, const std::string& folder) {
    constexpr std::size_t most = 75;
    std::optional<Project> best;
    std::size_t bestLikeness = most;
    Descriptor root;
    if (openFolder(folder, root) != 0) return std::nullopt;
    FolderBelow files(root.get());
    for (const Project& project : store.registry().projects) {
        if (exists(project.root)) continue;
        try {
            const History history = store.history(project);
            const auto newest = history.latest();
            if (!newest) continue;
            if (const std::size_t like = likeness(history.manifest(*newest), files); like > bestLikeness) {
                bestLikeness = like;
                best = project;
            }
        } catch (const TidewrackError&) { // then it can't be told
        }
    }
    return best;
}

void refuseMove(const Store& store, const Project& project, const std::string& root) {
    if (!isFolder(root)) throw TidewrackError::io(root + " is not a folder.");
    if (isFolder(project.root))
        throw TidewrackError::refused(project.root + " is still there, with its history. To begin one for " + root +
                                      ", run: tidewrack track");
    for (const Project& other : store.registry().projects)
        if (other.root == root && other.id != project.id)
            throw TidewrackError::refused(root +
                                          " has a history of its own. To give that up first, run: tidewrack "
                                          "untrack " +
                                          root);
    refuseUnsuitable(store, root);
}

} // namespace tidewrack
