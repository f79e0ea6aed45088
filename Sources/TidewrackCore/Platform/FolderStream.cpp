#include "Platform/FolderStream.hpp"

#include <fcntl.h>

namespace tidewrack {

FolderStream::FolderStream(int parent, const char* name)
    : FolderStream(Descriptor(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC))) {}

FolderStream::FolderStream(const std::string& path)
    : FolderStream(Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))) {}

} // namespace tidewrack
