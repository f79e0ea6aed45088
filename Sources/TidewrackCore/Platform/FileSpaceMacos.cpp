// macOS: the volume tells how much of a file is its own.

#include "Platform/FileSpace.hpp"

#include <sys/attr.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tidewrack {

namespace {

struct __attribute__((packed, aligned(4))) PrivateSize {
    std::uint32_t length;
    off_t size;
};

} // namespace

int fileSpace(const std::string& path, FileSpace& out) {
    constexpr std::int64_t blockSize = 512; // of st_blocks, whatever the volume's is
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return errno;
    out.taken = static_cast<std::int64_t>(status.st_blocks) * blockSize;
    out.shared = 0;
    if (!S_ISREG(status.st_mode) || out.taken == 0) return 0;
    struct attrlist wanted {};
    wanted.bitmapcount = ATTR_BIT_MAP_COUNT;
    wanted.forkattr = ATTR_CMNEXT_PRIVATESIZE;
    PrivateSize own{};
    out.shared.reset();
    if (::getattrlist(path.c_str(), &wanted, &own, sizeof own, FSOPT_NOFOLLOW | FSOPT_ATTR_CMN_EXTENDED) != 0) return 0;
    if (own.length >= sizeof own) out.shared = std::max<std::int64_t>(out.taken - own.size, 0);
    return 0;
}

} // namespace tidewrack
