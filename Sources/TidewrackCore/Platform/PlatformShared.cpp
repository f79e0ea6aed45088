#include "Platform/Platform.hpp"

#include "Platform/FolderStream.hpp"

#include <csignal>
#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <system_error>

namespace tidewrack {

namespace {

constexpr std::int64_t nanosPerSecond = 1'000'000'000;

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

// Paths come from listings that may be damaged: none may lead up or away.
bool staysBelow(std::string_view path) {
    if (path.starts_with('/')) return false;
    while (!path.empty()) {
        const auto slash = path.find('/');
        if (path.substr(0, slash) == "..") return false;
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
    }
    return true;
}

// A path up to PATH_MAX is one system call; a longer one is opened piece by piece.
std::size_t pieceLength(std::string_view path) {
    if (path.size() < PATH_MAX) return path.size();
    const auto slash = path.rfind('/', PATH_MAX - 1);
    return slash == std::string_view::npos || slash == 0 ? path.size() : slash;
}

int removeTreeAt(int folder, const char* name);

int removeContents(int folder, const char* name) {
    FolderStream stream(folder, name);
    int first = 0;
    while (const char* item = stream.next()) {
        const int error = removeTreeAt(stream.fd(), item);
        if (first == 0) first = error;
    }
    return first != 0 ? first : stream.error();
}

// Tries once more without the access list that may forbid it.
int unlinkItem(int folder, const char* name, int flags) {
    if (::unlinkat(folder, name, flags) == 0) return 0;
    if (errno != EACCES && errno != EPERM) return errno;
    dropAccessList({folder, name});
    return ::unlinkat(folder, name, flags) == 0 ? 0 : errno;
}

int removeTreeAt(int folder, const char* name) {
    Attributes attributes;
    if (const int error = attributesAt(folder, name, attributes)) return error == ENOENT ? 0 : error;
    if (attributes.kind != Attributes::Kind::folder) return unlinkItem(folder, name, 0);
    if ((attributes.mode & 0700) != 0700) (void)::fchmodat(folder, name, 0700, 0);
    dropAccessList({folder, name}); // it may protect what is in the folder
    const int error = removeContents(folder, name);
    const int own = unlinkItem(folder, name, AT_REMOVEDIR);
    return own != 0 && error != 0 ? error : own;
}

} // namespace

FolderStream::FolderStream(int parent, const char* name)
    : FolderStream(Descriptor(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC))) {}

FolderStream::FolderStream(const std::string& path)
    : FolderStream(Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))) {}

std::int64_t nanosecondsOf(const timespec& time) {
    std::int64_t result = 0;
    if (!__builtin_mul_overflow(std::int64_t{time.tv_sec}, nanosPerSecond, &result) &&
        !__builtin_add_overflow(result, std::int64_t{time.tv_nsec}, &result))
        return result;
    return time.tv_sec < 0 ? INT64_MIN : INT64_MAX;
}

int attributesAt(int folder, const char* name, Attributes& out) {
    struct stat status {};
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    out = attributesOf(status);
    return 0;
}

int attributesOfOpen(int fd, Attributes& out) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) return errno;
    out = attributesOf(status);
    return 0;
}

int openFolderBelow(int root, std::string_view path, Descriptor& out) {
    if (!staysBelow(path)) return EINVAL;
    if (path.empty()) path = ".";
    Descriptor reached;
    while (true) {
        const std::string piece(path.substr(0, pieceLength(path)));
        Descriptor next;
        if (const int error = openPieceBelow(reached ? reached.get() : root, piece.c_str(), next)) return error;
        reached = std::move(next);
        if (piece.size() == path.size()) break;
        path.remove_prefix(piece.size() + 1);
    }
    out = std::move(reached);
    return 0;
}

int openFolder(const std::string& path, Descriptor& out) {
    Descriptor fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) return errno;
    out = std::move(fd);
    return 0;
}

timespec timespecOf(std::int64_t time) {
    std::int64_t seconds = time / nanosPerSecond;
    std::int64_t nanos = time % nanosPerSecond;
    if (nanos < 0) { // floor, so that times before 1970 keep a positive part
        nanos += nanosPerSecond;
        --seconds;
    }
    timespec result{};
    result.tv_sec = static_cast<time_t>(seconds);
    result.tv_nsec = static_cast<long>(nanos);
    return result;
}

int setModificationTime(int folder, const char* name, std::int64_t mtime) {
    const timespec both[2] = {timespecOf(mtime), timespecOf(mtime)};
    return ::utimensat(folder, name, both, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

int removeTree(const std::string& path) {
    return removeTreeAt(AT_FDCWD, path.c_str());
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
    return std::generic_category().message(error);
}

} // namespace tidewrack
