#include "Engine/FolderBelow.hpp"

#include "Platform/OpenFolder.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tidewrack {

int FolderBelow::place(std::string_view path, Place& out) {
    const std::string_view parent = parentOf(path);
    if (!parent_ || parentPath_ != parent) {
        forget();
        if (const int error = openFolderBelow(root_, parent, parent_)) return error;
        parentPath_ = parent;
    }
    name_ = lastComponent(path);
    if (name_.empty() || name_ == "." || name_ == ".." || path.back() == '/') return EINVAL;
    out = {parent_.get(), name_.c_str()};
    return 0;
}

int FolderBelow::attributes(std::string_view path, Attributes& out) {
    Place at;
    if (const int error = place(path, at)) return error;
    return attributesAt(at.folder, at.name, out);
}

int FolderBelow::readLink(std::string_view path, std::string& out) {
    Place at;
    if (const int error = place(path, at)) return error;
    out.resize(4096);
    const ssize_t length = ::readlinkat(at.folder, at.name, out.data(), out.size());
    if (length < 0) return errno;
    out.resize(static_cast<std::size_t>(length));
    return 0;
}

int FolderBelow::removeFile(std::string_view path) {
    Place at;
    if (const int error = place(path, at)) return error;
    return ::unlinkat(at.folder, at.name, 0) == 0 ? 0 : errno;
}

int FolderBelow::removeFolder(std::string_view path) {
    Place at;
    if (const int error = place(path, at)) return error;
    return ::unlinkat(at.folder, at.name, AT_REMOVEDIR) == 0 ? 0 : errno;
}

int FolderBelow::makeFolder(std::string_view path, std::uint16_t mode) {
    Place at;
    if (const int error = place(path, at)) return error;
    if (::mkdirat(at.folder, at.name, mode) != 0) return errno;
    struct stat parent {};
    if (::geteuid() != 0 || ::fstat(at.folder, &parent) != 0) return 0;
    // Otherwise the user's files would be in a folder of root's. The name may lead to something else by now.
    const Descriptor made(::openat(at.folder, at.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (made) (void)!::fchown(made.get(), parent.st_uid, parent.st_gid);
    return 0;
}

int FolderBelow::setMode(std::string_view path, std::uint16_t mode) {
    Place at;
    if (const int error = place(path, at)) return error;
    // Where the system can't do this by itself the library needs /proc, and says EOPNOTSUPP without.
    return ::fchmodat(at.folder, at.name, mode, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

int FolderBelow::setTime(std::string_view path, std::int64_t mtime) {
    Place at;
    if (const int error = place(path, at)) return error;
    return setModificationTime(at.folder, at.name, mtime);
}

void FolderBelow::forget() {
    parent_.reset();
    parentPath_.clear();
}

} // namespace tidewrack
