// macOS: getattrlistbulk where attributes are wanted, a few calls for a whole folder; else readdir, the only documented
// way to the entries' names alone.

#include "Platform/BulkEntries.hpp"
#include "Platform/FolderStream.hpp"

#include <dirent.h>
#include <sys/attr.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace tidewrack {

namespace {

static_assert(bulk::returned == ATTR_CMN_RETURNED_ATTRS && bulk::error == ATTR_CMN_ERROR &&
              bulk::name == ATTR_CMN_NAME && bulk::device == ATTR_CMN_DEVID && bulk::type == ATTR_CMN_OBJTYPE &&
              bulk::modified == ATTR_CMN_MODTIME && bulk::changed == ATTR_CMN_CHGTIME &&
              bulk::mode == ATTR_CMN_ACCESSMASK && bulk::flags == ATTR_CMN_FLAGS && bulk::inode == ATTR_CMN_FILEID &&
              bulk::fileLinks == ATTR_FILE_LINKCOUNT && bulk::fileSize == ATTR_FILE_DATALENGTH);
static_assert(bulk::compressed == UF_COMPRESSED);
static_assert(sizeof(attribute_set_t) == 20 && sizeof(attrreference_t) == 8 && sizeof(timespec) == 16);

} // namespace

struct FolderStream::Position {
    DIR* stream = nullptr; // once names are read
    std::vector<BulkEntry> entries;
    std::size_t next = 0;
    bool gaveSome = false;
    alignas(8) std::array<std::byte, std::size_t{64} << 10> buffer; // not zeroed: it is filled as it is used

    // How many entries came; 0 at the end, negative where there are none to be had in this way.
    int read(int folder) {
        attrlist wanted{};
        wanted.bitmapcount = ATTR_BIT_MAP_COUNT;
        wanted.commonattr = bulk::common;
        wanted.fileattr = bulk::file;
        const int count = ::getattrlistbulk(folder, &wanted, buffer.data(), buffer.size(), 0);
        next = 0;
        if (count >= 0 && readBulkEntries(buffer, count, entries)) return count;
        if (count >= 0) errno = EIO;
        entries.clear();
        return -1;
    }
};

FolderStream::FolderStream(Descriptor folder, Wanted wanted)
    : folder_(std::move(folder)), error_(folder_ ? 0 : errno), position_(folder_ ? new Position : nullptr) {
    if (folder_ && wanted == Wanted::names) openStream();
}

FolderStream::~FolderStream() {
    if (position_ != nullptr && position_->stream != nullptr) ::closedir(position_->stream);
}

void FolderStream::openStream() {
    position_->stream = ::fdopendir(folder_.get());
    if (position_->stream == nullptr)
        error_ = errno;
    else
        (void)folder_.release(); // the stream owns it now
}

int FolderStream::fd() const {
    return position_ != nullptr && position_->stream != nullptr ? ::dirfd(position_->stream) : folder_.get();
}

const char* FolderStream::next() {
    if (position_ == nullptr || error_ != 0) return nullptr;
    Position& position = *position_;
    if (position.stream == nullptr) {
        if (position.next == position.entries.size()) {
            const int count = position.read(folder_.get());
            if (count == 0 || (count < 0 && errno == ENOENT)) return nullptr; // ENOENT: it was removed meanwhile
            if (count < 0 && position.gaveSome) {
                error_ = errno;
                return nullptr;
            }
            if (count < 0) { // a volume that has no such call: one name after the other
                (void)::lseek(folder_.get(), 0, SEEK_SET);
                openStream();
                return next();
            }
            position.gaveSome = true;
        }
        return position.entries[position.next++].name.data();
    }
    errno = 0; // readdir reports an error by it alone, else the end
    while (const dirent* entry = ::readdir(position.stream))
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) return entry->d_name;
    if (errno != ENOENT) error_ = errno; // ENOENT: the folder was removed meanwhile
    return nullptr;
}

int FolderStream::attributes(const char* name, Attributes& out) const {
    if (position_ != nullptr && position_->stream == nullptr && position_->next > 0) {
        const BulkEntry& entry = position_->entries[position_->next - 1];
        if (entry.name.data() == name && entry.attributes) {
            out = *entry.attributes;
            return 0;
        }
    }
    return attributesAt(fd(), name, out);
}

} // namespace tidewrack
