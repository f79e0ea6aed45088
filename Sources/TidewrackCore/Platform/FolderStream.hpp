#pragma once
// The one way in which folders are listed: FolderStreamLinux.cpp reads their entries straight from the system, since a
// walk does little else; FolderStreamMacos.cpp gets attributes along with the names where they are wanted, and else
// goes through readdir.

#include "Platform/Attributes.hpp"
#include "Platform/Descriptor.hpp"

#include <memory>
#include <string>

namespace tidewrack {

// The names in a folder, without "." and "..", in no particular order. What is added or removed meanwhile may or may
// not be among them.
class FolderStream {
  public:
    // What the caller is going to ask of most entries.
    enum class Wanted : bool { names, attributes };

    // Takes over an open folder. An empty `folder` stands for a failed opening, whose errno is then still set.
    explicit FolderStream(Descriptor folder, Wanted wanted = Wanted::names);
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
    // What lstat tells, or told when the system listed it, of the name that next() gave. Returns an errno value.
    [[nodiscard]] int attributes(const char* name, Attributes& out) const;

  private:
    void openStream(); // of names, on macOS
    struct Position;   // how far the system's way of reading has come
    Descriptor folder_;
    int error_;
    std::unique_ptr<Position> position_;
};

} // namespace tidewrack
