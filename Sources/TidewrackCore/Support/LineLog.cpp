#include "Support/LineLog.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace tidewrack {

namespace {

// Readable as well, for the last byte.
Descriptor opened(const std::string& path) {
    constexpr int flags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    return Descriptor(::open(path.c_str(), flags, 0600));
}

bool isTooLong(int fd, std::int64_t longest) {
    Attributes attributes;
    return attributesOfOpen(fd, attributes) == 0 && attributes.size > longest;
}

// Two processes that both find the log too long must not both empty it: the second would delete the first one's line.
// So emptying takes a lock; plain appending needs none.
void emptyWhenTooLong(int fd, std::int64_t longest) {
    if (!isTooLong(fd, longest) || ::flock(fd, LOCK_EX) != 0) return;
    if (isTooLong(fd, longest)) (void)!::ftruncate(fd, 0);
    ::flock(fd, LOCK_UN);
}

bool isStillAt(const std::string& path, int fd) {
    Attributes named;
    Attributes open;
    return attributesAt(AT_FDCWD, path.c_str(), named) == 0 && attributesOfOpen(fd, open) == 0 &&
           named.device == open.device && named.ino == open.ino;
}

// Whether the path may now lead to another file. The lock keeps a second process from renaming the new file over the
// one that was just moved aside. A log that can't be renamed grows on.
bool rotateWhenTooLong(const std::string& path, int fd, std::int64_t longest) {
    if (!isTooLong(fd, longest) || ::flock(fd, LOCK_EX) != 0) return false;
    if (isStillAt(path, fd)) (void)::rename(path.c_str(), rotatedLogPath(path).c_str());
    ::flock(fd, LOCK_UN);
    return true;
}

// A full volume or a death may have cut the last line short; the next one must not go with it.
bool endsAmidLine(int fd) {
    Attributes attributes;
    if (attributesOfOpen(fd, attributes) != 0 || attributes.kind != Attributes::Kind::file) return false;
    char last = '\n';
    return attributes.size > 0 && ::pread(fd, &last, 1, attributes.size - 1) == 1 && last != '\n';
}

} // namespace

std::string rotatedLogPath(const std::string& path) {
    return path + ".1";
}

int appendLine(const std::string& path, std::string_view line, std::int64_t longest, FullLog full) {
    Descriptor file = opened(path);
    if (!file) return errno;
    if (full == FullLog::emptied) {
        emptyWhenTooLong(file.get(), longest);
    } else if (rotateWhenTooLong(path, file.get(), longest)) {
        file = opened(path);
        if (!file) return errno;
    }
    return writeAll(file.get(), (endsAmidLine(file.get()) ? "\n" : "") + std::string(line) + '\n');
}

} // namespace tidewrack
