#include "Store/ProjectLock.hpp"

#include "Support/Errors.hpp"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

namespace tidewrack {

ProjectLock::ProjectLock(const std::string& path) : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (!fd_) throw TidewrackError::io("can't open lock " + path);
    int result = -1;
    do result = ::flock(fd_.get(), LOCK_EX);
    while (result != 0 && errno == EINTR);
    if (result != 0) throw TidewrackError::io("can't lock " + path);
}

ProjectLock::~ProjectLock() {
    ::flock(fd_.get(), LOCK_UN);
}

} // namespace tidewrack
