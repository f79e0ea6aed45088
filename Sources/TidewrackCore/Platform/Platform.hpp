#pragma once
// The one seam to the operating system. PlatformMacos.cpp and PlatformLinux.cpp define what differs,
// PlatformShared.cpp what both share; nothing else asks which system it runs on.
//
// Work on one path returns an errno value (0 is success); nothing here throws or prints.

#include "Platform/Descriptor.hpp"
#include "Platform/Flush.hpp"
#include "Support/Deadline.hpp"

#include <csignal>
#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Nanoseconds since the epoch; a time that 64 bits cannot count (before 1677, after 2262) becomes the nearest one.
[[nodiscard]] std::int64_t nanosecondsOf(const timespec& time);

// What lstat tells of one path. Times are nanoseconds since the epoch, `mode` the low 12 permission bits.
struct Attributes {
    enum class Kind : std::uint8_t { file, link, folder, other };

    Kind kind = Kind::other;
    std::uint16_t mode = 0;
    std::int64_t size = 0;
    std::int64_t mtime = 0;
    std::int64_t ctime = 0;
    std::uint64_t ino = 0;
    std::uint64_t device = 0;
    std::uint64_t links = 0;

    bool operator==(const Attributes&) const = default;
};

[[nodiscard]] Attributes attributesOf(const struct stat& status);

// lstat relative to an open folder (or AT_FDCWD).
[[nodiscard]] int attributesAt(int folder, const char* name, Attributes& out);
[[nodiscard]] int attributesOfOpen(int fd, Attributes& out);

// Opens the folder at `path` below the open folder `root` for reading (the folder itself when `path` is empty).
// No component may be a symbolic link, so a link swapped in for a parent never leads outside; paths longer than
// PATH_MAX are walked in pieces; a path that is absolute or leads up ("..") is EINVAL. Returns an errno value.
[[nodiscard]] int openFolderBelow(int root, std::string_view path, Descriptor& out);

// One piece of openFolderBelow: `path` is shorter than PATH_MAX.
[[nodiscard]] int openPieceBelow(int root, const char* path, Descriptor& out);

// Opens a folder by its absolute path; its last component may not be a symbolic link.
[[nodiscard]] int openFolder(const std::string& path, Descriptor& out);

// The inverse of nanosecondsOf.
[[nodiscard]] timespec timespecOf(std::int64_t time);

// Sets the modification and access time (nanoseconds since the epoch) of a path without following a link.
[[nodiscard]] int setModificationTime(int folder, const char* name, std::int64_t mtime);

// A change of a file made from now on is stamped with this time at the earliest, in nanoseconds since the epoch, on
// volumes whose clock is this machine's. Volumes cut it down to what they keep.
[[nodiscard]] std::int64_t earliestStamp();

// --- Copies -----------------------------------------------------------------------------------------------------

// A place that a copy reads or writes: a name within an open folder.
struct Place {
    int folder = -1;
    const char* name = nullptr;
};

// Exchanges what two names on one volume lead to, in one step. ENOENT when one of them leads nowhere; ENOSYS, ENOTSUP
// or EINVAL where the system or the volume cannot do it.
[[nodiscard]] int exchange(Place a, Place b);

