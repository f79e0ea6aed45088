#include "Platform/Attributes.hpp"

#include <ctime>

namespace tidewrack {

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
    result.mtime = nanosecondsOf(status.st_mtim);
    result.ctime = nanosecondsOf(status.st_ctim);
    result.ino = status.st_ino;
    result.device = status.st_dev;
    result.links = status.st_nlink;
    return result;
}

// The kernel stamps with the time of the latest tick of its timer.
std::int64_t earliestStamp() {
    timespec tick{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &tick);
    return nanosecondsOf(tick);
}

} // namespace tidewrack
