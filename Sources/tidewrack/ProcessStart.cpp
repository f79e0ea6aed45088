#include "ProcessStart.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system declares it

namespace tidewrack {

namespace {

// With a standard stream closed, the next file opened would take its number and be written into as output.
void openMissingStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(fd, F_GETFD) < 0) (void)::open("/dev/null", O_RDWR);
}

// The signal has a handler, because programs that this one starts would inherit that it is ignored.
void surviveFileSizeLimits() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    (void)::sigaction(SIGXFSZ, &action, nullptr);
}

} // namespace

void prepareProcess() {
    openMissingStreams();
    surviveFileSizeLimits();
}

Environment environmentOfProcess() {
    Environment environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        if (const char* equals = std::strchr(*entry, '='))
            environment.emplace(std::string(*entry, static_cast<std::size_t>(equals - *entry)), equals + 1);
    return environment;
}

} // namespace tidewrack
