#include "Support/VolumeFacts.hpp"

#include "Support/TestFolders.hpp"
#include "Support/Text.hpp"

#include <fcntl.h>

namespace tidewrack::testing {

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