// What a copier has learned about the two volumes it works between, so that a call that can never succeed there
// is tried once only. One per thread and target folder.
struct CopyMemory {
    std::uint64_t source = 0; // the device last copied from: what was learned holds for it alone
    bool cannotClone = false;
    bool cannotCopyRange = false;
    std::vector<char> buffer;         // working space of plain copies
    Deadline deadline;                // copies of bytes stop with ECANCELED after it
    PendingWrites* pending = nullptr; // of copies that must be on the disk before they are relied on

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
// attributes and, when running as root, its owner; where that is refused, the bits that lend the owner's rights are
// left out. A half-written copy is removed. Returns an errno value.
[[nodiscard]] int copyOpenFile(int source, const struct stat& status, Place to, CopyAs as, CopyMemory& memory);

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

struct CopyLimits {
    std::string skip;                 // an absolute path left out wherever it lies inside; empty: none
    Deadline deadline;                // after it the copy is given up with ECANCELED
    PendingWrites* pending = nullptr; // as in CopyMemory
    // What has not changed since then becomes a hard link to the earlier copy, which takes no new space on any volume.
    std::optional<EarlierCopy> earlier = std::nullopt;
    // Receives what inside a folder could not be copied, by paths below it with a leading slash; the rest is copied.
    // Null: the first failure ends the copy.
    std::vector<UncopiedItem>* unsaved = nullptr;
    // A copy that fails leaves what it made so far, and what others have put beside it.
    bool leavesParts = false;
};

// Copies a file, a link or a whole folder with everything in it to the new path `to`, keeping modes, times, links
// and extended attributes, cloning where the volume allows it. Sockets, pipes and devices inside a folder are passed
// over; one named as `from` is ENOTSUP. On an errno value other than 0 nothing of it is left at `to`, unless the limits
// say so.
[[nodiscard]] int copyTree(const std::string& from, const std::string& to, const CopyLimits& limits);

struct TreeSize {
    std::int64_t files = 0; // regular files
    std::int64_t bytes = 0; // their content
};

// Adds up the folder `path` as copyTree with these limits would copy it, until more than `mostFiles` are found.
// What cannot be read counts nothing. Returns ECANCELED past the deadline.
[[nodiscard]] int measureTree(const std::string& path, const CopyLimits& limits, std::int64_t mostFiles, TreeSize& out);

// Removes a file, a link or a folder with everything in it. Returns the first errno value; the rest is still removed.
[[nodiscard]] int removeTree(const std::string& path);

// Takes away a file's or folder's access list where such a list can forbid its owner to remove the item or what is in
// it: copies have the lists of what they were made from. Nothing happens where that fails.
void dropAccessList(Place item);

// --- Volumes ----------------------------------------------------------------------------------------------------

// The usual name of the type of the volume that holds `path` ("apfs", "ext4", "btrfs", ...); empty when unknown.
[[nodiscard]] std::string volumeType(const std::string& path);

// Whether the volume that holds the folder `path` can share blocks between files.
[[nodiscard]] bool volumeClones(const std::string& path);

// Whether names in the folder `path` are found in any case, so that one file has many spellings.
[[nodiscard]] bool volumeIgnoresCase(const std::string& path);

// --- Process ----------------------------------------------------------------------------------------------------

// Writes all bytes; EPIPE is returned, never raised as a signal, and the signal's disposition stays as it was.
[[nodiscard]] int writeAll(int fd, std::string_view bytes);

// Keeps a write into this pipe from raising SIGPIPE where the system has a switch for it; writeAll covers the rest.
void disableSigpipe(int fd);

// While it lives and is not released, being told to end (SIGTERM, SIGHUP) has to wait; it takes effect afterwards.
class [[nodiscard]] TerminationDelayed {
  public:
    TerminationDelayed();
    TerminationDelayed(const TerminationDelayed&) = delete;
    TerminationDelayed& operator=(const TerminationDelayed&) = delete;
    ~TerminationDelayed() { release(); }

    void release();

  private:
    sigset_t before_{};
    bool released_ = false;
};

// While it lives, the process goes on working when it is told to end (SIGTERM) or its terminal goes away (SIGHUP).
// Child processes started meanwhile inherit that.
class [[nodiscard]] TerminationIgnored {
  public:
    TerminationIgnored();
    TerminationIgnored(const TerminationIgnored&) = delete;
    TerminationIgnored& operator=(const TerminationIgnored&) = delete;
    ~TerminationIgnored();

  private:
    struct sigaction onTerminate_ {};
    struct sigaction onHangUp_ {};
};

// The system's git program; empty when there is none, or only a stand-in that would offer to install it.
[[nodiscard]] std::string gitProgram();

[[nodiscard]] std::string homeFolderOfUser(); // from the list of users; empty when unknown
[[nodiscard]] std::string currentFolder();    // empty when it cannot be told
[[nodiscard]] std::string executablePath();   // the running program; empty when it cannot be told
[[nodiscard]] bool processIsAlive(std::int64_t pid);
[[nodiscard]] std::string errorText(int error); // the system's text for an errno value

// --- Data -------------------------------------------------------------------------------------------------------

[[nodiscard]] std::array<std::uint8_t, 32> sha256(std::string_view bytes);

// Says that memory just reserved is about to be filled from its beginning: the system may then provide it in large
// pieces, each of which saves hundreds of page faults. Does nothing where the memory is small.
void willFill(void* memory, std::size_t size);

} // namespace tidewrack
