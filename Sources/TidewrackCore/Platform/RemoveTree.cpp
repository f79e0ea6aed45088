#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/FolderStream.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace tidewrack {

namespace {

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

int removeTree(const std::string& path) {
    return removeTree(Place{AT_FDCWD, path.c_str()});
}

int removeTree(Place place) {
    return removeTreeAt(place.folder, place.name);
}

} // namespace tidewrack
