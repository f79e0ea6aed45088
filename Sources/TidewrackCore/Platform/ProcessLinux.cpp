#include "Platform/Process.hpp"

#include <pwd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>

namespace tidewrack {

void disableSigpipe(int) {} // no such switch on pipes here

std::string executablePath() {
    char path[4096];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    return length <= 0 ? std::string() : std::string(path, static_cast<std::size_t>(length));
}

std::string gitProgram() {
    constexpr const char* path = "/usr/bin/git";
    return ::access(path, X_OK) == 0 ? path : "";
}

const char* openingProgram() {
    return "xdg-open";
}

// Failures do not matter; a kernel without large pages refuses.
void willFill(void* memory, std::size_t size) {
    constexpr std::size_t piece = std::size_t{2} << 20; // the usual one
    // Moves `memory` to where a piece may begin and takes what it skips off `size`.
    if (std::align(piece, piece, memory, size) != nullptr) (void)::madvise(memory, size / piece * piece, MADV_HUGEPAGE);
}

std::string homeFolderOfUser() {
    // Not getpwuid: a program that is linked statically as a whole must not load the system's name services.
    std::FILE* users = std::fopen("/etc/passwd", "re");
    if (users == nullptr) return {};
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 16384> space{};
    std::string folder;
    while (::fgetpwent_r(users, &entry, space.data(), space.size(), &found) == 0 && folder.empty())
        if (found->pw_uid == ::getuid() && found->pw_dir != nullptr) folder = found->pw_dir;
    std::fclose(users); // NOLINT: a FILE has no owner type here
    return folder;
}

} // namespace tidewrack
