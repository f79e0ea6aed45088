#pragma once
// Whole files: reading, and writing so that a reader sees the old or the new one, never a part.

#include "Platform/Flush.hpp"

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Reads a whole file into `out`. Returns an errno value.
[[nodiscard]] int readFile(const std::string& path, std::string& out);

// --- Temporary files ---
// All of them begin so.
constexpr std::string_view temporaryPrefix = ".tidewrack-";
// A file that replaces another one is first written under a temporary name in the same folder: ".tidewrack-<pid>-<n>".
[[nodiscard]] std::string temporaryName();
// Whether the name is such a one of a process that died. One that bears this process's number is of an earlier process
// that had it too, as happens in containers; so this is asked before the process writes one.
[[nodiscard]] bool isLeftover(std::string_view name);
// Renames a file or folder over what may be there. Returns an errno value; where a network volume has repeated the
// call, because its answer was lost, that it is done already is success.
[[nodiscard]] int moveFile(const std::string& from, const std::string& to);
// Removes the files in a folder of ours that bear such a name, as far as that is possible.
void removeLeftovers(const std::string& folder);

// Replaces a file, or makes one with mode 0644: a reader sees the old or the new one, never a part, and not even a
// power cut leaves an empty file in its place. Throws TidewrackError io "can't write <path>: <reason>".
void writeFileAtomically(const std::string& path, std::string_view bytes);
// The same without waiting for the disk: a power cut within the next moment may leave an empty file.
void writeFileSoon(const std::string& path, std::string_view bytes);
// The same. The new name and every later one reach the disk after everything that was done on the volume before,
// `pending` included.
void writeFileAfter(const PendingWrites& pending, const std::string& path, std::string_view bytes);
// The same for a file of the user. It gets mode and owner of `like`, as far as our rights go; without `like` (null),
// the mode that the user's new files have.
void writeUserFile(const std::string& path, std::string_view bytes, const struct stat* like);
// The same in the place of what was read there, `before`; none: of nothing. False where something else is there, which
// stays, also when it came at the last moment.
[[nodiscard]] bool replaceUserFile(const std::string& path, const std::optional<std::string>& before,
                                   std::string_view bytes, const struct stat* like);

// Creates a folder with all missing parents. Returns an errno value; an existing folder is success. New folders
// get `mode`.
[[nodiscard]] int makeFolders(const std::string& path, mode_t mode);

// The names in a folder, without "." and "..", in the file system's order; none where there is no such folder. Throws
// TidewrackError io "can't list <path>: ..." for a folder that cannot be listed, which must not pass for an empty one.
[[nodiscard]] std::vector<std::string> listFolder(const std::string& path);
// The same names, one by one.
void forEachName(const std::string& path, const std::function<void(std::string_view)>& visit);
// The same until `visit` returns false. Returns an errno value; 0 when the folder could be read that far.
[[nodiscard]] int visitNames(const std::string& path, const std::function<bool(const char*)>& visit);

[[nodiscard]] bool isFolder(const std::string& path); // follows a symbolic link
[[nodiscard]] bool exists(const std::string& path);   // does not follow one
[[nodiscard]] bool isFile(const std::string& path);   // neither
[[nodiscard]] bool isLink(const std::string& path);
// Whether the item at the canonical `path` is the one at `folder` or lies in it. What is on disk decides, because the
// same folder may be reached under several names.
[[nodiscard]] bool liesIn(std::string_view path, const std::string& folder);

// An absolute path as the disk spells it: symbolic links resolved and, on volumes that take several spellings for one
// name, the name that was given to it. Empty when nothing is there.
[[nodiscard]] std::string realPath(const std::string& path);
// The same for the item itself: a symbolic link as the last component is not followed, and only the parent need exist.
[[nodiscard]] std::string realPlace(const std::string& path);

} // namespace tidewrack
