#include "Platform/OpenFolder.hpp"

#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <utility>

namespace tidewrack {

namespace {

// Paths come from listings that may be damaged, so none may be absolute or lead up.
bool staysBelow(std::string_view path) {
    if (path.starts_with('/')) return false;
    while (!path.empty()) {
        const auto slash = path.find('/');
        if (path.substr(0, slash) == "..") return false;
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
    }
    return true;
}

// A path up to PATH_MAX is one system call; a longer one is opened piece by piece.
std::size_t pieceLength(std::string_view path) {
    if (path.size() < PATH_MAX) return path.size();
    const auto slash = path.rfind('/', PATH_MAX - 1);
    return slash == std::string_view::npos || slash == 0 ? path.size() : slash;
}

} // namespace

int openFolderBelow(int root, std::string_view path, Descriptor& out) {
    if (!staysBelow(path)) return EINVAL;
    if (path.empty()) path = ".";
    Descriptor reached;
    while (true) {
        const std::string piece(path.substr(0, pieceLength(path)));
        Descriptor next;
        if (const int error = openPieceBelow(reached ? reached.get() : root, piece.c_str(), next)) return error;
        reached = std::move(next);
        if (piece.size() == path.size()) break;
        path.remove_prefix(piece.size() + 1);
    }
    out = std::move(reached);
    return 0;
}

int openFolder(const std::string& path, Descriptor& out) {
    Descriptor fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) return errno;
    out = std::move(fd);
    return 0;
}

} // namespace tidewrack
