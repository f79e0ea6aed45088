#pragma once
// What volumes can do.

#include <cstdint>
#include <optional>
#include <string>

namespace tidewrack {

// The usual name of the type of the volume that holds `path` ("apfs", "ext4", "btrfs", ...); empty when unknown.
[[nodiscard]] std::string volumeType(const std::string& path);

// Whether the volume that holds the folder `path` can share blocks between files.
[[nodiscard]] bool volumeClones(const std::string& path);

// A sentence that names the volumes that can, on systems where users choose the type; else none.
[[nodiscard]] std::optional<std::string> adviceOnClones();

// Whether two existing items, links not followed, lie on one volume, so that blocks can be shared between them where
// the volume does that at all.
[[nodiscard]] bool sameVolume(const std::string& a, const std::string& b);

// Bytes of the volume that holds `path`; the largest number where the system does not tell.
struct VolumeRoom {
    std::int64_t all = INT64_MAX;
    std::int64_t free = INT64_MAX; // for this user
};
[[nodiscard]] VolumeRoom volumeRoom(const std::string& path);

// Whether the folder `path` finds names in upper and lower case alike, so that one file has many spellings.
[[nodiscard]] bool volumeIgnoresCase(const std::string& path);

} // namespace tidewrack
