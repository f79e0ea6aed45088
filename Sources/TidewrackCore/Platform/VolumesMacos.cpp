// macOS: the volume's own type name.

#include "Platform/Volumes.hpp"

#include "Platform/Attributes.hpp"

#include <fcntl.h>
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

std::optional<std::string> adviceOnClones() {
    return std::nullopt; // the system's own volumes do it
}

bool sameVolume(const std::string& a, const std::string& b) {
    Attributes one;
    Attributes other;
    return attributesAt(AT_FDCWD, a.c_str(), one) == 0 && attributesAt(AT_FDCWD, b.c_str(), other) == 0 &&
           one.device == other.device;
}

bool volumeIgnoresCase(const std::string& path) {
    return ::pathconf(path.c_str(), _PC_CASE_SENSITIVE) == 0;
}

} // namespace tidewrack
