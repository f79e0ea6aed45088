#pragma once
// Whole files: reading, and writing so that a reader sees the old or the new one, never a part.

#include "Platform/Descriptor.hpp"
#include "Platform/Flush.hpp"

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Reads a whole file into `out`. Returns an errno value.
[[nodiscard]] int readFile(const std::string& path, std::string& out);

// A file that is written beside its place and appears there only with commit(); without it the destructor removes
// the temporary.
class [[nodiscard]] AtomicFile {
  public:
    explicit AtomicFile(std::string path);
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    ~AtomicFile();

    // Writes the content with the given permission bits, and out to the disk: not even a power cut leaves an empty file
    // in its place. Returns an errno value.
    [[nodiscard]] int write(std::string_view bytes, mode_t mode) { return write(bytes, mode, nullptr); }
    // The same after which all that was done on the volume before, `pending` included, is on the disk.
    [[nodiscard]] int writeAfter(const PendingWrites& pending, std::string_view bytes, mode_t mode) {
        return write(bytes, mode, &pending);
    }
    // Moves it into place; returns an errno value.
    [[nodiscard]] int commit();

  private:
    [[nodiscard]] int write(std::string_view bytes, mode_t mode, const PendingWrites* pending);

    std::string path_;
    std::string temporary_;
    bool exists_ = false;
};

// AtomicFile in one call, mode 0644. Throws TidewrackError io "can't write <path>: <reason>".
void writeFileAtomically(const std::string& path, std::string_view bytes);
// The same, once all that was done on the volume before, `pending` included, is on the disk.
void writeFileAfter(const PendingWrites& pending, const std::string& path, std::string_view bytes);

// Creates a folder with all missing parents. Returns an errno value; an existing folder is success. New folders
// get `mode`.
[[nodiscard]] int makeFolders(const std::string& path, mode_t mode);

// The names in a folder, without "." and "..", in the file system's order; none when it cannot be listed.
[[nodiscard]] std::optional<std::vector<std::string>> listFolder(const std::string& path);

[[nodiscard]] bool isFolder(const std::string& path); // follows a symbolic link
[[nodiscard]] bool exists(const std::string& path);   // does not follow one
[[nodiscard]] bool isLink(const std::string& path);

// An absolute path as the disk spells it: symbolic links resolved and, on volumes that take several spellings for one
// name, the name that was given to it. Empty when nothing is there.
[[nodiscard]] std::string realPath(const std::string& path);
// The same for the item itself: a symbolic link in last place is not followed, nor must anything be there.
[[nodiscard]] std::string realPlace(const std::string& path);

} // namespace tidewrack
