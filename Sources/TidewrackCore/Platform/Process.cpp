#include "Platform/Process.hpp"

#include "Platform/OwnError.hpp"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <system_error>

namespace tidewrack {

namespace {

// Writes to a pipe without a reader raise SIGPIPE; blocking it for this thread and taking a pending one away again
// turns it into EPIPE without touching the disposition that child processes inherit.
class SigpipeBlocked {
  public:
    SigpipeBlocked() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    SigpipeBlocked(const SigpipeBlocked&) = delete;
    SigpipeBlocked& operator=(const SigpipeBlocked&) = delete;
    ~SigpipeBlocked() {
        sigset_t pending;
        sigpending(&pending);
        if (!wasPending_ && sigismember(&pending, SIGPIPE) == 1) {
            int signal = 0;
            sigwait(&pipe_, &signal);
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

  private:
    sigset_t pipe_{};
    sigset_t before_{};
    bool wasPending_ = false;
};

} // namespace

int writeAll(int fd, std::string_view bytes) {
    const SigpipeBlocked guard;
    while (!bytes.empty()) {
        const ssize_t count = ::write(fd, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return 0;
}

TerminationDelayed::TerminationDelayed() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, &before_);
}

void TerminationDelayed::release() {
    if (!released_) pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    released_ = true;
}

TerminationIgnored::TerminationIgnored() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGTERM, &ignore, &onTerminate_);
    ::sigaction(SIGHUP, &ignore, &onHangUp_);
}

TerminationIgnored::~TerminationIgnored() {
    ::sigaction(SIGTERM, &onTerminate_, nullptr);
    ::sigaction(SIGHUP, &onHangUp_, nullptr);
}

std::string currentFolder() {
    char* path = ::getcwd(nullptr, 0);
    if (path == nullptr) return {};
    std::string result(path);
    std::free(path); // NOLINT: getcwd allocates with malloc
    return result;
}

bool processIsAlive(std::int64_t pid) {
    if (pid <= 0 || pid > INT_MAX) return false;
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH;
}

std::string errorText(int error) {
    switch (error) {
    case pastDeadline: return "there was no time left to copy it";
    case keptChanging: return "it kept changing while it was copied";
    default: break;
    }
    return std::generic_category().message(error);
}

} // namespace tidewrack
