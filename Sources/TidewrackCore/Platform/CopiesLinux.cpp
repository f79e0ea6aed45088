// Linux: FICLONE and copy_file_range.

#include "Platform/Copies.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace tidewrack {

namespace {

constexpr std::size_t plainCopySize = std::size_t{128} << 10; // files up to this size: one read and one write
constexpr std::size_t rangeCopySize = std::size_t{64} << 20;

// Sharing blocks and copying inside the kernel fail for many reasons of one file or of one kind of volume (files in use
// for swapping, files without copy-on-write, sandboxes), after which the bytes can still be copied. A failure of the
// volume itself is final.
bool volumeFailed(int error) {
    return error == EIO || error == ENOMEM || isOutOfRoom(error);
}

bool neverBetweenTheseVolumes(int error) {
    return error == EOPNOTSUPP || error == EXDEV || error == ENOTTY || error == ENOSYS;
}

// Copies `length` bytes at `offset` through the buffer.
int copyBytes(int source, int target, off_t offset, off_t length, CopyMemory& memory) {
    std::vector<char>& buffer = memory.buffer;
    if (buffer.empty()) buffer.resize(plainCopySize);
    while (length > 0) {
        if (passed(memory.deadline)) return pastDeadline;
        const auto wanted = std::min<std::size_t>(buffer.size(), static_cast<std::size_t>(length));
        const ssize_t count = ::pread(source, buffer.data(), wanted, offset);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        if (count == 0) return 0; // it became shorter; the caller compares attributes afterwards
        for (ssize_t done = 0; done < count;) {
            const ssize_t put =
                ::pwrite(target, buffer.data() + done, static_cast<std::size_t>(count - done), offset + done);
            if (put < 0 && errno == EINTR) continue;
            if (put < 0) return errno;
            done += put;
        }
        offset += count;
        length -= count;
    }
    return 0;
}

int copyRange(int source, int target, off_t offset, off_t length, CopyMemory& memory) {
    while (length > 0 && !memory.cannotCopyRange) {
        if (passed(memory.deadline)) return pastDeadline;
        off_t from = offset;
        off_t to = offset;
        const auto wanted = std::min<std::size_t>(rangeCopySize, static_cast<std::size_t>(length));
        const ssize_t count = ::copy_file_range(source, &from, target, &to, wanted, 0);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && volumeFailed(errno)) return errno;
        if (count < 0) memory.cannotCopyRange = neverBetweenTheseVolumes(errno);
        if (count <= 0) break; // some kernels report the end too early
        offset += count;
        length -= count;
    }
    return copyBytes(source, target, offset, length, memory);
}

// Copies only the parts that hold data, so that a file with holes takes no more room than it had.
int copySparse(int source, int target, off_t size, CopyMemory& memory) {
    off_t at = 0;
    while (at < size) {
        const off_t data = ::lseek(source, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO) break;
        if (data < 0) return copyRange(source, target, at, size - at, memory);
        off_t hole = ::lseek(source, data, SEEK_HOLE);
        if (hole < 0) hole = size;
        if (const int error = copyRange(source, target, data, hole - data, memory)) return error;
        at = hole;
    }
    return ::ftruncate(target, size) == 0 ? 0 : errno;
}

int copyAllBytes(int source, int target, const struct stat& status, CopyMemory& memory) {
    if (status.st_size <= static_cast<off_t>(plainCopySize))
        return copyBytes(source, target, 0, status.st_size, memory);
    if (static_cast<off_t>(status.st_blocks) * 512 < status.st_size)
        return copySparse(source, target, status.st_size, memory);
    return copyRange(source, target, 0, status.st_size, memory);
}

int copyContent(int source, int target, const struct stat& status, CopyMemory& memory) {
    if (status.st_size == 0) return 0;
    memory.copyingFrom(status.st_dev);
    if (!memory.cannotClone) {
        if (::ioctl(target, FICLONE, source) == 0) return 0;
        if (volumeFailed(errno)) return errno;
        memory.cannotClone = neverBetweenTheseVolumes(errno);
    }
    const std::int64_t room = std::min<std::int64_t>(status.st_size, std::int64_t{status.st_blocks} * 512);
    if (memory.hasRoom && !memory.hasRoom(room)) return ENOSPC;
    const int error = copyAllBytes(source, target, status, memory);
    if (error == 0 && memory.pending != nullptr) writeOutCopy(target, *memory.pending);
    return error;
}

constexpr std::string_view accessLists = "system.posix_acl_";

// The names of the extended attributes, each ended by a NUL.
template <typename List>
std::string attributeNames(List list) {
    const ssize_t length = list(nullptr, 0);
    if (length <= 0) return {};
    std::string names(static_cast<std::size_t>(length), '\0');
    names.resize(static_cast<std::size_t>(std::max<ssize_t>(list(names.data(), names.size()), 0)));
    return names;
}

template <typename Get, typename Set>
void copyAttribute(const char* name, Get get, Set set) {
    const ssize_t size = get(name, nullptr, 0);
    if (size < 0) return;
    std::string value(static_cast<std::size_t>(size), '\0');
    if (size > 0 && get(name, value.data(), value.size()) != size) return;
    (void)set(name, value.data(), value.size());
}

