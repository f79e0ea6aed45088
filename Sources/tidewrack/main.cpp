#include "CommandLine.hpp"
#include "Platform/Process.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system declares it

namespace {

// With a standard stream closed, the next file opened would take its number and be written into as output.
void openMissingStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(fd, F_GETFD) < 0) (void)::open("/dev/null", O_RDWR);
}

// Writing past a limit on the size of files must fail, not end the process. The signal has a handler, because programs
// that this one starts would inherit that it is ignored.
void surviveFileSizeLimits() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    (void)::sigaction(SIGXFSZ, &action, nullptr);
}

} // namespace

int main(int count, char** words) {
    using namespace tidewrack;
    openMissingStreams();
    surviveFileSizeLimits();
    Environment environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        if (const char* equals = std::strchr(*entry, '='))
            environment.emplace(std::string(*entry, static_cast<std::size_t>(equals - *entry)), equals + 1);
    Sink out(STDOUT_FILENO, ::isatty(STDOUT_FILENO) == 1);
    Sink err(STDERR_FILENO, ::isatty(STDERR_FILENO) == 1);
    Surroundings around{std::move(environment), currentFolder(), count > 0 ? words[0] : "", out, err, STDIN_FILENO};
    const int status = run(std::vector<std::string>(words + (count > 0 ? 1 : 0), words + count), around);
    // Everything is written; tearing large listings down entry by entry would only take time. Not std::_Exit, which the
    // thread sanitizer does not see: its findings would leave the status as it is.
    ::_exit(status);
}
