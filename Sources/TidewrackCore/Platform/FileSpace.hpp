#pragma once
// How much of a volume a file takes, and shares with others.

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tidewrack {

struct FileSpace {
    std::int64_t taken = 0;             // bytes of the volume
    std::optional<std::int64_t> shared; // of these also another file's; none where the volume doesn't tell
};

// The bytes of the volume that a file, folder or link itself takes, without asking what is shared, which takes opening
// it; 0 where there is nothing.
[[nodiscard]] std::int64_t takenSpace(const std::string& path);
[[nodiscard]] std::int64_t takenSpace(const struct stat& status);
// Of a file or link itself. Returns an errno value.
[[nodiscard]] int fileSpace(const std::string& path, FileSpace& out);
// The part of it that each system answers its own way: sets `shared` of a regular file whose `taken` is known.
[[nodiscard]] int sharedSpace(const std::string& path, FileSpace& out);

} // namespace tidewrack
