// macOS: clonefile and copyfile, O_NOFOLLOW_ANY, the volume's own type name, CommonCrypto.

#include "Platform/Platform.hpp"

#include <CommonCrypto/CommonDigest.h>
#include <copyfile.h>
#include <fcntl.h>
#include <mach-o/dyld.h>
#include <pwd.h>
#include <sys/attr.h>
#include <sys/clonefile.h>
#include <sys/mount.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#ifndef O_NOFOLLOW_ANY
#define O_NOFOLLOW_ANY 0x20000000
#endif

namespace tidewrack {

namespace {

bool cannotShareBlocks(int error) {
    return error == EXDEV || error == ENOTSUP;
}

int quitAfterDeadline(int, int, copyfile_state_t, const char*, const char*, void* deadline) {
    return passed(*static_cast<const Deadline*>(deadline)) ? COPYFILE_QUIT : COPYFILE_CONTINUE;
}

int copyEverything(int source, int target, const Deadline& deadline) {
    copyfile_state_t state = ::copyfile_state_alloc();
    ::copyfile_state_set(state, COPYFILE_STATE_STATUS_CB, reinterpret_cast<const void*>(&quitAfterDeadline));
    ::copyfile_state_set(state, COPYFILE_STATE_STATUS_CTX, &deadline);
    constexpr copyfile_flags_t everything = COPYFILE_DATA | COPYFILE_XATTR | COPYFILE_ACL;
    const int error = ::fcopyfile(source, target, state, everything) == 0 ? 0 : errno;
    ::copyfile_state_free(state);
    return error;
}

int copyPlain(int source, const struct stat& status, Place to, const Deadline& deadline) {
    Descriptor target(::openat(to.folder, to.name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!target) return errno;
    int error = copyEverything(source, target.get(), deadline);
    if (error == 0 && ::geteuid() == 0) (void)::fchown(target.get(), status.st_uid, status.st_gid);
    const timespec times[2] = {status.st_atimespec, status.st_mtimespec};
    if (error == 0 && ::futimens(target.get(), times) != 0) error = errno;
    if (error == 0 && ::close(target.release()) != 0) error = errno;
    return error;
}

// Extended attributes of a link are read and written through the path of its open folder.
std::string pathOf(Place place) {
    if (place.folder == AT_FDCWD) return place.name;
    char folder[PATH_MAX];
    if (::fcntl(place.folder, F_GETPATH, folder) != 0) return {};
    return std::string(folder) + "/" + place.name;
}

int copyLinkByHand(Place from, const struct stat& status, Place to) {
    std::string destination(static_cast<std::size_t>(status.st_size > 0 ? status.st_size : PATH_MAX) + 1, '\0');
    const ssize_t length = ::readlinkat(from.folder, from.name, destination.data(), destination.size());
    if (length < 0) return errno;
    destination.resize(static_cast<std::size_t>(length));
    if (::symlinkat(destination.c_str(), to.folder, to.name) != 0) return errno;
    const std::string source = pathOf(from);
    const std::string target = pathOf(to);
    if (!source.empty() && !target.empty())
        (void)::copyfile(source.c_str(), target.c_str(), nullptr, COPYFILE_XATTR | COPYFILE_NOFOLLOW);
    const timespec times[2] = {status.st_atimespec, status.st_mtimespec};
    return ::utimensat(to.folder, to.name, times, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

} // namespace

Attributes attributesOf(const struct stat& status) {
    Attributes result;
    if (S_ISREG(status.st_mode))
        result.kind = Attributes::Kind::file;
    else if (S_ISLNK(status.st_mode))
        result.kind = Attributes::Kind::link;
    else if (S_ISDIR(status.st_mode))
        result.kind = Attributes::Kind::folder;
    result.mode = static_cast<std::uint16_t>(status.st_mode & 07777);
    result.size = status.st_size;
    result.mtime = nanosecondsOf(status.st_mtimespec);
    result.ctime = nanosecondsOf(status.st_ctimespec);
    result.ino = status.st_ino;
    result.device = static_cast<std::uint64_t>(status.st_dev);
    result.links = status.st_nlink;
    return result;
}

int openPieceBelow(int root, const char* path, Descriptor& out) {
    const int fd = ::openat(root, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW_ANY | O_CLOEXEC);
    if (fd < 0) return errno;
    out = Descriptor(fd);
    return 0;
}

int copyOpenFile(int source, const struct stat& status, Place to, std::uint16_t mode, CopyMemory& memory) {
    int error = ENOTSUP;
    if (!memory.cannotClone) {
        error = ::fclonefileat(source, to.folder, to.name, 0) == 0 ? 0 : errno;
        memory.cannotClone = cannotShareBlocks(error);
    }
    if (cannotShareBlocks(error))
        error = copyPlain(source, status, to, memory.deadline);
    else if (error != 0)
        return error; // nothing was made, or something else stands there
    if (error == 0 && ::fchmodat(to.folder, to.name, mode, AT_SYMLINK_NOFOLLOW) != 0) error = errno;
    if (error != 0 && error != EEXIST) ::unlinkat(to.folder, to.name, 0);
    return error;
}

int copyLink(Place from, Place to) {
    struct stat status {};
    if (::fstatat(from.folder, from.name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (::clonefileat(from.folder, from.name, to.folder, to.name, CLONE_NOFOLLOW) == 0) return 0;
    if (!cannotShareBlocks(errno)) return errno;
    const int error = copyLinkByHand(from, status, to);
    if (error != 0 && error != EEXIST) ::unlinkat(to.folder, to.name, 0);
    return error;
}

void copyOpenExtendedAttributes(int source, int target) {
    (void)::fcopyfile(source, target, nullptr, COPYFILE_XATTR | COPYFILE_ACL);
}

std::string volumeType(const std::string& path) {
    struct statfs volume {};
    if (::statfs(path.c_str(), &volume) != 0) return {};
    return volume.f_fstypename;
}

bool volumeClones(const std::string& path) {
    return volumeType(path) == "apfs";
}

void disableSigpipe(int fd) {
    (void)::fcntl(fd, F_SETNOSIGPIPE, 1);
}

std::string executablePath() {
    std::uint32_t size = 0;
    (void)::_NSGetExecutablePath(nullptr, &size);
    std::string path(size, '\0');
    if (::_NSGetExecutablePath(path.data(), &size) != 0) return {};
    path.resize(std::strlen(path.c_str()));
    return path;
}

std::array<std::uint8_t, 32> sha256(std::string_view bytes) {
    std::array<std::uint8_t, 32> digest{};
    CC_SHA256(bytes.data(), static_cast<CC_LONG>(bytes.size()), digest.data());
    return digest;
}

std::string homeFolderOfUser() {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 16384> space{};
    if (::getpwuid_r(::getuid(), &entry, space.data(), space.size(), &found) != 0 || found == nullptr) return {};
    return found->pw_dir == nullptr ? std::string() : std::string(found->pw_dir);
}

} // namespace tidewrack
