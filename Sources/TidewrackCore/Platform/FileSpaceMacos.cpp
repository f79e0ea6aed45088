// macOS: the volume tells how much of a file is its own.

#include "Platform/FileSpace.hpp"

#include <sys/attr.h>
#include <unistd.h>

#include <algorithm>

namespace tidewrack {

namespace {

struct __attribute__((packed, aligned(4))) PrivateSize {
    std::uint32_t length;
    off_t size;
};

} // namespace

int sharedSpace(const std::string& path, FileSpace& out) {
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
