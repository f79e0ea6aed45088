#include "Platform/FileSpace.hpp"

#include <cerrno>

namespace tidewrack {

std::int64_t takenSpace(const struct stat& status) {
    constexpr std::int64_t blockSize = 512; // of st_blocks, whatever the volume's is
    return static_cast<std::int64_t>(status.st_blocks) * blockSize;
}

std::int64_t takenSpace(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? takenSpace(status) : 0;
}

int fileSpace(const std::string& path, FileSpace& out) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return errno;
    out.taken = takenSpace(status);
    out.shared = 0;
    return S_ISREG(status.st_mode) && out.taken > 0 ? sharedSpace(path, out) : 0;
}

} // namespace tidewrack
