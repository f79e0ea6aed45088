#include "Agents/HookLog.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Process.hpp"
#include "Support/Dates.hpp"
#include "Support/Text.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>

namespace tidewrack {

namespace {

bool isTooLong(int fd) {
    Attributes attributes;
    return attributesOfOpen(fd, attributes) == 0 && attributes.size > HookLog::longest;
}

// Two hooks that both find the log too long must not both empty it: the second would take the first one's line with
// it. So this happens, and is waited for, under a lock; plain appending needs none.
void emptyWhenTooLong(int fd) {
    if (!isTooLong(fd) || ::flock(fd, LOCK_EX) != 0) return;
    if (isTooLong(fd)) (void)!::ftruncate(fd, 0);
    ::flock(fd, LOCK_UN);
}

} // namespace

Descriptor HookLog::open() const {
    const std::string path = store_.home + "/hooks.log";
    // O_NONBLOCK: a pipe in its place must not hold up the agent.
    constexpr int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    Descriptor file(::open(path.c_str(), flags, 0600));
    if (!file && errno == ENOENT && store_.makeHome() == 0) file = Descriptor(::open(path.c_str(), flags, 0600));
    return file;
}

void HookLog::append(std::string_view agent, std::string_view event, Instant start, std::string_view message) const {
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    std::string line = isoText(now());
    line.append(" ").append(agent).append(" ").append(event).append(" ");
    line.append(std::to_string(elapsed)).append("ms ").append(message);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r' || c == '\0'; }, ' ');
    line = repairedUtf8(line) + '\n';
    const Descriptor file = open();
    if (!file) return;
    emptyWhenTooLong(file.get());
    (void)writeAll(file.get(), line);
}

} // namespace tidewrack