// Extended attributes are kept as far as the target volume and our rights allow; a label that cannot be written
// (security modules, volumes without attributes) is no reason to lose the content. Access lists come last, because
// they can take away our own right to write the others.
template <typename Get, typename Set>
void copyAttributes(const std::string& names, Get get, Set set) {
    for (const bool lists : {false, true}) {
        for (std::size_t at = 0; at < names.size(); at += std::strlen(names.c_str() + at) + 1) {
            const char* name = names.c_str() + at;
            if (std::string_view(name).starts_with(accessLists) == lists) copyAttribute(name, get, set);
        }
    }
}

// What is made in a folder with a default access list starts with one of its own.
void removeInheritedAccessLists(int target, const std::string& wanted) {
    const std::string names =
        attributeNames([&](char* list, std::size_t size) { return ::flistxattr(target, list, size); });
    for (std::size_t at = 0; at < names.size(); at += std::strlen(names.c_str() + at) + 1) {
        const std::string_view name(names.c_str() + at);
        if (name.starts_with(accessLists) && wanted.find(std::string(name) + '\0') == std::string::npos)
            (void)::fremovexattr(target, name.data());
    }
}

void copyOpenAttributes(int source, int target) {
    const std::string names =
        attributeNames([&](char* list, std::size_t size) { return ::flistxattr(source, list, size); });
    copyAttributes(
        names, [&](const char* name, char* value, std::size_t size) { return ::fgetxattr(source, name, value, size); },
        [&](const char* name, const char* value, std::size_t size) {
            return ::fsetxattr(target, name, value, size, 0);
        });
    removeInheritedAccessLists(target, names);
}

void copyLinkAttributes(const std::string& source, const std::string& target) {
    const std::string names =
        attributeNames([&](char* list, std::size_t size) { return ::llistxattr(source.c_str(), list, size); });
    copyAttributes(
        names,
        [&](const char* name, char* value, std::size_t size) { return ::lgetxattr(source.c_str(), name, value, size); },
        [&](const char* name, const char* value, std::size_t size) {
            return ::lsetxattr(target.c_str(), name, value, size, 0);
        });
}

// A path that names a file within an open folder for the calls that take no folder descriptor.
std::string procPath(Place place) {
    if (place.folder == AT_FDCWD) return place.name;
    return "/proc/self/fd/" + std::to_string(place.folder) + "/" + place.name;
}

// Gives the copy its owner, which only root can do; false when that failed. The copies of other users stay theirs.
bool giveOwner(int target, const struct stat& wanted) {
    if (::geteuid() != 0) return true;
    struct stat made {};
    if (::fstat(target, &made) != 0) return false;
    if (made.st_uid == wanted.st_uid && made.st_gid == wanted.st_gid) return true;
    return ::fchown(target, wanted.st_uid, wanted.st_gid) == 0;
}

// The owner comes first, since a change of owner clears capabilities and set-id bits.
int finishCopy(int source, int target, const struct stat& status, CopyAs as) {
    if (!giveOwner(target, status)) as.mode &= static_cast<std::uint16_t>(~(S_ISUID | S_ISGID));
    copyOpenAttributes(source, target);
    if (::fchmod(target, as.mode) != 0) return errno;
    const timespec times[2] = {as.time ? timespecOf(*as.time) : status.st_atim,
                               as.time ? timespecOf(*as.time) : status.st_mtim};
    return ::futimens(target, times) == 0 ? 0 : errno;
}

} // namespace

int copyOpenFile(int source, const struct stat& status, Place to, CopyAs as, CopyMemory& memory) {
    Descriptor target(::openat(to.folder, to.name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!target) return errno;
    int error = copyContent(source, target.get(), status, memory);
    if (error == 0) error = finishCopy(source, target.get(), status, as);
    if (error == 0 && ::close(target.release()) != 0) error = errno;
    if (error != 0) ::unlinkat(to.folder, to.name, 0);
    return error;
}

int copyLink(Place from, Place to) {
    struct stat status {};
    if (::fstatat(from.folder, from.name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    std::string destination(PATH_MAX, '\0'); // no link is longer
    const ssize_t length = ::readlinkat(from.folder, from.name, destination.data(), destination.size());
    if (length < 0) return errno;
    destination.resize(static_cast<std::size_t>(length));
    if (const int error = makeLink(destination, to)) return error;
    if (::geteuid() == 0) (void)!::fchownat(to.folder, to.name, status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW);
    copyLinkAttributes(procPath(from), procPath(to));
    const timespec times[2] = {status.st_atim, status.st_mtim};
    if (::utimensat(to.folder, to.name, times, AT_SYMLINK_NOFOLLOW) == 0) return 0;
    const int error = errno;
    ::unlinkat(to.folder, to.name, 0);
    return error;
}

void copyOpenExtendedAttributes(int source, int target) {
    copyOpenAttributes(source, target);
}

int exchange(Place a, Place b) {
    return ::renameat2(a.folder, a.name, b.folder, b.name, RENAME_EXCHANGE) == 0 ? 0 : errno;
}

int renameUnlessTaken(Place from, Place to) {
    return ::renameat2(from.folder, from.name, to.folder, to.name, RENAME_NOREPLACE) == 0 ? 0 : errno;
}

void dropAccessList(Place) {} // no access list can do that here

} // namespace tidewrack
