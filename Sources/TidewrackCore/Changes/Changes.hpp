#pragma once
// Which paths differ between two manifests. Contents are never read.

#include "Store/Manifest.hpp"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tidewrack {

// Each list is sorted by path in byte order.
struct Changes {
    struct Counts {
        std::int64_t added = 0;
        std::int64_t modified = 0;
        std::int64_t deleted = 0;

        bool operator==(const Counts&) const = default;
        [[nodiscard]] std::int64_t sum() const { return added + modified + deleted; }
    };

    std::vector<std::string> added;             // in the new manifest only
    std::vector<std::string> modified;          // in both, with another kind, mode or blob; never two folders
    std::vector<std::string> deleted;           // in the old manifest only
    std::set<std::string, std::less<>> folders; // the folders among added and deleted

    bool operator==(const Changes&) const = default;
    [[nodiscard]] bool isEmpty() const { return added.empty() && modified.empty() && deleted.empty(); }
    [[nodiscard]] std::vector<std::string> all() const; // the three lists in one, sorted
    [[nodiscard]] Counts fileCounts() const;            // without folders
    // The changes at or below one of these paths.
    [[nodiscard]] Changes within(const std::vector<std::string>& paths) const;

    // What changed from `older` to `newer`. What one of them leaves out as ignored is neither added nor deleted by
    // that, nor is it known to be modified.
    [[nodiscard]] static Changes between(const Manifest& older, const Manifest& newer);
    // The same with all that came under what is left out, or out of it.
    [[nodiscard]] static Changes betweenListed(const Manifest& older, const Manifest& newer);
};

// Whether two entries at one path count as different.
[[nodiscard]] bool differs(const Entry& older, const Entry& newer);

// Whether one listing can stand for the other: nothing differs, nor do the permission bits of folders and whether they
// are ignored.
[[nodiscard]] bool listTheSame(const Manifest& older, const Manifest& newer);

// The folders that both have with other permission bits, sorted. Those of a folder that is ignored are not on record.
[[nodiscard]] std::vector<std::string> folderModeChanges(const Manifest& older, const Manifest& newer);

// Everything that an undo looks at, sorted: all that the listings differ in, and these folders.
[[nodiscard]] std::vector<std::string> changesWithFolderModes(const Manifest& older, const Manifest& newer);

// Whether these are one folder with other permission bits.
[[nodiscard]] bool isFolderModeChange(const Entry& older, const Entry& newer);

// One file's change, with the paths of the two contents to compare.
struct FileChange {
    enum class Status { added, modified, deleted };

    std::string path;
    Status status = Status::added;
    std::optional<std::string> oldContent; // absolute path of a file that holds it; none: no such content
    std::optional<std::string> newContent;
    std::optional<std::int64_t> oldSize;
    std::optional<std::int64_t> newSize;

    bool operator==(const FileChange&) const = default;
};

} // namespace tidewrack
