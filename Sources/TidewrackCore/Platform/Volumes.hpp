#pragma once
// What volumes can do.

#include <string>

namespace tidewrack {

// The usual name of the type of the volume that holds `path` ("apfs", "ext4", "btrfs", ...); empty when unknown.
[[nodiscard]] std::string volumeType(const std::string& path);

// Whether the volume that holds the folder `path` can share blocks between files.
[[nodiscard]] bool volumeClones(const std::string& path);

// Whether names in the folder `path` are found in any case, so that one file has many spellings.
[[nodiscard]] bool volumeIgnoresCase(const std::string& path);

} // namespace tidewrack
