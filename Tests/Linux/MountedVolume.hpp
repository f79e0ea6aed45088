#pragma once
// Small volumes of chosen types, for what only a real volume shows: shared blocks, device borders, a full disk. And
// everything about files that a copy must keep, in a form that two trees can be compared by.

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace tidewrack::testing {

struct VolumeKind {
    const char* name;          // for the test's name
    const char* type;          // the usual name of its type
    bool clones;               // whether its files can share blocks
    bool wholeSeconds = false; // whether its times are kept in whole seconds (ext4)
};

inline constexpr VolumeKind btrfsVolume{"btrfs", "btrfs", true};
inline constexpr VolumeKind xfsVolume{"xfs", "xfs", true};
inline constexpr VolumeKind plainXfsVolume{"xfsWithoutReflink", "xfs", false};
inline constexpr VolumeKind ext4Volume{"ext4", "ext4", false};
inline constexpr VolumeKind coarseVolume{"ext4InWholeSeconds", "ext4", false, true};
inline constexpr VolumeKind tmpfsVolume{"tmpfs", "tmpfs", false};
inline constexpr VolumeKind overlayVolume{"overlay", "overlay", false};

// A fresh, empty volume of about 300 MB that takes disk space only for what is written, mounted at `path` (which is
// created) and unmounted at the end. It is mounted for this process and its children alone, so even a killed test
// leaves no mount behind.
class MountedVolume {
  public:
    MountedVolume(const VolumeKind& kind, std::string path);
    MountedVolume(const MountedVolume&) = delete;
    MountedVolume& operator=(const MountedVolume&) = delete;
    ~MountedVolume();

    // Why it could not be made here, in one line; empty when it is mounted.
    [[nodiscard]] const std::string& missing() const { return missing_; }
    // Bytes in use, everything written out.
    [[nodiscard]] std::int64_t used() const;

  private:
    void mountImage(const VolumeKind& kind);
    void mountOverlay();

    std::string path_;
    std::string missing_;
};

// Where a piece of a file lies on its volume.
struct Extent {
    std::uint64_t at = 0; // in the file
    std::uint64_t physical = 0;
    std::uint64_t length = 0;
    bool shared = false; // with another file

    // The same bytes of the volume.
    bool operator==(const Extent& other) const {
        return at == other.at && physical == other.physical && length == other.length;
    }
};

inline void PrintTo(const Extent& extent, std::ostream* out) { // NOLINT: GoogleTest's own name
    *out << extent.at << " at " << extent.physical << " for " << extent.length << (extent.shared ? " shared" : "");
}

// The volume's own report of where a file's content lies.
[[nodiscard]] std::vector<Extent> extentsOf(const std::string& path);

// Every path below `root`, sorted, one a line: kind, mode, owner, modification time, size, extended attributes, and the
// content's checksum or the link's destination.
[[nodiscard]] std::string factsOf(const std::string& root);

// Bytes that look random and depend on nothing but `seed` and their position.
[[nodiscard]] std::string contentFrom(std::uint64_t seed, std::size_t size);

// Bytes that a file takes on its volume.
[[nodiscard]] std::int64_t allocated(const std::string& path);

// Whether files in this folder can have attributes like "user.note".
[[nodiscard]] bool holdsUserAttributes(const std::string& folder);

void setAttribute(const std::string& path, const char* name, const std::string& value);
[[nodiscard]] std::string attribute(const std::string& path, const char* name); // "<none>" when it is missing

// The attribute "system.posix_acl_access" for: owner read and write, user 1234 read, group and mask as `mask` (one
// octal digit), others nothing.
[[nodiscard]] std::string accessList(unsigned owner, unsigned mask);

} // namespace tidewrack::testing
