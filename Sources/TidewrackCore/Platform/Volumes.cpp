#include "Platform/Volumes.hpp"

#include <sys/statvfs.h>

namespace tidewrack {

VolumeRoom volumeRoom(const std::string& path) {
    struct statvfs volume {};
    if (::statvfs(path.c_str(), &volume) != 0) return {};
    const auto block = static_cast<std::int64_t>(volume.f_frsize);
    return {static_cast<std::int64_t>(volume.f_blocks) * block, static_cast<std::int64_t>(volume.f_bavail) * block};
}

} // namespace tidewrack
