#include "Engine/MirrorFiles.hpp"

#include "Platform/Descriptor.hpp"
#include "Platform/Flush.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/OwnError.hpp"
#include "Platform/Process.hpp"
#include "Platform/Volumes.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace tidewrack {

namespace {

// What is there of a path, which tells its volume.
std::string nearestFolder(std::string path) {
    while (path.size() > 1 && !isFolder(path)) path = parentOf(path);
    return path.empty() ? "/" : path;
}

// Whether the system gives every name or byte: else the store, and not the mirror, is at fault.
bool isReadable(const std::string& path) {
    if (isLink(path)) return true;
    if (isFolder(path)) return visitNames(path, [](const char*) { return true; }) == 0;
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) return false;
    std::array<char, 65536> buffer{};
    ssize_t count = 0;
    do {
        count = ::read(file.get(), buffer.data(), buffer.size());
    } while (count > 0 || (count < 0 && errno == EINTR));
    return count == 0;
}

} // namespace

MirrorFiles::MirrorFiles(const std::string& home, const std::string& folder, bool dryRun)
    : folder_(folder), dryRun_(dryRun) {
    const std::string near = nearestFolder(folder);
    links_ = sameVolume(home, near) && !volumeClones(near);
}

MirrorFiles::~MirrorFiles() {
    for (; named_ < staged_.size(); ++named_) (void)::unlink(staged_[named_].temporary.c_str());
}

bool MirrorFiles::isSame(const Attributes& a, const Attributes& b) {
    return a.kind == b.kind && ((a.device == b.device && a.ino == b.ino) || (a.size == b.size && a.mtime == b.mtime));
}

void MirrorFiles::bring(const std::string& from, const std::string& to, Way way, Other other) {
    Attributes attributes;
    if (const int error = attributesAt(AT_FDCWD, from.c_str(), attributes)) {
        if (error != ENOENT) fail(from, to, error);
        return;
    }
    Attributes there;
    const int missing = attributesAt(AT_FDCWD, to.c_str(), there);
    if (missing == 0 && isSame(attributes, there)) return;
    if (missing == 0 && other == Other::left) {
        warnings.push_back(from + " is not what was mirrored before; the mirror keeps that. Run `tidewrack check`.");
        return;
    }
    if (missing == 0 && there.kind == Attributes::Kind::folder) remove(to);
    put(from, to, attributes, way);
}

void MirrorFiles::bringFolder(const std::string& from, const std::string& to, Way way, Other other,
                              const Skips& skips) {
    bool isMade = false;
    for (const std::string& name : listFolder(from)) {
        if (name.starts_with(temporaryPrefix) || (skips && skips(name))) continue;
        if (!isMade) makeFolder(to);
        isMade = true;
        const std::string path = joined(from, name);
        if (isFolder(path) && !isLink(path))
            bringFolder(path, joined(to, name), way, other);
        else
            bring(path, joined(to, name), way, other);
    }
}

void MirrorFiles::makeFolder(const std::string& path, mode_t mode) const {
    if (dryRun_ || isFolder(path)) return;
    if (const int error = makeFolders(path, mode)) throw TidewrackError::io("create", path, error);
}

void MirrorFiles::write(const std::string& to, const std::string& text, std::int64_t mtime) {
    if (dryRun_) return;
    const std::string temporary = joined(folder_, temporaryName());
    writeFileSoon(temporary, text);
    stage(temporary, to);
    if (const int error = setModificationTime(AT_FDCWD, temporary.c_str(), mtime))
        throw TidewrackError::io("write", to, error);
}

void MirrorFiles::stage(const std::string& temporary, const std::string& to) {
    constexpr std::size_t mostStaged = 1000;
    unflushed_ = true;
    staged_.push_back({temporary, to});
    if (staged_.size() >= mostStaged) flush();
}

void MirrorFiles::put(const std::string& from, const std::string& to, const Attributes& attributes, Way way) {
    const bool linked = links_ && way == Way::shared && attributes.kind == Attributes::Kind::file;
    if (!dryRun_) {
        const std::string temporary = joined(folder_, temporaryName());
        (void)::unlink(temporary.c_str()); // left by a dead process of the same number
        if (const int error = make(from, temporary, attributes, way)) {
            (void)::unlink(temporary.c_str());
            return fail(from, to, error);
        }
        stage(temporary, to);
    }
    countFile(attributes, linked);
}

