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
    result.mtime = nanosecondsOf(status.st_mtimespec);
    result.ctime = nanosecondsOf(status.st_ctimespec);
    result.ino = status.st_ino;
    result.device = static_cast<std::uint64_t>(status.st_dev);
    result.links = status.st_nlink;
    return result;
}

// Volumes do not say how fine their clock is; some tick only every ten milliseconds.
std::int64_t earliestStamp() {
    constexpr std::int64_t slowestTick = 10'000'000;
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return nanosecondsOf(now) - slowestTick;
}

} // namespace tidewrack
