// Linux: a child that the kernel ends together with its parent, and that has no rights it does not need.

#include "Platform/ChildProcess.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace tidewrack {

namespace {

// May call nothing but the kernel: see Spawning.
[[noreturn]] void becomeChild(const Spawning& spawning, int errors, pid_t parent) {
    const rlimit none{0, 0};
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    (void)::signal(SIGXFSZ, SIG_IGN);               // a write then fails, and what it belongs to is cleared up
    const bool parentLives = ::getppid() == parent; // else the signal was asked for too late
    if (parentLives && ::setrlimit(RLIMIT_NPROC, &none) == 0 && ::setrlimit(RLIMIT_FSIZE, &none) == 0 &&
        ::setrlimit(RLIMIT_CORE, &none) == 0 && ::dup2(spawning.input, STDIN_FILENO) >= 0 &&
        ::dup2(spawning.output, STDOUT_FILENO) >= 0 && ::dup2(errors, STDERR_FILENO) >= 0)
        ::execve(spawning.program, spawning.arguments, spawning.environment);
    ::_exit(127);
}

} // namespace

// vfork does not copy the page tables, which takes milliseconds where a large listing is held.
int spawn(const Spawning& spawning, pid_t& process) {
    const Descriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (!nowhere) return errno;
    const pid_t self = ::getpid();
    const pid_t child = ::vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork): see above
    if (child == 0) becomeChild(spawning, nowhere.get(), self); // NOLINT(clang-analyzer-unix.Vfork): only the kernel
    if (child < 0) return errno;
    process = child;
    return 0;
}

} // namespace tidewrack
