#include "Engine/KeptContent.hpp"

#include "Platform/Descriptor.hpp"

#include <fcntl.h>

#include <cerrno>
#include <string>

namespace tidewrack {

Obstacle putKept(int blobs, const Entry& entry, Place to, CopyMemory& memory) {
    const std::string blob(entry.blob);
    int error = 0;
    if (entry.kind == EntryKind::link) {
        error = copyLink({blobs, blob.c_str()}, to);
        if (error == 0) error = setModificationTime(to.folder, to.name, entry.mtime);
    } else {
        const Descriptor content(::openat(blobs, blob.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
        struct stat status {};
        if (!content || ::fstat(content.get(), &status) != 0) return Obstacle::system(errno);
        if (status.st_size != entry.size) return {Obstacle::Reason::damaged};
        error = copyOpenFile(content.get(), status, to, {entry.mode, entry.mtime}, memory);
    }
    return error == 0 ? Obstacle{} : Obstacle::system(error);
}

} // namespace tidewrack
