// Linux: openat2, which can refuse symbolic links anywhere in a path.

#include "Platform/OpenFolder.hpp"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace tidewrack {

namespace {

constexpr int openFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// For kernels before 5.6 and sandboxes that do not know openat2.
int openOneByOne(int root, std::string_view path, Descriptor& out) {
    Descriptor reached;
    while (true) {
        const std::string name(path.substr(0, path.find('/')));
        Descriptor next(::openat(reached ? reached.get() : root, name.c_str(), openFolderFlags));
        if (!next) return errno;
        reached = std::move(next);
        if (name.size() == path.size()) break;
        path.remove_prefix(name.size() + 1);
    }
    out = std::move(reached);
    return 0;
}

} // namespace

int openPieceBelow(int root, const char* path, Descriptor& out) {
    open_how how{};
    how.flags = openFolderFlags;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long fd = ::syscall(SYS_openat2, root, path, &how, sizeof how);
    if (fd < 0 && (errno == ENOSYS || errno == EPERM)) return openOneByOne(root, path, out);
    if (fd < 0) return errno;
    out = Descriptor(static_cast<int>(fd));
    return 0;
}

} // namespace tidewrack
