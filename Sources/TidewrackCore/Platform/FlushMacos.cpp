// macOS: fsync hands a file to the drive, F_BARRIERFSYNC keeps the drive from reordering around it, and volumes of
// type apfs bring everything else to the disk in whole transactions.

#include "Platform/Flush.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace tidewrack {

namespace {

int orSuccessWhereUnknown(int error) {
    return error == EINVAL || error == ENOSYS || error == ENOTTY || error == ENOTSUP ? 0 : error;
}

// Flushes the file; everything before it reaches the disk first.
int flushFile(int fd) {
    if (::fcntl(fd, F_BARRIERFSYNC) == 0 || ::fcntl(fd, F_FULLFSYNC) == 0) return 0;
    return writeOut(fd);
}

} // namespace

int writeOut(int fd) {
    return ::fsync(fd) == 0 ? 0 : orSuccessWhereUnknown(errno);
}

void beginWriteOut(int) {} // volumes of type apfs give a new file its name and its size in one transaction

void writeOutCopy(int fd, PendingWrites& pending) {
    if (!pending.everything && (pending.copies++ >= mostWrittenOutOneByOne || ::fsync(fd) != 0))
        pending.everything = true;
}

int flush(int fd, const PendingWrites& pending) {
    if (pending.error != 0) return pending.error;
    return pending.everything ? flushVolume(fd) : flushFile(fd);
}

int order(int fd, const PendingWrites& pending) {
    return flush(fd, pending);
}

int orderNames(int) {
    return 0;
}

bool keepsOrder(int) {
    return true;
}

int flushNames(int folder) {
    return flushFile(folder);
}

int flushVolume(int fd) {
    if (::fsync_volume_np(fd, SYNC_VOLUME_WAIT) != 0) ::sync(); // sync reports no failure
    return flushFile(fd);
}

} // namespace tidewrack
