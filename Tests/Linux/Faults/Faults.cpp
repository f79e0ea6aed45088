// The calls that change the disk, as the test program tidewrack_faulty makes them: each is counted, and the one with
// the chosen number goes wrong. The environment says how:
//   TIDEWRACK_FAULT_AT      the number of the call, from 1
//   TIDEWRACK_FAULT_KIND    "death":     the process is killed there; of a write half is done
//                           "power cut": as well, and every content that was not on the disk yet is lost; its file
//                                        keeps size and times
//                           "write":     somebody adds a line to the file that is about to step aside; only calls that
//                                        move a file in or out of its place are counted
//                           an error's number: that call fails with it, once. Opening and reading are counted too
//   TIDEWRACK_FAULT_REPORT  a file that receives the name of the call
// Defined in the program itself, these functions come before the C library's; each asks the kernel directly.

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

namespace {

template <typename... Arguments>
long kernel(long number, Arguments... arguments) {
    return ::syscall(number, arguments...);
}

// Files with contents that are not on the disk yet, each by a descriptor of its own.
class Unwritten {
  public:
    void wrote(int fd) {
        const std::lock_guard lock(mutex_);
        const auto [place, isNew] = files_.try_emplace(identityOf(fd), -1);
        if (isNew) place->second = static_cast<int>(kernel(SYS_fcntl, fd, F_DUPFD_CLOEXEC, 100));
    }
    void flushed(int fd) {
        const std::lock_guard lock(mutex_);
        files_.erase(identityOf(fd));
    }
    void flushedAll() {
        const std::lock_guard lock(mutex_);
        files_.clear();
    }
    void lose() {
        const std::lock_guard lock(mutex_);
        for (const auto& [identity, fd] : files_) {
            struct stat status {};
            if (::fstat(fd, &status) != 0) continue;
            kernel(SYS_ftruncate, fd, 0L);
            kernel(SYS_ftruncate, fd, status.st_size);
            const timespec times[2] = {status.st_atim, status.st_mtim};
            kernel(SYS_utimensat, fd, nullptr, times, 0);
        }
    }

  private:
    using Identity = std::pair<dev_t, ino_t>;
    static Identity identityOf(int fd) {
        struct stat status {};
        return ::fstat(fd, &status) == 0 ? Identity(status.st_dev, status.st_ino) : Identity();
    }
    std::mutex mutex_;
    std::map<Identity, int> files_;
};

class Fault {
  public:
    enum class Call { changes, reads, end, moves };

    Fault() {
        const char* at = std::getenv("TIDEWRACK_FAULT_AT");
        const char* kind = std::getenv("TIDEWRACK_FAULT_KIND");
        if (at == nullptr || kind == nullptr) return;
        at_ = std::atol(at);
        error_ = std::atoi(kind);
        losesContents_ = std::strcmp(kind, "power cut") == 0;
        writes_ = std::strcmp(kind, "write") == 0;
    }

    // Whether this call fails, with errno set; does not return where it ends the process. `half` is what a dying write
    // still does.
    template <typename Half>
    bool strikes(const char* name, Call call, Half half) {
        const std::lock_guard lock(mutex_);
        if (at_ == 0 || !counts(call) || ++count_ != at_) return false;
        report(name);
        if (error_ != 0) {
            errno = error_;
            return true;
        }
        half();
        if (writes_) return false;
        if (losesContents_) unwritten.lose();
        kernel(SYS_kill, kernel(SYS_getpid), SIGKILL);
        std::abort(); // not reached
    }
    bool strikes(const char* name, Call call = Call::changes) {
        return strikes(name, call, [] {});
    }

    Unwritten unwritten;

