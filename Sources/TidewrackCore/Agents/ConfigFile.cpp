#include "Agents/ConfigFile.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

// Whether the bytes are the beginning of the text, but for the program that it names, which may lie elsewhere by now.
bool beginsLike(std::string_view bytes, std::string_view text) {
    const auto [ended, differs] = std::mismatch(bytes.begin(), bytes.end(), text.begin(), text.end());
    if (ended == bytes.end()) return true;
    const auto at = static_cast<std::size_t>(differs - text.begin());
    const auto line = text.substr(0, at).rfind('\n') + 1; // 0 on the first one
    return text.substr(line, text.find('\n', at) - line).find("tidewrack") != std::string_view::npos;
}

bool isOurs(const std::string& path, const std::vector<std::string>& texts) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    if (status.st_uid != ::geteuid() || status.st_nlink != 1) return false;
    std::string bytes;
    if (readFile(path, bytes) != 0) return false;
    // A power cut leaves nothing but zeros of what was not on the disk yet.
    if (bytes.find_first_not_of('\0') == std::string::npos) return true;
    return std::any_of(texts.begin(), texts.end(), [&](const std::string& text) { return beginsLike(bytes, text); });
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

void removeLeftoversBeside(const std::string& path, std::vector<std::string> texts) {
    std::string old; // which a replacement that was cut short leaves under the temporary name
    if (readFile(backupPath(path), old) == 0) texts.push_back(std::move(old));
    for (const std::string& each : {path, followedLinks(path)}) {
        const std::string folder(parentOf(each));
        try {
            for (const std::string& name : listFolder(folder))
                if (isLeftover(name) && isOurs(joined(folder, name), texts))
                    (void)::unlink(joined(folder, name).c_str());
        } catch (const TidewrackError&) { // they are for the next one to remove
        }
    }
}

namespace {

[[noreturn]] void failChanged(const std::string& path) {
    throw TidewrackError::io(path + " was changed by another program meanwhile; run the command again");
}

void requireUnchanged(const std::string& path, const std::string& target, const std::optional<std::string>& before) {
    if (readConfig(target) != before) failChanged(path);
}

} // namespace

void removeConfig(const std::string& path, const std::string& before) {
    const std::string target = followedLinks(path);
    requireUnchanged(path, target, before);
    if (::unlink(target.c_str()) != 0) fail("remove", target, errno);
}

std::string backupPath(const std::string& path) {
    return path + ".tidewrack-backup";
}

std::optional<std::string> replaceConfig(const std::string& path, const std::optional<std::string>& before,
                                         std::string_view bytes) {
    const std::string target = followedLinks(path);
    const std::string folder(parentOf(target));
    if (const int error = makeFolders(folder, 0777)) fail("create", folder, error);
    requireUnchanged(path, target, before);
    if (!before) {
        if (!replaceUserFile(target, before, bytes, nullptr)) failChanged(path);
        return std::nullopt;
    }
    struct stat status {};
    if (::stat(target.c_str(), &status) != 0) fail("read", path, errno);
    const std::string backup = backupPath(path);
    writeUserFile(backup, *before, &status);
    if (!replaceUserFile(target, before, bytes, &status)) failChanged(path);
    return backup;
}

} // namespace tidewrack
