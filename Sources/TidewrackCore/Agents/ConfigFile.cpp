#include "Agents/ConfigFile.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tidewrack {

namespace {

constexpr int maxLinks = 40;

[[noreturn]] void fail(const char* action, const std::string& path, int error) {
    throw TidewrackError::io(action, path, error);
}

// Where a write to `path` ends up. Unlike realpath this also works when the last link points at nothing yet, as
// in a home folder whose linked dotfiles are still to be filled.
std::string followedLinks(std::string path) {
    for (int links = 0; links < maxLinks; ++links) {
        char target[4096];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0) return path;
        std::string next = target[0] == '/' ? "" : std::string(parentOf(path)) + '/';
        next.append(target, static_cast<std::size_t>(length));
        path = std::move(next);
    }
    fail("follow", path, ELOOP);
}

struct OpenFile {
    int fd;
    ~OpenFile() { ::close(fd); }
};

} // namespace

std::optional<std::string> readConfig(const std::string& path) {
    // Not blocking: a pipe in the file's place must not make us wait for a writer.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0 && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
    if (fd < 0) fail("read", path, errno);
    const OpenFile file{fd};
    struct stat status {};
    if (::fstat(file.fd, &status) != 0) fail("read", path, errno);
    if (!S_ISREG(status.st_mode)) throw TidewrackError::io("can't read " + path + ": not a regular file");
    std::string bytes;
    char buffer[16384];
    for (;;) {
        const ssize_t count = ::read(file.fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail("read", path, errno);
        if (count == 0) return bytes;
        bytes.append(buffer, static_cast<std::size_t>(count));
    }
}

void removeLeftoversBeside(const std::string& path) {
    for (const std::string& each : {path, followedLinks(path)}) removeLeftovers(std::string(parentOf(each)));
}

std::optional<std::string> replaceConfig(const std::string& path, const std::optional<std::string>& before,
                                         std::string_view bytes) {
    const std::string target = followedLinks(path);
    const std::string folder(parentOf(target));
    if (const int error = makeFolders(folder, 0777)) fail("create", folder, error);
    if (readConfig(target) != before)
        throw TidewrackError::io(path + " was changed by another program meanwhile; run the command again");
    if (!before) {
        writeUserFile(target, bytes, nullptr);
        return std::nullopt;
    }
    struct stat status {};
    if (::stat(target.c_str(), &status) != 0) fail("read", path, errno);
    const std::string backup = path + ".tidewrack-backup";
    writeUserFile(backup, *before, &status);
    writeUserFile(target, bytes, &status);
    return backup;
}

} // namespace tidewrack
