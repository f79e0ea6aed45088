// Linux: a file's extents tell which of them are shared.

#include "Platform/Descriptor.hpp"
#include "Platform/FileSpace.hpp"

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace tidewrack {

namespace {

constexpr std::uint32_t extentsAtOnce = 64;

std::optional<std::int64_t> sharedBytes(int file) {
    alignas(fiemap) std::array<char, sizeof(fiemap) + extentsAtOnce * sizeof(fiemap_extent)> memory;
    std::int64_t shared = 0;
    std::uint64_t start = 0;
    while (true) {
        memory.fill(0);
        auto* const map = reinterpret_cast<fiemap*>(memory.data());
        map->fm_start = start;
        map->fm_length = UINT64_MAX - start;
        map->fm_extent_count = extentsAtOnce;
        if (::ioctl(file, FS_IOC_FIEMAP, map) != 0) return std::nullopt;
        if (map->fm_mapped_extents == 0) return shared;
        for (std::uint32_t i = 0; i < map->fm_mapped_extents; ++i) {
            fiemap_extent extent;
            std::memcpy(&extent, memory.data() + sizeof(fiemap) + i * sizeof extent, sizeof extent);
            if ((extent.fe_flags & FIEMAP_EXTENT_SHARED) != 0) shared += static_cast<std::int64_t>(extent.fe_length);
            if ((extent.fe_flags & FIEMAP_EXTENT_LAST) != 0) return shared;
            start = extent.fe_logical + extent.fe_length;
        }
    }
}

} // namespace

int sharedSpace(const std::string& path, FileSpace& out) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) return errno;
    out.shared = sharedBytes(file.get());
    if (out.shared) out.shared = std::min(*out.shared, out.taken); // a compressed extent tells its content's length
    return 0;
}

} // namespace tidewrack