    // Somebody writes at this moment into the file with this name, or makes it.
    void moves(const char* name, int folder, const char* place) {
        struct stat status {};
        const bool there = ::fstatat(folder, place, &status, AT_SYMLINK_NOFOLLOW) == 0;
        if (!writes_ || (there && !S_ISREG(status.st_mode))) return;
        (void)strikes(name, Call::moves, [&] {
            constexpr const char* line = "somebody's words\n";
            const long fd = kernel(SYS_openat, folder, place, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
            kernel(SYS_write, fd, line, std::strlen(line));
            kernel(SYS_close, fd);
        });
    }

  private:
    [[nodiscard]] bool counts(Call call) const {
        if (writes_ || call == Call::moves) return writes_ && call == Call::moves;
        return call == Call::changes || (call == Call::reads) == (error_ != 0);
    }

    static void report(const char* name) {
        const char* path = std::getenv("TIDEWRACK_FAULT_REPORT");
        if (path == nullptr) return;
        const long fd = kernel(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        kernel(SYS_write, fd, name, std::strlen(name));
        kernel(SYS_close, fd);
    }

    std::mutex mutex_;
    long at_ = 0; // 0: nothing goes wrong
    long count_ = 0;
    int error_ = 0;
    bool losesContents_ = false;
    bool writes_ = false;
};

Fault& fault() {
    static Fault theFault;
    return theFault;
}

// A call that changes names or attributes.
template <typename... Arguments>
int change(const char* name, long number, Arguments... arguments) {
    return fault().strikes(name) ? -1 : static_cast<int>(kernel(number, arguments...));
}

// A call that brings one file's content to the disk.
int bringOut(const char* name, int fd, long number, long a = 0, long b = 0, long c = 0) {
    if (fault().strikes(name)) return -1;
    const long result = kernel(number, fd, a, b, c);
    if (result == 0) fault().unwritten.flushed(fd);
    return static_cast<int>(result);
}

int openAny(int folder, const char* path, int flags, mode_t mode) {
    const bool writes = (flags & (O_ACCMODE | O_CREAT | O_TRUNC)) != O_RDONLY;
    if (fault().strikes(writes ? "open for writing" : "open", writes ? Fault::Call::changes : Fault::Call::reads))
        return -1;
    return static_cast<int>(kernel(SYS_openat, folder, path, flags, mode));
}

mode_t modeOf(int flags, va_list rest) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
}

// The descriptors that carry the program's own output are no disk.
bool isFile(int fd) {
    return fd > STDERR_FILENO;
}

} // namespace

// One that the program defines in the C library's place.
#define CHANGING(name, parameters, ...)                                                                                \
    int name parameters noexcept {                                                                                     \
        return change(#name, __VA_ARGS__);                                                                             \
    }

extern "C" {

int open64(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, rest);
    va_end(rest);
    return openAny(AT_FDCWD, path, flags, mode);
}
int openat64(int folder, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = modeOf(flags, rest);
    va_end(rest);
    return openAny(folder, path, flags, mode);
}

ssize_t read(int fd, void* buffer, size_t size) {
    if (isFile(fd) && fault().strikes("read", Fault::Call::reads)) return -1;
    return kernel(SYS_read, fd, buffer, size);
}
ssize_t pread64(int fd, void* buffer, size_t size, off64_t at) {
    return fault().strikes("pread", Fault::Call::reads) ? -1 : kernel(SYS_pread64, fd, buffer, size, at);
}

ssize_t getdents64(int fd, void* buffer, size_t size) noexcept {
    return fault().strikes("getdents", Fault::Call::reads) ? -1 : kernel(SYS_getdents64, fd, buffer, size);
}

ssize_t write(int fd, const void* bytes, size_t size) {
    if (!isFile(fd)) return kernel(SYS_write, fd, bytes, size);
    if (fault().strikes("write", Fault::Call::changes, [&] { kernel(SYS_write, fd, bytes, size / 2); })) return -1;
    fault().unwritten.wrote(fd);
    return kernel(SYS_write, fd, bytes, size);
}
ssize_t pwrite64(int fd, const void* bytes, size_t size, off64_t at) {
    if (fault().strikes("pwrite", Fault::Call::changes, [&] { kernel(SYS_pwrite64, fd, bytes, size / 2, at); }))
        return -1;
    fault().unwritten.wrote(fd);
    return kernel(SYS_pwrite64, fd, bytes, size, at);
}
ssize_t copy_file_range(int from, off64_t* at, int to, off64_t* target, size_t size, unsigned flags) {
    if (fault().strikes("copy_file_range")) return -1;
    fault().unwritten.wrote(to);
    return kernel(SYS_copy_file_range, from, at, to, target, size, flags);
}
// Only of a file that was written does it tell anything.
int close(int fd) {
    const bool written = isFile(fd) && (kernel(SYS_fcntl, fd, F_GETFL) & O_ACCMODE) != O_RDONLY;
    const bool fails = written && fault().strikes("close");
    const int error = errno;
    const long result = kernel(SYS_close, fd);
    if (fails) errno = error;
    return fails ? -1 : static_cast<int>(result);
}
CHANGING(ftruncate64, (int fd, off64_t size), SYS_ftruncate, fd, size)
int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list rest;
    va_start(rest, request);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return change("ioctl", SYS_ioctl, fd, request, argument);
}

int fsync(int fd) {
    return bringOut("fsync", fd, SYS_fsync);
}
int fdatasync(int fd) {
    return bringOut("fdatasync", fd, SYS_fdatasync);
}
int sync_file_range(int fd, off64_t at, off64_t size, unsigned flags) {
    if ((flags & SYNC_FILE_RANGE_WAIT_AFTER) == 0) // only begins it
        return change("sync_file_range", SYS_sync_file_range, fd, at, size, flags);
    return bringOut("sync_file_range", fd, SYS_sync_file_range, at, size, flags);
}
int syncfs(int fd) noexcept {
    if (fault().strikes("syncfs")) return -1;
    fault().unwritten.flushedAll();
    return static_cast<int>(kernel(SYS_syncfs, fd));
}

CHANGING(rename, (const char* from, const char* to), SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0)
int renameat(int from, const char* name, int to, const char* other) noexcept {
    fault().moves("renameat", from, name);
    return change("renameat", SYS_renameat2, from, name, to, other, 0);
}
int renameat2(int from, const char* name, int to, const char* other, unsigned flags) noexcept {
    fault().moves("renameat2", to, other);
    return change("renameat2", SYS_renameat2, from, name, to, other, flags);
}
int linkat(int from, const char* name, int to, const char* other, int flags) noexcept {
    fault().moves("linkat", to, other);
    return change("linkat", SYS_linkat, from, name, to, other, flags);
}
CHANGING(symlinkat, (const char* destination, int folder, const char* name), SYS_symlinkat, destination, folder, name)
CHANGING(unlink, (const char* path), SYS_unlinkat, AT_FDCWD, path, 0)
CHANGING(unlinkat, (int folder, const char* name, int flags), SYS_unlinkat, folder, name, flags)
CHANGING(rmdir, (const char* path), SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR)
CHANGING(mkdir, (const char* path, mode_t mode), SYS_mkdirat, AT_FDCWD, path, mode)
CHANGING(mkdirat, (int folder, const char* name, mode_t mode), SYS_mkdirat, folder, name, mode)
CHANGING(fchmod, (int fd, mode_t mode), SYS_fchmod, fd, mode)
CHANGING(fchmodat, (int folder, const char* name, mode_t mode, int), SYS_fchmodat, folder, name, mode)
CHANGING(fchown, (int fd, uid_t user, gid_t group), SYS_fchown, fd, user, group)
CHANGING(fsetxattr, (int fd, const char* name, const void* value, size_t size, int flags), SYS_fsetxattr, fd, name,
         value, size, flags)
CHANGING(futimens, (int fd, const timespec times[2]), SYS_utimensat, fd, nullptr, times, 0)
CHANGING(utimensat, (int folder, const char* name, const timespec times[2], int flags), SYS_utimensat, folder, name,
         times, flags)

// Everything is done, but not all of it may be on the disk.
void _exit(int status) {
    (void)fault().strikes("end", Fault::Call::end, [] {});
    kernel(SYS_exit_group, status);
    std::abort(); // not reached
}

} // extern "C"
