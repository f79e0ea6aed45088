// The calls that change the disk, as the test program tidewrack_faulty makes them: each is counted, and the one with
// the chosen number goes wrong. The environment says how:
//   TIDEWRACK_FAULT_AT      the number of the call, from 1
//   TIDEWRACK_FAULT_KIND    "death":     the process is killed there; of a write half is done
//                           "power cut": as well, and every content that was not on the disk yet is lost; its file
//                                        keeps size and times
//                           "later flush": the power is cut after the process has ended, and after another program has
//                                        flushed a later change: new names are lost as well, but for flushed ones
//                           "write":     a line is added to the file that is about to be moved aside; only calls that
//                                        move a file in or out of its place are counted
//                           "write twice": as well, and once the file has moved a line is added under its name again
//                           "write, death", "write twice, death": and then the process is killed
//                           "twice":     a change of a name is made twice, as a network volume does whose answer was
//                                        lost, and the second answer counts. An exchange is not
//                           an error's number: that call fails with it, once. Opening and reading are counted too
//   TIDEWRACK_FAULT_VOLUME  "btrfs": the volume says that it is of that type, and a flushed file takes no other names
//                           along; "unknown": the same of an unknown type; "ext4": it says that it is of that type;
//                           "plain": it can neither exchange two names nor refuse to replace one; "timeless": it sets
//                           no times
//   TIDEWRACK_FAULT_REPORT  a file that receives the name of the call
// Defined in the program itself, these functions come before the C library's; each asks the kernel directly.

#include <fcntl.h>
#include <linux/btrfs.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

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

// New names that are not on the disk yet, oldest first.
class UnflushedNames {
  public:
    void gave(const std::string& path) {
        const std::lock_guard lock(mutex_);
        paths_.push_back(path);
    }
    void took(const std::string& path) {
        const std::lock_guard lock(mutex_);
        paths_.erase(std::remove(paths_.begin(), paths_.end(), path), paths_.end());
    }
    void flushedIn(const std::string& folder) {
        const std::lock_guard lock(mutex_);
        const auto isIn = [&](const std::string& path) { return path.substr(0, path.rfind('/')) == folder; };
        paths_.erase(std::remove_if(paths_.begin(), paths_.end(), isIn), paths_.end());
    }
    void flushedAll() {
        const std::lock_guard lock(mutex_);
        paths_.clear();
    }
    void lose() {
        const std::lock_guard lock(mutex_);
        for (auto path = paths_.rbegin(); path != paths_.rend(); ++path)
            if (kernel(SYS_unlinkat, AT_FDCWD, path->c_str(), 0) != 0)
                kernel(SYS_unlinkat, AT_FDCWD, path->c_str(), AT_REMOVEDIR);
    }

    static std::string pathOf(int folder, const char* name) {
        if (folder == AT_FDCWD || name[0] == '/') return name;
        std::array<char, PATH_MAX> place{};
        const std::string link = "/proc/self/fd/" + std::to_string(folder);
        const long length = kernel(SYS_readlinkat, AT_FDCWD, link.c_str(), place.data(), place.size());
        std::string path(place.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
        return name[0] == '\0' ? path : path + "/" + name;
    }

  private:
    std::mutex mutex_;
    std::vector<std::string> paths_;
};

class Fault {
  public:
    enum class Call { changes, names, reads, end, moves };

    Fault() {
        const char* at = std::getenv("TIDEWRACK_FAULT_AT");
        const char* kind = std::getenv("TIDEWRACK_FAULT_KIND");
        if (at == nullptr || kind == nullptr) return;
        at_ = std::atol(at);
        error_ = std::atoi(kind);
        losesNames_ = std::strcmp(kind, "later flush") == 0;
        losesContents_ = losesNames_ || std::strcmp(kind, "power cut") == 0;
        diesAfterwards_ = std::strstr(kind, ", death") != nullptr;
        writes_ = std::strncmp(kind, "write", 5) == 0;
        writesTwice_ = std::strncmp(kind, "write twice", 11) == 0;
        repeats_ = std::strcmp(kind, "twice") == 0;
    }

    // Whether a call that a fault has struck is made twice.
    [[nodiscard]] bool repeats() const { return repeats_; }

    // Whether this call fails, with errno set; does not return where it ends the process. `half` is what a dying write
    // still does.
    template <typename Half>
    bool strikes(const char* name, Call call, Half half) {
        const std::lock_guard lock(mutex_);
        if (at_ == 0 || !counts(call) || ++count_ != at_) return false;
        report(name);
        if (error_ != 0) errno = error_;
        if (error_ != 0 || repeats_) return true;
        half();
        if (writes_) {
            written_ = true;
            return false;
        }
        if (losesContents_) unwritten.lose();
        if (losesNames_) names.lose();
        die();
    }
    bool strikes(const char* name, Call call = Call::changes) {
        return strikes(name, call, [] {});
    }

