#pragma once
// The one way in which folders are listed: FolderStreamLinux.cpp reads their entries straight from the system, since a
// walk does little else; FolderStreamMacos.cpp goes through readdir.

#include "Platform/Descriptor.hpp"

#include <memory>
#include <string>

namespace tidewrack {

// The names in a folder, without "." and "..", in no particular order. What is added or removed meanwhile may or may
// not be among them.
class FolderStream {
  public:
    // Takes over an open folder. An empty `folder` stands for a failed opening, whose errno is then still set.
    explicit FolderStream(Descriptor folder);
    // Opens the folder `name` in the open folder `parent`; a link is not followed.
    FolderStream(int parent, const char* name);
    // Opens a folder by its path, through links.
    explicit FolderStream(const std::string& path);
    FolderStream(const FolderStream&) = delete;
    FolderStream& operator=(const FolderStream&) = delete;
    ~FolderStream();

    // The errno value of a failed opening or reading; 0 when there was none.
    [[nodiscard]] int error() const { return error_; }
    [[nodiscard]] int fd() const;
    // The next name, valid until the next call; null after the last one and after an error.
    [[nodiscard]] const char* next();

  private:
    struct Position; // how far the system's way of reading has come
    Descriptor folder_;
    int error_;
    std::unique_ptr<Position> position_;
};

} // namespace tidewrack
