// Linux: getdents64, which saves the calls that the C library makes to turn an open folder into a stream.

#include "Platform/FolderStream.hpp"

#include <dirent.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace tidewrack {

struct FolderStream::Position {
    std::size_t at = 0;
    std::size_t filled = 0;
    alignas(dirent64) std::array<char, std::size_t{32} << 10> entries; // not zeroed: it is filled as it is used
};

FolderStream::FolderStream(Descriptor folder, Wanted)
    : folder_(std::move(folder)), error_(folder_ ? 0 : errno), position_(folder_ ? new Position : nullptr) {}

FolderStream::~FolderStream() = default;

int FolderStream::fd() const {
    return folder_.get();
}

int FolderStream::attributes(const char* name, Attributes& out) const {
    return attributesAt(folder_.get(), name, out);
}

const char* FolderStream::next() {
    if (position_ == nullptr) return nullptr;
    auto& [at, filled, entries] = *position_;
    while (true) {
        if (at == filled) {
            const ssize_t got = ::getdents64(folder_.get(), entries.data(), entries.size());
            if (got < 0 && errno != ENOENT) error_ = errno; // ENOENT: the folder was removed meanwhile
            if (got <= 0) return nullptr;
            at = 0;
            filled = static_cast<std::size_t>(got);
        }
        const auto* entry = reinterpret_cast<const dirent64*>(entries.data() + at);
        at += entry->d_reclen;
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) return entry->d_name;
    }
}

} // namespace tidewrack
