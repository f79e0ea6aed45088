#include "Support/Files.hpp"

#include "Platform/Platform.hpp"
#include "Support/Errors.hpp"
#include "Support/Paths.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tidewrack {

int readFile(const std::string& path, std::string& out) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) return errno;
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) return errno;
    if (S_ISDIR(status.st_mode)) return EISDIR;
    out.clear();
    std::size_t room = static_cast<std::size_t>(status.st_size) + 1; // one more, so that the end needs no second look
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

AtomicFile::AtomicFile(std::string path) : path_(std::move(path)) {
    static std::atomic<unsigned> counter = 0;
    const auto slash = path_.rfind('/') + 1;
    temporary_ = path_.substr(0, slash) + ".tidewrack-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) +
                 "." + path_.substr(slash) + ".tmp"; // no reader of a folder takes it for the file itself
}

AtomicFile::~AtomicFile() {
    if (exists_) ::unlink(temporary_.c_str());
}

int AtomicFile::write(std::string_view bytes, mode_t mode, const PendingWrites* pending) {
    ::unlink(temporary_.c_str()); // left by a dead process of the same number
    Descriptor file(::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) return errno;
    exists_ = true;
    if (const int error = writeAll(file.get(), bytes)) return error;
    if (::fchmod(file.get(), mode) != 0) return errno;
    if (const int error = pending == nullptr ? writeOut(file.get()) : flush(file.get(), *pending)) return error;
    return ::close(file.release()) == 0 ? 0 : errno;
}

int AtomicFile::commit() {
    if (::rename(temporary_.c_str(), path_.c_str()) != 0) return errno;
    exists_ = false;
    return 0;
}

namespace {

void commitOrThrow(AtomicFile& file, const std::string& path, int error) {
    if (error == 0) error = file.commit();
    if (error != 0) throw TidewrackError::io("write", path, error);
}

} // namespace

void writeFileAtomically(const std::string& path, std::string_view bytes) {
    AtomicFile file(path);
    commitOrThrow(file, path, file.write(bytes, 0644));
}

void writeFileAfter(const PendingWrites& pending, const std::string& path, std::string_view bytes) {
    AtomicFile file(path);
    commitOrThrow(file, path, file.writeAfter(pending, bytes, 0644));
}

int makeFolders(const std::string& path, mode_t mode) {
    if (::mkdir(path.c_str(), mode) == 0 || (errno == EEXIST && isFolder(path))) return 0;
    if (errno != ENOENT) return errno;
    const auto slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) return ENOENT;
    if (const int error = makeFolders(path.substr(0, slash), mode)) return error;
    return ::mkdir(path.c_str(), mode) == 0 || (errno == EEXIST && isFolder(path)) ? 0 : errno;
}

std::optional<std::vector<std::string>> listFolder(const std::string& path) {
    DIR* stream = ::opendir(path.c_str());
    if (stream == nullptr) return std::nullopt;
    std::vector<std::string> names;
    while (const dirent* item = ::readdir(stream))
        if (std::strcmp(item->d_name, ".") != 0 && std::strcmp(item->d_name, "..") != 0)
            names.emplace_back(item->d_name);
    ::closedir(stream);
    return names;
}

bool isFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

bool isLink(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
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
