#pragma once
// Work on paths below one open folder. Every parent is opened without following a symbolic link, so nothing outside
// is ever reached, and a path may be longer than PATH_MAX.

#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace tidewrack {

// Keeps the parent folder of the latest path open, since neighbours mostly share it. Used by one thread. All results
// are errno values.
class FolderBelow {
  public:
    // `root` must stay open as long as this lives.
    explicit FolderBelow(int root) : root_(root) {}

    // The open parent folder and the name within it. Valid until the next call.
    [[nodiscard]] int place(std::string_view path, Place& out);

    // Work on the item at the path itself; a link there is not followed.
    [[nodiscard]] int attributes(std::string_view path, Attributes& out);
    [[nodiscard]] int readLink(std::string_view path, std::string& out);
    [[nodiscard]] int removeFile(std::string_view path);
    [[nodiscard]] int removeFolder(std::string_view path);
    // Made by root it belongs to the owner of its parent: history knows no owners.
    [[nodiscard]] int makeFolder(std::string_view path, std::uint16_t mode);
    [[nodiscard]] int setMode(std::string_view path, std::uint16_t mode); // of a file or folder
    [[nodiscard]] int setTime(std::string_view path, std::int64_t mtime);

    // Drops the open parent: folders have been removed or replaced since.
    void forget();

  private:
    int root_;
    std::string parentPath_;
    Descriptor parent_;
    std::string name_;
};

} // namespace tidewrack
