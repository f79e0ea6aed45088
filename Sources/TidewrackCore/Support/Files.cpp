#include "Support/Files.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/FolderStream.hpp"
#include "Platform/OpenFolder.hpp"
#include "Platform/Process.hpp"
#include "Support/Errors.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace tidewrack {

int readFile(const std::string& path, std::string& out) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return errno;
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) return errno;
    if (S_ISDIR(status.st_mode)) return EISDIR;
    out.clear();
    std::size_t room = static_cast<std::size_t>(status.st_size) + 1; // one more: a short read then shows the end
    while (true) {
        const std::size_t have = out.size();
        out.resize(have + room);
        const ssize_t count = ::read(file.get(), out.data() + have, room);
        out.resize(have + (count > 0 ? static_cast<std::size_t>(count) : 0));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        if (count == 0 || (static_cast<std::size_t>(count) < room && S_ISREG(status.st_mode))) return 0;
        room = 65536;
    }
}

std::string temporaryName() {
    static std::atomic<unsigned> counter = 0;
    return std::string(temporaryPrefix) + std::to_string(::getpid()) + "-" + std::to_string(counter++);
}

namespace {

// The number of the process that such a name tells, -1 for any other name.
std::int64_t temporaryOwner(std::string_view name) {
    if (!name.starts_with(temporaryPrefix)) return -1;
    name.remove_prefix(temporaryPrefix.size());
    std::int64_t pid = -1;
    const char* end = name.data() + name.size();
    const auto [afterPid, error] = std::from_chars(name.data(), end, pid);
    if (error != std::errc() || afterPid == end || *afterPid != '-' || pid < 0) return -1;
    const std::string_view number(afterPid + 1, static_cast<std::size_t>(end - afterPid - 1));
    const bool digits = !number.empty() && number.find_first_not_of("0123456789") == std::string_view::npos;
    return digits ? pid : -1;
}

} // namespace

bool isLeftover(std::string_view name) {
    const std::int64_t owner = temporaryOwner(name);
    return owner >= 0 && (owner == ::getpid() || !processIsAlive(owner));
}

void removeLeftovers(const std::string& folder) {
    try {
        for (const std::string& name : listFolder(folder))
            if (isLeftover(name)) (void)::unlink(joined(folder, name).c_str());
    } catch (const TidewrackError&) {
        // The next process tries again.
    }
}

int moveFile(const std::string& from, const std::string& to) {
    Attributes moving;
    Attributes there;
    const bool isKnown = attributesAt(AT_FDCWD, from.c_str(), moving) == 0;
    if (::rename(from.c_str(), to.c_str()) == 0) return 0;
    const int error = errno;
    const bool isDone = error == ENOENT && isKnown && attributesAt(AT_FDCWD, to.c_str(), there) == 0 &&
                        there.ino == moving.ino && there.device == moving.device;
    return isDone ? 0 : error;
}

namespace {

// A file that is written under a temporary name and renamed to its path by commit(); without commit() the destructor
// removes it. Its operations return errno values.
class NewFile {
  public:
    explicit NewFile(const std::string& path) : path_(path), temporary_(joined(parentOf(path), temporaryName())) {}
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        if (exists_) ::unlink(temporary_.c_str());
    }

    // Without `mode` the file has the one that the user's new files have.
    [[nodiscard]] int write(std::string_view bytes, std::optional<mode_t> mode) {
        ::unlink(temporary_.c_str()); // left by a dead process of the same number
        constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        file_ = Descriptor(::open(temporary_.c_str(), flags, mode ? 0600 : 0666));
        if (!file_) return errno;
        exists_ = true;
        if (const int error = writeAll(file_.get(), bytes)) return error;
        return !mode || ::fchmod(file_.get(), *mode) == 0 ? 0 : errno;
    }

    // Only root may give a file away, and an owner only to a group of theirs, so owner and group are best effort.
    // The mode comes last because a change of owner clears bits.
    [[nodiscard]] int takeOver(const struct stat& like) {
        if (::fchown(file_.get(), like.st_uid, like.st_gid) != 0)
            (void)!::fchown(file_.get(), static_cast<uid_t>(-1), like.st_gid);
        return ::fchmod(file_.get(), like.st_mode & 07777) == 0 ? 0 : errno;
    }

    // Renames the file to its path once `reachDisk` has succeeded with it.
    template <typename ReachDisk>
    [[nodiscard]] int commit(ReachDisk reachDisk) {
        if (const int error = reachDisk(file_.get())) return error;
        if (::close(file_.release()) != 0) return errno;
        const int error = moveFile(temporary_, path_);
        exists_ = error != 0;
        return error;
    }

