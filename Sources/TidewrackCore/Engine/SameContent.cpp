#include "Engine/SameContent.hpp"

#include "Platform/Descriptor.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

namespace tidewrack {

namespace {

constexpr std::size_t blockSize = std::size_t{128} * 1024;

// Fills the block, but for the file's end. -1 and errno on failure.
ssize_t readBlock(int fd, char* block) {
    std::size_t have = 0;
    while (have < blockSize) {
        const ssize_t count = ::read(fd, block + have, blockSize - have);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return -1;
        if (count == 0) break;
        have += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(have);
}

Descriptor openToRead(Place place) {
    return Descriptor(::openat(place.folder, place.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

} // namespace

bool sameContent(Place a, Place b) {
    const Descriptor first = openToRead(a);
    const Descriptor second = openToRead(b);
    if (!first || !second) return false;
    struct stat ofFirst {};
    struct stat ofSecond {};
    if (::fstat(first.get(), &ofFirst) != 0 || ::fstat(second.get(), &ofSecond) != 0) return false;
    if (!S_ISREG(ofFirst.st_mode) || !S_ISREG(ofSecond.st_mode) || ofFirst.st_size != ofSecond.st_size) return false;
    thread_local const auto blocks = std::make_unique<char[]>(2 * blockSize);
    char* const other = blocks.get() + blockSize;
    while (true) {
        const ssize_t count = readBlock(first.get(), blocks.get());
        if (count < 0 || readBlock(second.get(), other) != count) return false;
        if (std::memcmp(blocks.get(), other, static_cast<std::size_t>(count)) != 0) return false;
        if (static_cast<std::size_t>(count) < blockSize) return true;
    }
}

bool sameContent(const std::string& a, const std::string& b) {
    return sameContent({AT_FDCWD, a.c_str()}, {AT_FDCWD, b.c_str()});
}

bool sameLink(Place a, Place b) {
    std::array<char, 4097> first{};
    std::array<char, 4097> second{};
    const ssize_t size = ::readlinkat(a.folder, a.name, first.data(), first.size());
    return size > 0 && ::readlinkat(b.folder, b.name, second.data(), second.size()) == size &&
           std::memcmp(first.data(), second.data(), static_cast<std::size_t>(size)) == 0;
}

bool sameLink(const std::string& a, const std::string& b) {
    return sameLink({AT_FDCWD, a.c_str()}, {AT_FDCWD, b.c_str()});
}

} // namespace tidewrack
