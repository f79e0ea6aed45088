#include "Platform/FileSpace.hpp"

#include <sys/stat.h>

#include <cerrno>

namespace tidewrack {

int fileSpace(const std::string& path, FileSpace& out) {
    constexpr std::int64_t blockSize = 512; // of st_blocks, whatever the volume's is
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return errno;
    out.taken = static_cast<std::int64_t>(status.st_blocks) * blockSize;
    out.shared = 0;
    return S_ISREG(status.st_mode) && out.taken > 0 ? sharedSpace(path, out) : 0;
}

} // namespace tidewrack
