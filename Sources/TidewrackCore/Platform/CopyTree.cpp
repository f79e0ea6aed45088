// Copies of whole folders, made of the platform's copies of single files and links.

#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Deadline.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/FolderStream.hpp"

#include <fcntl.h>

#include <cerrno>
#include <utility>

namespace tidewrack {

namespace {

// The items that copying and measuring leave out.
class Skip {
  public:
    explicit Skip(const std::string& path)
        : active_(!path.empty() && attributesAt(AT_FDCWD, path.c_str(), attributes_) == 0) {}

    [[nodiscard]] bool covers(const Attributes& item) const {
        return item.kind == Attributes::Kind::other ||
               (active_ && item.ino == attributes_.ino && item.device == attributes_.device);
    }

  private:
    Attributes attributes_;
    bool active_;
};

// One that is there and empty may come from the call itself, where the volume repeated it; it is made anew.
int makeNewFolder(Place to) {
    if (::mkdirat(to.folder, to.name, 0700) == 0) return 0;
    const int error = errno;
    if (error != EEXIST || ::unlinkat(to.folder, to.name, AT_REMOVEDIR) != 0) return error;
    return ::mkdirat(to.folder, to.name, 0700) == 0 ? 0 : errno;
}

class TreeCopier {
  public:
    // `top`: the path of the copy, if it has one.
    TreeCopier(const CopyLimits& limits, std::string top)
        : skip_(limits.skip), earlierBegan_(limits.earlier ? limits.earlier->began : 0), unsaved_(limits.unsaved),
          manyNames_(limits.manyNames), top_(std::move(top)) {
        memory_.deadline = limits.deadline;
        memory_.pending = limits.pending;
        memory_.hasRoom = limits.hasRoom;
    }

    // `earlier`: where the earlier copy of this item would be; may be null.
    int copy(Place from, Place to, const Place* earlier) {
        if (passed(memory_.deadline)) return pastDeadline;
        Attributes attributes;
        if (const int error = attributesAt(from.folder, from.name, attributes)) return error;
        if (earlier != nullptr && isUnchanged(attributes, *earlier) && makeSecondName(*earlier, to) == 0) return 0;
        switch (attributes.kind) {
        case Attributes::Kind::file: return copyNamedFile(from, to, attributes);
        case Attributes::Kind::link: return copyLink(from, to);
        case Attributes::Kind::folder: return copyFolder(from, to, earlier, attributes);
        case Attributes::Kind::other: return ENOTSUP;
        }
        return ENOTSUP;
    }

    // Whether the copy's folder was made. Without one a failed copy has removed its file already, and anything at its
    // place belongs to others.
    [[nodiscard]] bool leftFolder() const { return madeFolder_; }

  private:
    // The change time covers everything that a copy keeps: content, mode, owner and extended attributes. The other
    // fields are for clocks that were set back, and for a folder that was replaced by another one.
    [[nodiscard]] bool isUnchanged(const Attributes& now, Place earlier) const {
        if (now.kind == Attributes::Kind::folder || now.ctime >= earlierBegan_) return false;
        Attributes then;
        return attributesAt(earlier.folder, earlier.name, then) == 0 && now.kind == then.kind &&
               now.size == then.size && now.mtime == then.mtime && now.mode == then.mode;
    }

    int copyNamedFile(Place from, Place to, const Attributes& attributes) {
        if (manyNames_ == nullptr || attributes.links < 2 || top_.empty()) return copyFile(from, to);
        std::string& copied = (*manyNames_)[{attributes.device, attributes.ino}];
        if (!copied.empty() && makeSecondName({AT_FDCWD, copied.c_str()}, to) == 0) return 0;
        const int error = copyFile(from, to);
        if (error == 0) copied = top_ + inside_;
        return error;
    }

