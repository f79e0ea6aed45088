#include "Platform/OpenFolder.hpp"

#include <fcntl.h>

#include <cerrno>

#ifndef O_NOFOLLOW_ANY
#define O_NOFOLLOW_ANY 0x20000000
#endif

namespace tidewrack {

int openPieceBelow(int root, const char* path, Descriptor& out) {
    const int fd = ::openat(root, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW_ANY | O_CLOEXEC);
    if (fd < 0) return errno;
    out = Descriptor(fd);
    return 0;
}

} // namespace tidewrack
