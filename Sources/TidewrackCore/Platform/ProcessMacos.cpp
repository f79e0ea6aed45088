#include "Platform/Process.hpp"

#include <fcntl.h>
#include <mach-o/dyld.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstring>

namespace tidewrack {

void disableSigpipe(int fd) {
    (void)::fcntl(fd, F_SETNOSIGPIPE, 1);
}

std::string executablePath() {
    std::uint32_t size = 0;
    (void)::_NSGetExecutablePath(nullptr, &size);
    std::string path(size, '\0');
    if (::_NSGetExecutablePath(path.data(), &size) != 0) return {};
    path.resize(std::strlen(path.c_str()));
    return path;
}

// /usr/bin/git is always there. It starts the git of the developer tools that are chosen or found in one of the usual
// places, and shows a dialog where there are none.
std::string gitProgram() {
    for (const char* tools : {"/var/db/xcode_select_link", "/Applications/Xcode.app/Contents/Developer",
                              "/Library/Developer/CommandLineTools"})
        if (::access((std::string(tools) + "/usr/bin/git").c_str(), X_OK) == 0) return "/usr/bin/git";
    return {};
}

const char* openingProgram() {
    return "/usr/bin/open";
}

void willFill(void*, std::size_t) {} // there is no such advice here

std::string homeFolderOfUser() {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 16384> space{};
    if (::getpwuid_r(::getuid(), &entry, space.data(), space.size(), &found) != 0 || found == nullptr) return {};
    return found->pw_dir == nullptr ? std::string() : std::string(found->pw_dir);
}

} // namespace tidewrack