    // The same where `before` is there; EEXIST where something else is. In one step, as far as the volume can.
    [[nodiscard]] int commitInPlaceOf(const std::optional<std::string>& before) {
        if (const int error = writeOut(file_.get())) return error;
        if (::close(file_.release()) != 0) return errno;
        const Place ours{AT_FDCWD, temporary_.c_str()};
        const Place theirs{AT_FDCWD, path_.c_str()};
        int error = before ? exchange(ours, theirs) : renameUnlessTaken(ours, theirs);
        if (error == ENOSYS || error == ENOTSUP || error == EINVAL) {
            if (!holds(path_, before)) return EEXIST;
            error = moveFile(temporary_, path_);
            exists_ = error != 0;
            return error;
        }
        if (!before) exists_ = error != 0;
        if (error != 0 || !before || holds(temporary_, before)) return error == ENOENT ? EEXIST : error;
        if (const int backError = exchange(ours, theirs)) {
            exists_ = false; // what another program wrote stays under the name that it has now
            return backError;
        }
        return EEXIST;
    }

  private:
    static bool holds(const std::string& path, const std::optional<std::string>& bytes) {
        std::string there;
        const int error = readFile(path, there);
        return bytes ? error == 0 && there == *bytes : error == ENOENT;
    }

    std::string path_;
    std::string temporary_;
    Descriptor file_;
    bool exists_ = false;
};

template <typename ReachDisk>
void writeOwnFile(const std::string& path, std::string_view bytes, ReachDisk reachDisk) {
    NewFile file(path);
    int error = file.write(bytes, 0644);
    if (error == 0) error = file.commit(reachDisk);
    if (error != 0) throw TidewrackError::io("write", path, error);
}

} // namespace

void writeFileAtomically(const std::string& path, std::string_view bytes) {
    writeOwnFile(path, bytes, writeOut);
}

void writeFileSoon(const std::string& path, std::string_view bytes) {
    writeOwnFile(path, bytes, [](int fd) {
        beginWriteOut(fd);
        return 0;
    });
}

void writeFileAfter(const PendingWrites& pending, const std::string& path, std::string_view bytes) {
    writeOwnFile(path, bytes, [&](int fd) { return order(fd, pending); });
    Descriptor folder;
    int error = openFolder(std::string(parentOf(path)), folder);
    if (error == 0) error = orderNames(folder.get());
    if (error != 0) throw TidewrackError::io("write", path, error);
}

namespace {

template <typename Commit>
int writeLike(NewFile& file, std::string_view bytes, const struct stat* like, Commit commit) {
    int error = file.write(bytes, like == nullptr ? std::nullopt : std::optional<mode_t>(0600));
    if (error == 0 && like != nullptr) error = file.takeOver(*like);
    return error == 0 ? commit() : error;
}

} // namespace

void writeUserFile(const std::string& path, std::string_view bytes, const struct stat* like) {
    NewFile file(path);
    const int error = writeLike(file, bytes, like, [&] { return file.commit(writeOut); });
    if (error != 0) throw TidewrackError::io("write", path, error);
}

bool replaceUserFile(const std::string& path, const std::optional<std::string>& before, std::string_view bytes,
                     const struct stat* like) {
    NewFile file(path);
    const int error = writeLike(file, bytes, like, [&] { return file.commitInPlaceOf(before); });
    if (error != 0 && error != EEXIST) throw TidewrackError::io("write", path, error);
    return error == 0;
}

int makeFolders(const std::string& path, mode_t mode) {
    if (::mkdir(path.c_str(), mode) == 0 || (errno == EEXIST && isFolder(path))) return 0;
    if (errno != ENOENT) return errno;
    const auto slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return ENOENT;
    if (const int error = makeFolders(path.substr(0, slash), mode)) return error;
    return ::mkdir(path.c_str(), mode) == 0 || (errno == EEXIST && isFolder(path)) ? 0 : errno;
}

std::vector<std::string> listFolder(const std::string& path) {
    std::vector<std::string> names;
    forEachName(path, [&](std::string_view name) { names.emplace_back(name); });
    return names;
}

void forEachName(const std::string& path, const std::function<void(std::string_view)>& visit) {
    const int error = visitNames(path, [&](const char* name) {
        visit(name);
        return true;
    });
    if (error != 0 && error != ENOENT) throw TidewrackError::io("list", path, error);
}

int visitNames(const std::string& path, const std::function<bool(const char*)>& visit) {
    FolderStream stream(path);
    while (const char* name = stream.next())
        if (!visit(name)) return 0;
    return stream.error();
}

bool isFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isFile(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

bool isLink(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool liesIn(std::string_view path, const std::string& folder) {
    Attributes wanted;
    Attributes found;
    if (attributesAt(AT_FDCWD, folder.c_str(), wanted) != 0) return false;
    for (; !path.empty(); path = path == "/" ? std::string_view() : parentOf(path))
        if (attributesAt(AT_FDCWD, std::string(path).c_str(), found) == 0 && found.ino == wanted.ino &&
            found.device == wanted.device)
            return true;
    return false;
}

std::string realPath(const std::string& path) {
    char* text = ::realpath(path.c_str(), nullptr);
    if (text == nullptr) return {};
    std::string result(text);
    std::free(text); // NOLINT: realpath allocates with malloc
    return result;
}

std::string realPlace(const std::string& path) {
    std::string whole = isLink(path) ? std::string() : realPath(path);
    if (!whole.empty()) return whole;
    const std::string parent = realPath(std::string(parentOf(path)));
    return parent.empty() ? parent : joined(parent, lastComponent(path));
}

} // namespace tidewrack
