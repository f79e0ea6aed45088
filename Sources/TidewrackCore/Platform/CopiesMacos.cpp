// macOS: clonefile and copyfile.

#include "Platform/Copies.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"

#include <copyfile.h>
#include <fcntl.h>
#include <sys/attr.h>
#include <sys/clonefile.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace tidewrack {

namespace {

bool cannotShareBlocks(int error) {
    return error == EXDEV || error == ENOTSUP;
}

int quitAfterDeadline(int, int, copyfile_state_t, const char*, const char*, void* deadline) {
    return passed(*static_cast<const Deadline*>(deadline)) ? COPYFILE_QUIT : COPYFILE_CONTINUE;
}

// The clone of a locked file would be locked as well: its mode could not be set, and it could never be removed.
bool isLocked(const struct stat& status) {
    return (status.st_flags & (UF_IMMUTABLE | UF_APPEND | SF_IMMUTABLE | SF_APPEND)) != 0;
}

int cloneOpenFile(int source, Place to, CopyAs as) {
    int error = ::fclonefileat(source, to.folder, to.name, CLONE_ACL) == 0 ? 0 : errno;
    if (error == EINVAL) // a system that does not know the flag
        error = ::fclonefileat(source, to.folder, to.name, 0) == 0 ? 0 : errno;
    if (error != 0) return error; // nothing was made, or something else is there
    if (::fchmodat(to.folder, to.name, as.mode, AT_SYMLINK_NOFOLLOW) != 0)
        error = errno;
    else if (as.time)
        error = setModificationTime(to.folder, to.name, *as.time);
    if (error != 0) ::unlinkat(to.folder, to.name, 0);
    return error;
}

// The content with its holes. Attributes and access lists as far as the target volume and our rights allow.
int copyContent(int source, int target, CopyMemory& memory) {
    copyfile_state_t state = ::copyfile_state_alloc();
    ::copyfile_state_set(state, COPYFILE_STATE_STATUS_CB, reinterpret_cast<const void*>(&quitAfterDeadline));
    ::copyfile_state_set(state, COPYFILE_STATE_STATUS_CTX, &memory.deadline);
    int error = ::fcopyfile(source, target, state, COPYFILE_DATA | COPYFILE_DATA_SPARSE) == 0 ? 0 : errno;
    ::copyfile_state_free(state);
    if (error == ECANCELED) error = pastDeadline;
    if (error == 0 && memory.pending != nullptr) writeOutCopy(target, *memory.pending);
    if (error == 0) copyOpenExtendedAttributes(source, target);
    return error;
}

int finishCopy(int target, const struct stat& status, CopyAs as) {
    // Without their owner these bits would lend the rights of the user who copies.
    if (::geteuid() == 0 && ::fchown(target, status.st_uid, status.st_gid) != 0)
        as.mode &= static_cast<std::uint16_t>(~(S_ISUID | S_ISGID));
    if (::fchmod(target, as.mode) != 0) return errno;
    const timespec times[2] = {as.time ? timespecOf(*as.time) : status.st_atimespec,
                               as.time ? timespecOf(*as.time) : status.st_mtimespec};
    return ::futimens(target, times) == 0 ? 0 : errno;
}

int copyPlain(int source, const struct stat& status, Place to, CopyAs as, CopyMemory& memory) {
    Descriptor target(::openat(to.folder, to.name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!target) return errno;
    int error = copyContent(source, target.get(), memory);
    if (error == 0) error = finishCopy(target.get(), status, as);
    if (error == 0 && ::close(target.release()) != 0) error = errno;
    if (error != 0) ::unlinkat(to.folder, to.name, 0);
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
    std::string destination(PATH_MAX, '\0'); // no link is longer
    const ssize_t length = ::readlinkat(from.folder, from.name, destination.data(), destination.size());
    if (length < 0) return errno;
    destination.resize(static_cast<std::size_t>(length));
    if (const int error = makeLink(destination, to)) return error;
    const std::string source = pathOf(from);
    const std::string target = pathOf(to);
    if (!source.empty() && !target.empty())
        (void)::copyfile(source.c_str(), target.c_str(), nullptr, COPYFILE_XATTR | COPYFILE_NOFOLLOW);
    const timespec times[2] = {status.st_atimespec, status.st_mtimespec};
    return ::utimensat(to.folder, to.name, times, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

} // namespace

int copyOpenFile(int source, const struct stat& status, Place to, CopyAs as, CopyMemory& memory) {
    memory.copyingFrom(static_cast<std::uint64_t>(status.st_dev));
    if (!memory.cannotClone && !isLocked(status)) {
        const int error = cloneOpenFile(source, to, as);
        if (!cannotShareBlocks(error)) return error;
        memory.cannotClone = true;
    }
    const std::int64_t room = std::min<std::int64_t>(status.st_size, std::int64_t{status.st_blocks} * 512);
    if (memory.hasRoom && !memory.hasRoom(room)) return ENOSPC;
    return copyPlain(source, status, to, as, memory);
}

int copyLink(Place from, Place to) {
    struct stat status {};
    if (::fstatat(from.folder, from.name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (!isLocked(status)) {
        if (::clonefileat(from.folder, from.name, to.folder, to.name, CLONE_NOFOLLOW) == 0) return 0;
        if (!cannotShareBlocks(errno)) return errno;
    }
    const int error = copyLinkByHand(from, status, to);
    if (error != 0 && error != EEXIST) ::unlinkat(to.folder, to.name, 0);
    return error;
}

void copyOpenExtendedAttributes(int source, int target) {
    (void)::fcopyfile(source, target, nullptr, COPYFILE_XATTR | COPYFILE_ACL);
}

int exchange(Place a, Place b) {
    return ::renameatx_np(a.folder, a.name, b.folder, b.name, RENAME_SWAP) == 0 ? 0 : errno;
}

int renameUnlessTaken(Place from, Place to) {
    return ::renameatx_np(from.folder, from.name, to.folder, to.name, RENAME_EXCL) == 0 ? 0 : errno;
}

// The folders in a home, for example, come with "everyone deny delete".
void dropAccessList(Place item) {
    const Descriptor file(::openat(item.folder, item.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    filesec_t change = ::filesec_init();
    if (change == nullptr) return;
    if (file && ::filesec_set_property(change, FILESEC_ACL, _FILESEC_REMOVE_ACL) == 0)
        (void)::fchmodx_np(file.get(), change);
    ::filesec_free(change);
}

} // namespace tidewrack
