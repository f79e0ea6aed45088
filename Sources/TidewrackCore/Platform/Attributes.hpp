#pragma once
// What the system tells of a path, and its times.
// Work on one path returns an errno value (0 is success); nothing here throws or prints.

#include <sys/stat.h>

#include <cstdint>

namespace tidewrack {

inline constexpr std::int64_t nanosPerSecond = 1'000'000'000;

// Nanoseconds since the epoch; a time that 64 bits cannot count (before 1677, after 2262) becomes the nearest one.
[[nodiscard]] std::int64_t nanosecondsOf(const timespec& time);

// What lstat tells of one path. Times are nanoseconds since the epoch, `mode` the low 12 permission bits.
struct Attributes {
    enum class Kind : std::uint8_t { file, link, folder, other };

    Kind kind = Kind::other;
    std::uint16_t mode = 0;
    std::int64_t size = 0;
    std::int64_t mtime = 0;
    std::int64_t ctime = 0;
    std::uint64_t ino = 0;
    std::uint64_t device = 0;
    std::uint64_t links = 0;

    bool operator==(const Attributes&) const = default;
};

[[nodiscard]] Attributes attributesOf(const struct stat& status);

// lstat of `name` in an open folder (or AT_FDCWD); fstat of an open file.
[[nodiscard]] int attributesAt(int folder, const char* name, Attributes& out);
[[nodiscard]] int attributesOfOpen(int fd, Attributes& out);

// The inverse of nanosecondsOf.
[[nodiscard]] timespec timespecOf(std::int64_t time);

// Sets the modification and access time (nanoseconds since the epoch) of a path without following a link.
[[nodiscard]] int setModificationTime(int folder, const char* name, std::int64_t mtime);

// The earliest time, in nanoseconds since the epoch, that a change made from now on is stamped with, on volumes that
// use this machine's clock. Volumes that keep coarser times cut it down.
[[nodiscard]] std::int64_t earliestStamp();

} // namespace tidewrack
