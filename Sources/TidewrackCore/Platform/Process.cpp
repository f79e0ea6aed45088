#include "Platform/Process.hpp"

#include "Platform/OwnError.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
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

int makePipe(Descriptor& readEnd, Descriptor& writeEnd) {
    int ends[2];
    if (::pipe(ends) != 0) return errno;
    const Descriptor first(ends[0]);
    const Descriptor second(ends[1]);
    readEnd = Descriptor(::fcntl(first.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!readEnd) return errno;
    writeEnd = Descriptor(::fcntl(second.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    return writeEnd ? 0 : errno;
}

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

namespace {

volatile std::sig_atomic_t foreground = 0; // the program that signals are passed on to

// What the keyboard sends reaches the program by itself, because it belongs to the same terminal.
void passOn(int signal, siginfo_t* from, void* /*unused*/) {
    const int before = errno;
    if (foreground > 0 && from != nullptr && from->si_pid > 0) ::kill(foreground, signal);
    errno = before;
}

// While it lives signals that would end this process are passed on instead. Ignored ones stay ignored.
class SignalsPassedOn {
  public:
    SignalsPassedOn() {
        sigemptyset(&all_);
        for (const int signal : signals) sigaddset(&all_, signal);
        hold();
        struct sigaction pass {};
        pass.sa_sigaction = passOn;
        pass.sa_flags = SA_SIGINFO | SA_RESTART;
        for (std::size_t at = 0; at < signals.size(); ++at) {
            ::sigaction(signals[at], nullptr, &before_[at]);
            if (before_[at].sa_handler != SIG_IGN) ::sigaction(signals[at], &pass, nullptr);
        }
    }
    SignalsPassedOn(const SignalsPassedOn&) = delete;
    SignalsPassedOn& operator=(const SignalsPassedOn&) = delete;
    ~SignalsPassedOn() {
        hold();
        foreground = 0;
        asBefore();
    }

    // In the parent: to whom. Those that have come meanwhile are passed on now.
    void to(pid_t program) const {
        foreground = program;
        release();
    }
    // In the child.
    void asBefore() const {
        for (std::size_t at = 0; at < signals.size(); ++at) ::sigaction(signals[at], &before_[at], nullptr);
        release();
    }

  private:
    static constexpr std::array signals{SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2};

    void hold() { ::sigprocmask(SIG_BLOCK, &all_, &mask_); }
    void release() const { ::sigprocmask(SIG_SETMASK, &mask_, nullptr); }

    sigset_t all_{};
    sigset_t mask_{};
    std::array<struct sigaction, signals.size()> before_{};
};

} // namespace

int runInForeground(const std::vector<std::string>& words, const std::string& folder, int& notRun) {
    constexpr int notStarted = 127;
    notRun = 0;
    // The program's start closes it; a child that can't start the program writes why.
    Descriptor why;
    Descriptor toTell;
    if ((notRun = makePipe(why, toTell)) != 0) return notStarted;
    std::vector<const char*> list;
    list.reserve(words.size() + 1);
    for (const std::string& word : words) list.push_back(word.c_str());
    list.push_back(nullptr);
    const SignalsPassedOn passing;
    const pid_t child = ::fork();
    if (child < 0) {
        notRun = errno;
        return notStarted;
    }
    if (child == 0) {
        passing.asBefore();
        if (::chdir(folder.c_str()) == 0) ::execvp(list[0], const_cast<char* const*>(list.data()));
        const int error = errno;
        (void)writeAll(toTell.get(), {reinterpret_cast<const char*>(&error), sizeof error});
        ::_exit(error == EACCES ? 126 : notStarted);
    }
    passing.to(child);
    toTell.reset();
    while (::read(why.get(), &notRun, sizeof notRun) < 0 && errno == EINTR) {
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return notStarted;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace tidewrack
