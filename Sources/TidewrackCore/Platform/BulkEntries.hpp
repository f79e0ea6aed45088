#pragma once
// What getattrlistbulk of macOS writes for the entries of a folder: names and attributes, many at once. The reading of
// it is the same everywhere, so that it can be tested everywhere.

#include "Platform/Attributes.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace tidewrack {

// The attributes that are asked for, and no others can come. The system packs them in this order.
namespace bulk {
constexpr std::uint32_t returned = 0x80000000;
constexpr std::uint32_t error = 0x20000000;
constexpr std::uint32_t name = 0x1;
constexpr std::uint32_t device = 0x2;
constexpr std::uint32_t type = 0x8;
constexpr std::uint32_t modified = 0x400;
constexpr std::uint32_t changed = 0x800;
constexpr std::uint32_t mode = 0x20000;
constexpr std::uint32_t flags = 0x40000;
constexpr std::uint32_t inode = 0x2000000;
constexpr std::uint32_t common = returned | error | name | device | type | modified | changed | mode | flags | inode;
constexpr std::uint32_t fileLinks = 0x1;
constexpr std::uint32_t fileSize = 0x200;
constexpr std::uint32_t file = fileLinks | fileSize;
constexpr std::uint32_t regular = 1;           // as a type
constexpr std::uint32_t compressed = 0x20;     // as a flag: the size may be that of what is stored
constexpr std::uint32_t dataless = 0x40000000; // as a flag: the content is elsewhere
} // namespace bulk

struct BulkEntry {
    std::string_view name; // in the buffer, with a NUL behind it
    // Of plain files with one name alone. What else there may be (a folder on which a volume is mounted, say) has to
    // be asked for by itself.
    std::optional<Attributes> attributes;
};

// Reads the `count` entries at the beginning of the buffer. False where they are not as they should be; none of them is
// to be believed then.
[[nodiscard]] bool readBulkEntries(std::span<const std::byte> buffer, int count, std::vector<BulkEntry>& entries);

} // namespace tidewrack