    Unwritten unwritten;
    UnflushedNames names;

    // Another program writes at this moment into the file with this name, or makes it.
    void moves(const char* name, int folder, const char* place) {
        struct stat status {};
        const bool there = ::fstatat(folder, place, &status, AT_SYMLINK_NOFOLLOW) == 0;
        const bool ours = std::strncmp(place, ".tidewrack-", 11) == 0; // nobody writes into a copy that is being made
        if (!writes_ || ours || (there && !S_ISREG(status.st_mode))) return;
        (void)strikes(name, Call::moves, [&] {
            writeInto(folder, place, "somebody's words\n");
            writtenTo_ = {folder, place};
        });
    }

    // It has.
    int moved(int result) {
        const std::lock_guard lock(mutex_);
        const int error = errno;
        if (written_ && writesTwice_)
            writeInto(writtenTo_.first, writtenTo_.second.c_str(), "somebody's second words\n");
        writesTwice_ = writesTwice_ && !written_;
        if (written_ && diesAfterwards_) die();
        errno = error;
        return result;
    }

  private:
    static void writeInto(int folder, const char* place, const char* line) {
        const long fd = kernel(SYS_openat, folder, place, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        kernel(SYS_write, fd, line, std::strlen(line));
        kernel(SYS_close, fd);
    }

    [[noreturn]] static void die() {
        kernel(SYS_kill, kernel(SYS_getpid), SIGKILL);
        std::abort(); // not reached
    }

    [[nodiscard]] bool counts(Call call) const {
        if (writes_ || call == Call::moves) return writes_ && call == Call::moves;
        if (losesNames_) return call == Call::end;
        if (repeats_) return call == Call::names;
        return call == Call::changes || call == Call::names || (call == Call::reads) == (error_ != 0);
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
    bool losesNames_ = false;
    bool writes_ = false;
    bool diesAfterwards_ = false;
    bool writesTwice_ = false;
    bool repeats_ = false;
    bool written_ = false;
    std::pair<int, std::string> writtenTo_;
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

// A call that changes a name.
template <typename... Arguments>
int changeName(const char* name, long number, Arguments... arguments) {
    if (fault().strikes(name, Fault::Call::names)) {
        if (!fault().repeats()) return -1;
        kernel(number, arguments...);
    }
    return static_cast<int>(kernel(number, arguments...));
}

// A call that gives a name, which is new when nothing had it before.
template <typename... Arguments>
int give(const char* name, int folder, const char* place, long number, Arguments... arguments) {
    struct stat status {};
    const bool isNew = ::fstatat(folder, place, &status, AT_SYMLINK_NOFOLLOW) != 0;
    const int result = changeName(name, number, arguments...);
    if (result == 0 && isNew) fault().names.gave(UnflushedNames::pathOf(folder, place));
    return result;
}

template <typename... Arguments>
int take(const char* name, int folder, const char* place, long number, Arguments... arguments) {
    const int result = changeName(name, number, arguments...);
    if (result == 0) fault().names.took(UnflushedNames::pathOf(folder, place));
    return result;
}

int moveTo(const char* name, int from, const char* place, int to, const char* other, unsigned flags) {
    const int result = give(name, to, other, SYS_renameat2, from, place, to, other, flags);
    if (result == 0 && (flags & RENAME_EXCHANGE) == 0) fault().names.took(UnflushedNames::pathOf(from, place));
    return result;
}

bool volumeIs(const char* name) {
    const char* volume = std::getenv("TIDEWRACK_FAULT_VOLUME");
    return volume != nullptr && std::strcmp(volume, name) == 0;
}

// The type that the volume is to claim; 0: its own.
unsigned claimedType() {
    if (volumeIs("ext4")) return EXT4_SUPER_MAGIC;
    return volumeIs("btrfs") ? BTRFS_SUPER_MAGIC : volumeIs("unknown") ? 1 : 0;
}

// A call that brings one file's content to the disk.
int bringOut(const char* name, int fd, long number, long a = 0, long b = 0, long c = 0) {
    if (fault().strikes(name)) return -1;
    const long result = kernel(number, fd, a, b, c);
    if (result == 0) fault().unwritten.flushed(fd);
    if (result == 0 && claimedType() != BTRFS_SUPER_MAGIC) fault().names.flushedIn(UnflushedNames::pathOf(fd, ""));
    return static_cast<int>(result);
}

int openAny(int folder, const char* path, int flags, mode_t mode) {
    struct stat status {};
    const bool isNew = (flags & O_CREAT) != 0 && ::fstatat(folder, path, &status, AT_SYMLINK_NOFOLLOW) != 0;
    const bool writes = (flags & (O_ACCMODE | O_CREAT | O_TRUNC)) != O_RDONLY;
    if (fault().strikes(writes ? "open for writing" : "open", writes ? Fault::Call::changes : Fault::Call::reads))
        return -1;
    const int fd = static_cast<int>(kernel(SYS_openat, folder, path, flags, mode));
    if (fd >= 0 && isNew) fault().names.gave(UnflushedNames::pathOf(folder, path));
    return fd;
}

mode_t modeOf(int flags, va_list rest) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
}

// The descriptors that carry the program's own output are no disk.
bool isFile(int fd) {
    return fd > STDERR_FILENO;
}

} // namespace

// Defines a call in the C library's place.
#define CHANGING(name, parameters, ...)                                                                                \
    int name parameters noexcept {                                                                                     \
        return change(#name, __VA_ARGS__);                                                                             \
    }
// The same of calls that give or take a name, for which `does` stands.
#define NAMING(does, name, parameters, ...)                                                                            \
    int name parameters noexcept {                                                                                     \
        return does(#name, __VA_ARGS__);                                                                               \
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
// Only for a file that was written can it report a failure.
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
    if (claimedType() != BTRFS_SUPER_MAGIC || (request != BTRFS_IOC_START_SYNC && request != BTRFS_IOC_WAIT_SYNC))
        return change("ioctl", SYS_ioctl, fd, request, argument);
    if (fault().strikes("ioctl")) return -1;
    if (request == BTRFS_IOC_WAIT_SYNC) fault().names.flushedAll();
    return 0;
}
int fstatfs64(int fd, struct statfs64* volume) noexcept {
    const int result = static_cast<int>(kernel(SYS_fstatfs, fd, volume));
    if (claimedType() != 0) volume->f_type = claimedType();
    return result;
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
    fault().names.flushedAll();
    return static_cast<int>(kernel(SYS_syncfs, fd));
}

NAMING(moveTo, rename, (const char* from, const char* to), AT_FDCWD, from, AT_FDCWD, to, 0)
int renameat(int from, const char* name, int to, const char* other) noexcept {
    fault().moves("renameat", from, name);
    return fault().moved(moveTo("renameat", from, name, to, other, 0));
}
int renameat2(int from, const char* name, int to, const char* other, unsigned flags) noexcept {
    if (volumeIs("plain")) {
        errno = EINVAL;
        return -1;
    }
    fault().moves("renameat2", to, other);
    return fault().moved(moveTo("renameat2", from, name, to, other, flags));
}
int linkat(int from, const char* name, int to, const char* other, int flags) noexcept {
    fault().moves("linkat", to, other);
    return fault().moved(give("linkat", to, other, SYS_linkat, from, name, to, other, flags));
}
NAMING(give, symlinkat, (const char* destination, int folder, const char* name), folder, name, SYS_symlinkat,
       destination, folder, name)
NAMING(take, unlink, (const char* path), AT_FDCWD, path, SYS_unlinkat, AT_FDCWD, path, 0)
NAMING(take, unlinkat, (int folder, const char* name, int flags), folder, name, SYS_unlinkat, folder, name, flags)
NAMING(take, rmdir, (const char* path), AT_FDCWD, path, SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR)
NAMING(give, mkdir, (const char* path, mode_t mode), AT_FDCWD, path, SYS_mkdirat, AT_FDCWD, path, mode)
NAMING(give, mkdirat, (int folder, const char* name, mode_t mode), folder, name, SYS_mkdirat, folder, name, mode)
CHANGING(fchmod, (int fd, mode_t mode), SYS_fchmod, fd, mode)
CHANGING(fchmodat, (int folder, const char* name, mode_t mode, int), SYS_fchmodat, folder, name, mode)
CHANGING(fchown, (int fd, uid_t user, gid_t group), SYS_fchown, fd, user, group)
CHANGING(fsetxattr, (int fd, const char* name, const void* value, size_t size, int flags), SYS_fsetxattr, fd, name,
         value, size, flags)
int futimens(int fd, const timespec times[2]) noexcept {
    return volumeIs("timeless") ? 0 : change("futimens", SYS_utimensat, fd, nullptr, times, 0);
}
int utimensat(int folder, const char* name, const timespec times[2], int flags) noexcept {
    return volumeIs("timeless") ? 0 : change("utimensat", SYS_utimensat, folder, name, times, flags);
}

// Everything is done, but not all of it may be on the disk.
void _exit(int status) {
    (void)fault().strikes("end", Fault::Call::end, [] {});
    kernel(SYS_exit_group, status);
    std::abort(); // not reached
}

// Asked by the address sanitizer: learning the borders of all global variables takes it more than half of a start, and
// this program is started many thousand times. The tests in one process look at them.
const char* __asan_default_options() {
    return "report_globals=0";
}

} // extern "C"
