#include "Support/LineLog.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace tidewrack {

namespace {

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

} // namespace

int appendLine(const std::string& path, std::string_view line, std::int64_t longest) {
    constexpr int flags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const Descriptor file(::open(path.c_str(), flags, 0600));
    if (!file) return errno;
    emptyWhenTooLong(file.get(), longest);
    return writeAll(file.get(), std::string(line) + '\n');
}

} // namespace tidewrack