    int copyFile(Place from, Place to) {
        const Descriptor source(::openat(from.folder, from.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!source) return errno;
        struct stat status {};
        if (::fstat(source.get(), &status) != 0) return errno;
        if (!S_ISREG(status.st_mode)) return keptChanging; // it was a file a moment ago
        return copyOpenFile(source.get(), status, to, {static_cast<std::uint16_t>(status.st_mode & 07777)}, memory_);
    }

    int copyFolder(Place from, Place to, const Place* earlier, const Attributes& attributes) {
        FolderStream source(from.folder, from.name);
        if (source.error() != 0) return source.error();
        if (const int error = makeNewFolder(to)) return error;
        madeFolder_ = true;
        const Descriptor target(::openat(to.folder, to.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!target) return errno;
        Descriptor before;
        if (earlier != nullptr)
            before =
                Descriptor(::openat(earlier->folder, earlier->name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (const int error = copyItems(source, target.get(), before)) return error;
        return finishFolder(source.fd(), target.get(), to, attributes);
    }

    int copyItems(FolderStream& source, int target, const Descriptor& before) {
        while (const char* name = source.next()) {
            Attributes attributes;
            int error = attributesAt(source.fd(), name, attributes);
            if (error == 0 && skip_.covers(attributes)) continue;
            const Place earlier{before.get(), name};
            const std::size_t length = inside_.size();
            inside_ += std::string("/") + name;
            if (error == 0) error = copy({source.fd(), name}, {target, name}, before ? &earlier : nullptr);
            if (error != 0 && error != ENOENT && !toleratedInside(error)) return error; // ENOENT: gone meanwhile
            inside_.resize(length);
        }
        return source.error() == 0 || toleratedInside(source.error()) ? 0 : source.error();
    }

    // One unreadable file is no reason to lose the folder's other files. A full volume and a passed deadline end the
    // copy.
    bool toleratedInside(int error) {
        if (unsaved_ == nullptr || error == pastDeadline || isOutOfRoom(error)) return false;
        unsaved_->push_back({inside_, error});
        return true;
    }

    static int finishFolder(int source, int target, Place to, const Attributes& attributes) {
        copyOpenExtendedAttributes(source, target);
        struct stat status {};
        if (::geteuid() == 0 && ::fstat(source, &status) == 0) (void)!::fchown(target, status.st_uid, status.st_gid);
        if (::fchmod(target, attributes.mode) != 0) return errno;
        return setModificationTime(to.folder, to.name, attributes.mtime);
    }

    CopyMemory memory_;
    Skip skip_;
    std::int64_t earlierBegan_;
    std::vector<UncopiedItem>* unsaved_;
    FilesOfManyNames* manyNames_;
    std::string top_;
    bool madeFolder_ = false; // the first folder of the copy was made
    std::string inside_;      // of the item being copied: its path below the top, with a leading slash
};

// Whether an item, with all that is in it, is as it was when the copy was begun.
bool isAsCopied(Place now, Place copy, std::int64_t began) {
    Attributes present;
    Attributes copied;
    if (attributesAt(now.folder, now.name, present) != 0 || present.ctime >= began) return false;
    if (attributesAt(copy.folder, copy.name, copied) != 0 || copied.kind != present.kind) return false;
    if (present.kind != Attributes::Kind::folder)
        return copied.size == present.size && copied.mtime == present.mtime && copied.mode == present.mode;
    FolderStream items(now.folder, now.name);
    const Descriptor copies(::openat(copy.folder, copy.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!copies) return false;
    while (const char* name = items.next()) // a name that came or went would have changed the folder's own time
        if (!isAsCopied({items.fd(), name}, {copies.get(), name}, began)) return false;
    return items.error() == 0;
}

class TreeMeasurer {
  public:
    TreeMeasurer(const CopyLimits& limits, std::int64_t mostFiles, TreeSize& size)
        : skip_(limits.skip), deadline_(limits.deadline), mostFiles_(mostFiles), size_(size) {}

    int measure(int folder, const char* name) {
        if (passed(deadline_)) return pastDeadline;
        FolderStream stream(folder, name);
        if (stream.error() != 0) return 0; // the copy reports it
        while (const char* item = stream.next()) {
            Attributes attributes;
            const int unseen = attributesAt(stream.fd(), item, attributes);
            if (unseen == ENOENT || (unseen == 0 && skip_.covers(attributes))) continue;
            if (unseen != 0 || attributes.kind == Attributes::Kind::file) {
                ++size_.files;
                size_.bytes += attributes.size;
            }
            if (attributes.kind == Attributes::Kind::folder)
                if (const int error = measure(stream.fd(), item)) return error;
            if (size_.files > mostFiles_) return 0;
        }
        return 0;
    }

  private:
    Skip skip_;
    Deadline deadline_;
    std::int64_t mostFiles_;
    TreeSize& size_;
};

} // namespace

int makeLink(const std::string& destination, Place to) {
    if (::symlinkat(destination.c_str(), to.folder, to.name) == 0) return 0;
    const int error = errno;
    std::string there(destination.size() + 1, '\0');
    const ssize_t length = error == EEXIST ? ::readlinkat(to.folder, to.name, there.data(), there.size()) : -1;
    if (length < 0) return error;
    there.resize(static_cast<std::size_t>(length));
    return there == destination ? 0 : error;
}

int makeSecondName(Place from, Place to) {
    if (::linkat(from.folder, from.name, to.folder, to.name, 0) == 0) return 0;
    const int error = errno;
    Attributes file;
    Attributes there;
    const bool isDone = error == EEXIST && attributesAt(from.folder, from.name, file) == 0 &&
                        attributesAt(to.folder, to.name, there) == 0 && file.ino == there.ino &&
                        file.device == there.device;
    return isDone ? 0 : error;
}

int copyTree(const std::string& from, const std::string& to, const CopyLimits& limits) {
    return copyTree(Place{AT_FDCWD, from.c_str()}, Place{AT_FDCWD, to.c_str()}, limits);
}

int copyTree(Place from, Place to, const CopyLimits& limits) {
    TreeCopier copier(limits, to.folder == AT_FDCWD ? to.name : "");
    Place earlier;
    if (limits.earlier) earlier = {AT_FDCWD, limits.earlier->path.c_str()};
    const int error = copier.copy(from, to, limits.earlier ? &earlier : nullptr);
    if (error != 0 && copier.leftFolder() && !limits.leavesParts) (void)removeTree(to);
    return error;
}

bool isAsCopied(const std::string& path, const EarlierCopy& copy) {
    return isAsCopied({AT_FDCWD, path.c_str()}, {AT_FDCWD, copy.path.c_str()}, copy.began);
}

int measureTree(const std::string& path, const CopyLimits& limits, std::int64_t mostFiles, TreeSize& out) {
    out = {};
    return TreeMeasurer(limits, mostFiles, out).measure(AT_FDCWD, path.c_str());
}

} // namespace tidewrack
