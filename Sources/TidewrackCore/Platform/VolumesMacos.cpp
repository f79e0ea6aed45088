// macOS: the volume's own type name.

#include "Platform/Volumes.hpp"

#include <sys/mount.h>
#include <unistd.h>

namespace tidewrack {

std::string volumeType(const std::string& path) {
    struct statfs volume {};
    if (::statfs(path.c_str(), &volume) != 0) return {};
    return volume.f_fstypename;
}

bool volumeClones(const std::string& path) {
    return volumeType(path) == "apfs";
}

bool volumeIgnoresCase(const std::string& path) {
    return ::pathconf(path.c_str(), _PC_CASE_SENSITIVE) == 0;
}

} // namespace tidewrack
