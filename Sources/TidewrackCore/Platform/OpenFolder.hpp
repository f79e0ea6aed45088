#pragma once
// Folders opened so that nothing can lead the opening elsewhere.
// Work on one path returns an errno value (0 is success); nothing here throws or prints.

#include "Platform/Descriptor.hpp"

#include <string>
#include <string_view>

namespace tidewrack {

// Opens the folder at `path` below the open folder `root` for reading (the folder itself when `path` is empty).
// No component may be a symbolic link, so a link swapped in for a parent never leads outside; paths longer than
// PATH_MAX are walked in pieces; a path that is absolute or leads up ("..") is EINVAL. Returns an errno value.
[[nodiscard]] int openFolderBelow(int root, std::string_view path, Descriptor& out);

// One piece of openFolderBelow: `path` is shorter than PATH_MAX.
[[nodiscard]] int openPieceBelow(int root, const char* path, Descriptor& out);

// Opens a folder by its absolute path; its last component may not be a symbolic link.
[[nodiscard]] int openFolder(const std::string& path, Descriptor& out);

} // namespace tidewrack
