#pragma once
// Copies of files, links and whole folders, and their removal.
// Work on one path returns an errno value (0 is success) or an OwnError; nothing here throws or prints.
//
// Where the answer to a change of a name is lost on the way from a network volume, the system may repeat the change,
// and then says that the old name is missing or the new one taken. What is as it was wanted is success.

#include "Platform/Deadline.hpp"
#include "Platform/Flush.hpp"
#include "Platform/OwnError.hpp"

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tidewrack {

// A place that a copy reads or writes: a name within an open folder.
struct Place {
    int folder = -1;
    const char* name = nullptr;
};

// Exchanges the items at two names on one volume, in one step. Returns an errno value: ENOENT when one of them does not
// exist; ENOSYS, ENOTSUP or EINVAL where the system or the volume cannot do it.
[[nodiscard]] int exchange(Place a, Place b);

// Renames unless something is at `to`, which is EEXIST. EINVAL, ENOSYS or ENOTSUP as above.
[[nodiscard]] int renameUnlessTaken(Place from, Place to);
// Whether a copy of so many bytes may take their room.
using HasRoom = std::function<bool(std::int64_t bytes)>;

// What a copier has learned about the two volumes it works between, so that a call that can never succeed there
// is tried once only. One per thread and target folder.
struct CopyMemory {
    std::uint64_t source = 0; // the device last copied from: what was learned holds for it alone
    bool cannotClone = false;
    bool cannotCopyRange = false;
    std::vector<char> buffer;         // working space of plain copies
    Deadline deadline;                // copies of bytes stop with pastDeadline after it
    PendingWrites* pending = nullptr; // of copies that must be on the disk before they are relied on
    HasRoom hasRoom;                  // asked where blocks cannot be shared; refused it is ENOSPC. Empty: always

    void copyingFrom(std::uint64_t device) {
        if (source == device) return;
        source = device;
        cannotClone = cannotCopyRange = false;
    }
};

struct CopyAs {
    std::uint16_t mode = 0;
    // Of modification and access, nanoseconds since the epoch; none: the source's times.
    std::optional<std::int64_t> time = std::nullopt;
};

// Copies the open regular file `source` to the new path `to` (which must not exist): a copy-on-write clone where the
// volume allows it, else the bytes, keeping holes. The copy gets the mode and the time of `as`, the source's extended
// attributes and, when running as root, its owner; where the owner is refused, the copy has no set-id bits. A
// half-written copy is removed. Returns an errno value.
[[nodiscard]] int copyOpenFile(int source, const struct stat& status, Place to, CopyAs as, CopyMemory& memory);

// Makes a symbolic link. One that is there and leads to the same place is success.
[[nodiscard]] int makeLink(const std::string& destination, Place to);

// Gives the file `from` a second name. One that it has there already is success.
[[nodiscard]] int makeSecondName(Place from, Place to);

// Copies the symbolic link itself, with its times and extended attributes. `to` must not exist.
[[nodiscard]] int copyLink(Place from, Place to);

// Copies the extended attributes of one open file or folder to another, as far as volume and rights allow.
void copyOpenExtendedAttributes(int source, int target);

// An earlier copy of the same file, link or folder, made by copyTree and not modified since.
struct EarlierCopy {
    std::string path;
    std::int64_t began = 0; // when it was begun, nanoseconds since the epoch
};

struct UncopiedItem {
    std::string path;
    int error = 0; // an errno value
};

// Where the files that have several names were copied to, by device and inode: for copies that share one, all of one
// volume. Those of the same file become names of one file again.
using FilesOfManyNames = std::map<std::pair<std::uint64_t, std::uint64_t>, std::string>;

struct CopyLimits {
    std::string skip;                 // the absolute path of an item to leave out; empty: none
    Deadline deadline;                // after it the copy is given up with pastDeadline
    PendingWrites* pending = nullptr; // as in CopyMemory
    HasRoom hasRoom = {};             // as in CopyMemory
    // What has not changed since then becomes a hard link to the earlier copy, which takes no new space on any volume.
    std::optional<EarlierCopy> earlier = std::nullopt;
    // Receives the items inside a folder that could not be copied, as paths below it with a leading slash; the rest is
    // copied. Null: the first failure ends the copy.
    std::vector<UncopiedItem>* unsaved = nullptr;
    // Known names, and those that the copy adds, by absolute paths. Null: each name becomes a file of its own.
    FilesOfManyNames* manyNames = nullptr;
    // A failed copy leaves what it has made so far, with anything that others have added to it.
    bool leavesParts = false;
};

// Copies a file, a link or a whole folder with everything in it to the new path `to`, keeping modes, times, links and
// extended attributes, cloning where the volume allows it. Sockets, pipes and devices inside a folder are left out; one
// named as `from` is ENOTSUP. A failed copy leaves nothing at `to`, unless the limits say so. Returns an errno value.
[[nodiscard]] int copyTree(const std::string& from, const std::string& to, const CopyLimits& limits);
[[nodiscard]] int copyTree(Place from, Place to, const CopyLimits& limits);

// Whether the file, link or folder at `path` is, with all that is in it, what it was when the copy was begun.
[[nodiscard]] bool isAsCopied(const std::string& path, const EarlierCopy& copy);

struct TreeSize {
    std::int64_t files = 0; // regular files
    std::int64_t bytes = 0; // their content
};

// Adds up the folder `path` as copyTree with these limits would copy it, until more than `mostFiles` are found.
// A folder that cannot be read counts nothing, an item that cannot be looked at as an empty file. Returns pastDeadline
// past the deadline.
[[nodiscard]] int measureTree(const std::string& path, const CopyLimits& limits, std::int64_t mostFiles, TreeSize& out);

// Removes a file, a link or a folder with everything in it. Returns the first errno value; the rest is still removed.
[[nodiscard]] int removeTree(const std::string& path);
[[nodiscard]] int removeTree(Place place);

// Removes the access list of a file or folder where such a list can forbid its owner to remove the item or what is in
// it: copies have the lists of what they were made from. Failures are passed over.
void dropAccessList(Place item);

} // namespace tidewrack