void MirrorFiles::countFile(const Attributes& attributes, bool linked) {
    ++counts.files;
    if (linked)
        ++counts.linked;
    else
        counts.bytes += attributes.size;
    if (progress && (counts.files & 127) == 0) progress("mirrored", static_cast<std::size_t>(counts.files));
}

int MirrorFiles::make(const std::string& from, const std::string& to, const Attributes& attributes, Way way) {
    if (attributes.kind == Attributes::Kind::link) return copyLink({AT_FDCWD, from.c_str()}, {AT_FDCWD, to.c_str()});
    if (attributes.kind != Attributes::Kind::file) return ENOTSUP;
    if (links_ && way == Way::shared && makeSecondName({AT_FDCWD, from.c_str()}, {AT_FDCWD, to.c_str()}) == 0) return 0;
    return copy(from, to);
}

int MirrorFiles::copy(const std::string& from, const std::string& to) {
    const Descriptor source(::open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!source) return errno;
    struct stat status {};
    if (::fstat(source.get(), &status) != 0) return errno;
    if (!S_ISREG(status.st_mode)) return ENOTSUP;
    return copyOpenFile(source.get(), status, {AT_FDCWD, to.c_str()},
                        {static_cast<std::uint16_t>(status.st_mode & 07777)}, memory_);
}

bool MirrorFiles::copyWhole(const std::string& from, const std::string& to, FilesOfManyNames& names) {
    Attributes attributes;
    if (const int error = attributesAt(AT_FDCWD, from.c_str(), attributes)) {
        if (error != ENOENT) fail(from, to, error);
        return error == ENOENT;
    }
    TreeSize size{1, attributes.size};
    if (attributes.kind == Attributes::Kind::folder)
        if (const int error = measureTree(from, {}, INT64_MAX, size)) return fail(from, to, error), false;
    std::vector<UncopiedItem> uncopied;
    CopyLimits limits;
    limits.unsaved = &uncopied;
    if (links_)
        limits.earlier = EarlierCopy{from, INT64_MAX}; // each file becomes a second name of itself
    else
        limits.manyNames = &names;
    if (!dryRun_) {
        unflushed_ = true;
        if (const int error = copyTree(from, to, limits)) return fail(from, to, error), false;
        for (const UncopiedItem& item : uncopied) fail(from + item.path, to + item.path, item.error);
        if (!fault_.empty()) return false;
    }
    counts.files += size.files;
    if (links_)
        counts.linked += size.files;
    else
        counts.bytes += size.bytes;
    return true;
}

void MirrorFiles::remove(const std::string& path) {
    TreeSize size{1, 0};
    Attributes attributes;
    if (attributesAt(AT_FDCWD, path.c_str(), attributes) != 0) return;
    if (attributes.kind == Attributes::Kind::folder && measureTree(path, {}, INT64_MAX, size) != 0) size.files = 0;
    if (!dryRun_) {
        // A file may be the store's own under a second name: nothing of it is changed on the way.
        const bool isFolder = attributes.kind == Attributes::Kind::folder;
        const int error = isFolder ? removeTree(path) : ::unlink(path.c_str()) == 0 ? 0 : errno;
        if (error != 0 && error != ENOENT) throw TidewrackError::io("remove", path, error);
        unflushed_ = true;
    }
    counts.removed += size.files;
}

void MirrorFiles::flush() {
    if (!unflushed_) return;
    Descriptor open;
    int error = openFolder(folder_, open);
    if (error == 0) error = flushVolume(open.get());
    if (error != 0) throw TidewrackError::io("flush", folder_, error);
    for (; named_ < staged_.size(); ++named_) {
        const Staged& each = staged_[named_];
        if (const int failed = moveFile(each.temporary, each.to)) throw TidewrackError::io("write", each.to, failed);
    }
    staged_.clear();
    named_ = 0;
    unflushed_ = false;
}

std::string MirrorFiles::takeFault() {
    return std::exchange(fault_, {});
}

void MirrorFiles::fail(const std::string& from, const std::string& to, int error) {
    if (error == ENOENT && !exists(from)) return; // gone meanwhile
    if (isOutOfRoom(error)) throw TidewrackError::io("write", to, error);
    if (!isReadable(from))
        warnings.emplace_back(TidewrackError::io("read", from, error).what());
    else if (fault_.empty())
        fault_ = TidewrackError::io("write", to, error).what();
}

} // namespace tidewrack
