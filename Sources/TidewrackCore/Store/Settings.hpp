#pragma once
// What is set for a whole store: settings.json in its folder.

#include "Platform/Volumes.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

struct Settings {
    std::optional<std::int64_t> floor; // bytes that are to stay free on the volume; 0: none; absent: see below
    std::optional<std::int64_t> cap;   // bytes that the store may take; absent: any number

    bool operator==(const Settings&) const = default;

    // How much has to be free on the volume for a snapshot to keep large contents: unless it is set 1 GiB, or a
    // twentieth of the volume where that is more; of a small volume a tenth, or nothing large would ever be kept.
    [[nodiscard]] std::int64_t floorOf(const VolumeRoom& room) const;
    // Contents up to this size are kept however little room there is.
    static constexpr std::int64_t alwaysKept = std::int64_t{1} << 20;
};

// Whether too little room is left on the store's volume for large contents.
[[nodiscard]] bool isAlmostFull(const std::string& storeHome);

[[nodiscard]] std::string settingsPath(std::string_view storeHome);
// Those of the store. Without the file nothing is set. Throws TidewrackError io or corrupt.
[[nodiscard]] Settings readSettings(std::string_view storeHome);
// The same for who goes on where they can't be read, as if nothing were set.
[[nodiscard]] Settings settingsOrNone(std::string_view storeHome);
// Changes them, and nothing in the file that this program does not know. Throws TidewrackError io or corrupt.
void changeSettings(std::string_view storeHome, const std::function<void(Settings&)>& change);

} // namespace tidewrack
