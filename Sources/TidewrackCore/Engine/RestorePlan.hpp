#pragma once
// What a restore has to do, worked out from two listings and a scope without touching the disk.

#include "Engine/PathOutcome.hpp"
#include "Store/Manifest.hpp"

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// What a folder's owner needs to work in it, and whether the folder lacks some of that.
inline constexpr std::uint16_t ownerAll = 0700;
[[nodiscard]] inline bool isClosed(const Entry& folder) {
    return (folder.mode & ownerAll) != ownerAll;
}
// Whether it is a folder in which nobody but root can look.
[[nodiscard]] inline bool isUnreadable(const Entry& entry) {
    constexpr std::uint16_t readable = 0500;
    return entry.kind == EntryKind::dir && (entry.mode & readable) != readable;
}

struct RestorePlan {
    using Items = std::vector<const Manifest::Item*>; // into the manifests planned from

    Items removeFiles;             // of the current listing: files and links
    Items removeFolders;           // of the current listing, contents before their folder
    Items makeFolders;             // of the target, a folder before its contents
    Items keepFolders;             // of the target: folders in scope that both have
    Items closedFolders;           // of the current listing, a folder before its contents: folders closed to their
                                   // owner that hold something to be removed, made or written
    Items lockedFolders;           // of the target: those of them out of scope that were open then
    Items writes;                  // of the target: files and links that differ and whose content was kept
    std::vector<PathOutcome> left; // paths in scope that no write can bring back, or that are left in place
};

struct RestoreInput {
    const Manifest& target;
    const Manifest& current;
    std::function<bool(std::string_view)> scope;
    std::set<std::string, std::less<>> nestedRoots;
    bool removeNew = true;
    bool knowsEverything = false; // folders of the target that can't be read held no more than it lists
    // Files and links of the target whose kept content is gone or cut short: no folder is removed for them.
    std::set<std::string, std::less<>> lost{};
};

struct Removals {
    RestorePlan::Items files;
    RestorePlan::Items folders; // contents before their folder
};

// Takes out of the plan's removals those without which something can't be made or written: what is at its path or below
// it, and a file where it needs a folder. `ignoresCase`: the volume takes several spellings for one name.
[[nodiscard]] Removals takeObstructing(RestorePlan& plan, bool ignoresCase);

// The plan points into both manifests, which must outlive it.
[[nodiscard]] RestorePlan planRestore(const RestoreInput& input);
// What becomes of every path when the plan is carried out and nothing changes until then. `holdsMore`: whether the disk
// has something in a folder that the current listing lacks; empty: it never has.
using FolderTest = std::function<bool(std::string_view)>;
[[nodiscard]] std::vector<PathOutcome> aimOf(const RestorePlan& plan, const Manifest& current,
                                             const FolderTest& holdsMore);

} // namespace tidewrack
