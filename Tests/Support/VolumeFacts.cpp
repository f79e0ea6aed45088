#include "Support/VolumeFacts.hpp"

#include "Support/TestFolders.hpp"
#include "Support/Text.hpp"

#include <fcntl.h>
#ifdef __APPLE__
// As in the system's <sys/xattr.h>, which the cross compiler's headers lack.
extern "C" int setxattr(const char*, const char*, const void*, std::size_t, std::uint32_t, int);
extern "C" ssize_t getxattr(const char*, const char*, void*, std::size_t, std::uint32_t, int);
#else
#include <sys/xattr.h>
#endif

#include <array>

namespace tidewrack::testing {

bool setExtendedAttribute(const std::string& path, const char* name, const std::string& value) {
#ifdef __APPLE__
    return ::setxattr(path.c_str(), name, value.data(), value.size(), 0, 0) == 0;
#else
    return ::setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
#endif
}

std::string extendedAttribute(const std::string& path, const char* name) {
    std::array<char, 256> value{};
#ifdef __APPLE__
    const ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size(), 0, 0);
#else
    const ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size());
#endif
    return size < 0 ? "<none>" : std::string(value.data(), static_cast<std::size_t>(size));
}

bool volumesTakeAnyBytes() {
    static const bool taken = [] {
        const TemporaryFolder folder;
        return Descriptor(::open(folder.at("\xff").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)).get() >= 0;
    }();
    return taken;
}

std::string ofAnyBytes(const std::string& path) {
    if (volumesTakeAnyBytes() || isUtf8(path)) return path;
    std::string result;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            result += c;
        else // U+4E00 and on: letters that have one form only
            result += {'\xe4', static_cast<char>(0xb8 | (byte >> 6 & 1)), static_cast<char>(0x80 | (byte & 0x3f))};
    }
    return result;
}

} // namespace tidewrack::testing
