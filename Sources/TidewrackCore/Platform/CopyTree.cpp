// Copies of whole folders, made of the platform's copies of single files and links.

#include "Platform/Platform.hpp"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <cstring>

namespace tidewrack {

namespace {

class TreeCopier {
  public:
    explicit TreeCopier(const std::string& skip) {
        Attributes attributes;
        if (skip.empty() || attributesAt(AT_FDCWD, skip.c_str(), attributes) != 0) return;
        skipping_ = true;
        skipDevice_ = attributes.device;
        skipIno_ = attributes.ino;
    }

    int copy(Place from, Place to) {
        Attributes attributes;
        if (const int error = attributesAt(from.folder, from.name, attributes)) return error;
        switch (attributes.kind) {
        case Attributes::Kind::file: return copyFile(from, to);
        case Attributes::Kind::link: return copyLink(from, to);
        case Attributes::Kind::folder: return copyFolder(from, to, attributes);
        case Attributes::Kind::other: return ENOTSUP;
        }
        return ENOTSUP;
    }

  private:
    int copyFile(Place from, Place to) {
        const Descriptor source(::openat(from.folder, from.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!source) return errno;
        struct stat status {};
        if (::fstat(source.get(), &status) != 0) return errno;
        return copyOpenFile(source.get(), status, to, static_cast<std::uint16_t>(status.st_mode & 07777), memory_);
    }

    int copyFolder(Place from, Place to, const Attributes& attributes) {
        const int fd = ::openat(from.folder, from.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return errno;
        if (::mkdirat(to.folder, to.name, 0700) != 0) {
            const int error = errno;
            ::close(fd);
            return error;
        }
        const Descriptor target(::openat(to.folder, to.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        DIR* stream = target ? ::fdopendir(fd) : nullptr;
        if (stream == nullptr) {
            const int error = errno;
            ::close(fd);
            return error;
        }
        int error = copyChildren(stream, target.get());
        if (error == 0) error = finishFolder(::dirfd(stream), target.get(), to, attributes);
        ::closedir(stream);
        return error;
    }

    int copyChildren(DIR* stream, int target) {
        while (const dirent* item = ::readdir(stream)) {
            if (std::strcmp(item->d_name, ".") == 0 || std::strcmp(item->d_name, "..") == 0) continue;
            Attributes attributes;
            if (attributesAt(::dirfd(stream), item->d_name, attributes) != 0) continue; // gone meanwhile
            if (attributes.kind == Attributes::Kind::other || isSkipped(attributes)) continue;
            const int error = copy({::dirfd(stream), item->d_name}, {target, item->d_name});
            if (error != 0 && error != ENOENT) return error;
        }
        return 0;
    }

    static int finishFolder(int source, int target, Place to, const Attributes& attributes) {
        copyOpenExtendedAttributes(source, target);
        struct stat status {};
        if (::geteuid() == 0 && ::fstat(source, &status) == 0) (void)!::fchown(target, status.st_uid, status.st_gid);
        if (::fchmod(target, attributes.mode) != 0) return errno;
        return setModificationTime(to.folder, to.name, attributes.mtime);
    }

    [[nodiscard]] bool isSkipped(const Attributes& attributes) const {
        return skipping_ && attributes.ino == skipIno_ && attributes.device == skipDevice_;
    }

    CopyMemory memory_;
    bool skipping_ = false;
    std::uint64_t skipDevice_ = 0;
    std::uint64_t skipIno_ = 0;
};

} // namespace

int copyTree(const std::string& from, const std::string& to, const std::string& skip) {
    Attributes there;
    if (attributesAt(AT_FDCWD, to.c_str(), there) == 0) return EEXIST;
    TreeCopier copier(skip);
    const int error = copier.copy({AT_FDCWD, from.c_str()}, {AT_FDCWD, to.c_str()});
    if (error != 0) (void)removeTree(to);
    return error;
}

} // namespace tidewrack
