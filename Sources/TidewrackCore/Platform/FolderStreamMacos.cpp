// macOS: readdir, the only documented way to the entries' names alone.

#include "Platform/FolderStream.hpp"

#include <dirent.h>

#include <cerrno>
#include <cstring>

namespace tidewrack {

struct FolderStream::Position {
    DIR* stream;
};

FolderStream::FolderStream(Descriptor folder) : folder_(std::move(folder)), error_(folder_ ? 0 : errno) {
    if (!folder_) return;
    DIR* const stream = ::fdopendir(folder_.get());
    if (stream == nullptr) {
        error_ = errno;
        return;
    }
    (void)folder_.release(); // the stream owns it now
    position_.reset(new Position{stream});
}

FolderStream::~FolderStream() {
    if (position_ != nullptr) ::closedir(position_->stream);
}

int FolderStream::fd() const {
    return position_ == nullptr ? -1 : ::dirfd(position_->stream);
}

const char* FolderStream::next() {
    if (position_ == nullptr) return nullptr;
    errno = 0; // readdir reports an error by it alone, else the end
    while (const dirent* entry = ::readdir(position_->stream))
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) return entry->d_name;
    if (errno != ENOENT) error_ = errno; // ENOENT: the folder was removed meanwhile
    return nullptr;
}

} // namespace tidewrack
