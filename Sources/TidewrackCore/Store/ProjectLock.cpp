#include "Store/ProjectLock.hpp"

#include "Support/Errors.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace tidewrack {

namespace {

// flock waits without limit or not at all, so with a deadline it is tried again and again.
int lockOpenFile(int fd, const Deadline& deadline) {
    constexpr auto betweenTries = std::chrono::milliseconds(5);
    while (::flock(fd, deadline ? LOCK_EX | LOCK_NB : LOCK_EX) != 0) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK || passed(deadline)) return errno;
        std::this_thread::sleep_for(betweenTries);
    }
    return 0;
}

// The previous holder may have removed the project and its lock file, or moved both away. The lock that was waited for
// then protects nothing, and another process may hold the lock of the project tracked anew.
bool isInPlace(int fd, const std::string& path) {
    struct stat held {};
    struct stat there {};
    if (::fstat(fd, &held) != 0) return true;
    if (::stat(path.c_str(), &there) != 0) return errno != ENOENT && errno != ENOTDIR;
    return held.st_dev == there.st_dev && held.st_ino == there.st_ino;
}

} // namespace

ProjectLock::ProjectLock(const std::string& path, const Deadline& deadline) {
    do {
        fd_ = Descriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!fd_) throw TidewrackError::io("can't open lock " + path);
        const int error = lockOpenFile(fd_.get(), deadline);
        if (error == EWOULDBLOCK) throw TidewrackError::io("can't lock " + path + ": another process is working on it");
        if (error != 0) throw TidewrackError::io("can't lock " + path);
    } while (!isInPlace(fd_.get(), path));
}

ProjectLock::~ProjectLock() {
    ::flock(fd_.get(), LOCK_UN);
}

bool ProjectLock::isFree(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file ? ::flock(file.get(), LOCK_SH | LOCK_NB) == 0 : errno == ENOENT;
}

} // namespace tidewrack
