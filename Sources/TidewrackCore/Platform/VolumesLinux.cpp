// Linux: statfs magic numbers.

#include "Platform/Volumes.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"

#include <fcntl.h>
#include <linux/btrfs.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tidewrack {

namespace {

struct VolumeName {
    std::uint32_t magic;
    const char* name;
};

constexpr VolumeName volumeNames[] = {
    {0x0000EF53, "ext4"},  {0x01021994, "tmpfs"},    {0x794C7630, "overlay"},  {0x00006969, "nfs"},
    {0x58465342, "xfs"},   {0x9123683E, "btrfs"},    {0xCA451A4E, "bcachefs"}, {0x2FC12FC1, "zfs"},
    {0x4D44, "vfat"},      {0x2011BAB0, "exfat"},    {0x5346544E, "ntfs"},     {0x7366746E, "ntfs3"},
    {0x65735546, "fuse"},  {0xFF534D42, "cifs"},     {0xFE534D42, "smb2"},     {0xF2F52010, "f2fs"},
    {0x01021997, "9p"},    {0x6A656A63, "virtiofs"}, {0x858458F6, "ramfs"},    {0x73717368, "squashfs"},
    {0xE0F5E1E2, "erofs"}, {0x52654973, "reiserfs"}, {0x3153464A, "jfs"},      {0xF15F, "ecryptfs"},
    {0x7461636F, "ocfs2"}, {0x01161970, "gfs2"},     {0x00C36400, "ceph"},     {0x0BD00BD0, "lustre"},
    {0x482B, "hfsplus"},   {0x9660, "isofs"},        {0x61756673, "aufs"},     {0x5346414F, "afs"},
};

} // namespace

std::string volumeType(const std::string& path) {
    struct statfs volume {};
    if (::statfs(path.c_str(), &volume) != 0) return {};
    const auto magic = static_cast<std::uint32_t>(volume.f_type);
    for (const VolumeName& known : volumeNames)
        if (known.magic == magic) return known.name;
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", magic);
    return text;
}

// btrfs and bcachefs always share blocks; xfs only when it was made with reflink, which a trial shows. The trial
// file has no name, so nothing appears in the folder.
bool volumeClones(const std::string& path) {
    const std::string type = volumeType(path);
    if (type == "btrfs" || type == "bcachefs") return true;
    if (type != "xfs") return false;
    const Descriptor source(::open(path.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    const Descriptor target(::open(path.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!source || !target) return true; // a folder we may not write to: the type's default
    const char block[4096] = {};
    if (::write(source.get(), block, sizeof block) != static_cast<ssize_t>(sizeof block)) return true;
    return ::ioctl(target.get(), FICLONE, source.get()) == 0 || errno != EOPNOTSUPP;
}

std::optional<std::string> adviceOnClones() {
    return "On volumes of type btrfs, and of type xfs made with reflink=1, files share blocks: history takes little "
           "room there.";
}

namespace {

// Whether the item lies on a btrfs volume; `out` then holds the volume's identifier.
bool btrfsIdentity(const std::string& path, btrfs_ioctl_fs_info_args& out) {
    if (volumeType(path) != "btrfs") return false;
    const Descriptor item(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return item && ::ioctl(item.get(), BTRFS_IOC_FS_INFO, &out) == 0;
}

} // namespace

// Each subvolume of a btrfs volume has a device number of its own, so the volumes' identifiers are compared.
bool sameVolume(const std::string& a, const std::string& b) {
    Attributes one;
    Attributes other;
    if (attributesAt(AT_FDCWD, a.c_str(), one) != 0 || attributesAt(AT_FDCWD, b.c_str(), other) != 0) return false;
    btrfs_ioctl_fs_info_args first{};
    btrfs_ioctl_fs_info_args second{};
    return one.device == other.device || (btrfsIdentity(a, first) && btrfsIdentity(b, second) &&
                                          std::memcmp(first.fsid, second.fsid, sizeof first.fsid) == 0);
}

bool volumeIgnoresCase(const std::string&) {
    return false; // the volumes that projects lie on here compare names byte for byte
}

} // namespace tidewrack
