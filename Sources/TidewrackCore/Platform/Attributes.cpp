#include "Platform/Attributes.hpp"

#include <fcntl.h>

#include <cerrno>

namespace tidewrack {

std::int64_t nanosecondsOf(const timespec& time) {
    std::int64_t result = 0;
    if (!__builtin_mul_overflow(std::int64_t{time.tv_sec}, nanosPerSecond, &result) &&
        !__builtin_add_overflow(result, std::int64_t{time.tv_nsec}, &result))
        return result;
    return time.tv_sec < 0 ? INT64_MIN : INT64_MAX;
}

int attributesAt(int folder, const char* name, Attributes& out) {
    struct stat status {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    out = attributesOf(status);
    return 0;
}

int attributesOfOpen(int fd, Attributes& out) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) return errno;
    out = attributesOf(status);
    return 0;
}

timespec timespecOf(std::int64_t time) {
    std::int64_t seconds = time / nanosPerSecond;
    std::int64_t nanos = time % nanosPerSecond;
    if (nanos < 0) { // floor, so that times before 1970 keep a positive part
        nanos += nanosPerSecond;
        --seconds;
    }
    timespec result{};
    result.tv_sec = static_cast<time_t>(seconds);
    result.tv_nsec = static_cast<long>(nanos);
    return result;
}

int setModificationTime(int folder, const char* name, std::int64_t mtime) {
    const timespec both[2] = {timespecOf(mtime), timespecOf(mtime)};
    return ::utimensat(folder, name, both, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

} // namespace tidewrack
