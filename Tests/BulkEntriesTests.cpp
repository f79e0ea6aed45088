// Entries as macOS packs them: what is there is read, and what can't be is not guessed.

#include "Platform/BulkEntries.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace tidewrack;

namespace {

template <typename Value>
void put(std::string& bytes, Value value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

struct Packed {
    std::string name = "file";
    std::uint32_t common = bulk::common & ~bulk::error;
    std::uint32_t file = bulk::file;
    std::uint32_t error = 0;
    std::uint32_t type = bulk::regular;
    std::uint32_t flags = 0;
    std::uint32_t links = 1;
    std::int32_t nameOffset = 0; // added to the right one
    std::uint32_t nameLength = 0;

    [[nodiscard]] std::string bytes() const {
        std::string fields;
        for (const std::uint32_t came : {common, 0U, 0U, file, 0U}) put(fields, came);
        if ((common & bulk::error) != 0) put(fields, error);
        const std::size_t reference = fields.size();
        put(fields, std::uint64_t{0});
        if ((common & bulk::device) != 0) put(fields, std::int32_t{7});
        if ((common & bulk::type) != 0) put(fields, type);
        for (const std::int64_t value : {-2LL, 5LL, 3LL, 4LL}) put(fields, value); // two times
        put(fields, std::uint32_t{0100644});
        put(fields, flags);
        put(fields, std::uint64_t{1} << 40);
        if ((file & bulk::fileLinks) != 0) put(fields, links);
        if ((file & bulk::fileSize) != 0) put(fields, std::int64_t{5} << 32);
        const std::int32_t offset = static_cast<std::int32_t>(fields.size() - reference) + nameOffset;
        const std::uint32_t length = static_cast<std::uint32_t>(name.size()) + 1 + nameLength;
        std::memcpy(fields.data() + reference, &offset, 4);
        std::memcpy(fields.data() + reference + 4, &length, 4);
        fields += name + '\0';
        fields.resize((fields.size() + 7) / 8 * 8 + 4);
        std::string all;
        put(all, static_cast<std::uint32_t>(fields.size() + 4));
        return all + fields;
    }
};

bool reads(const std::string& bytes, int count, std::vector<BulkEntry>& entries) {
    return readBulkEntries(std::as_bytes(std::span(bytes.data(), bytes.size())), count, entries);
}

} // namespace

TEST(BulkEntries, plainFilesHaveTheirAttributes) {
    const std::string bytes = Packed{.name = "one"}.bytes() + Packed{.name = "another"}.bytes() + "rest of the buffer";
    std::vector<BulkEntry> entries;
    ASSERT_TRUE(reads(bytes, 2, entries));
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].name, "one");
    EXPECT_EQ(entries[1].name, "another");
    Attributes expected;
    expected.kind = Attributes::Kind::file;
    expected.mode = 0644;
    expected.size = std::int64_t{5} << 32;
    expected.mtime = -2 * nanosPerSecond + 5;
    expected.ctime = 3 * nanosPerSecond + 4;
    expected.ino = std::uint64_t{1} << 40;
    expected.device = 7;
    expected.links = 1;
    EXPECT_EQ(entries[1].attributes, expected);
}

// A folder may have a volume on it, a compressed file two sizes, and an attribute may be missing.
TEST(BulkEntries, ofAllElseTheNameAloneIsBelieved) {
    for (const Packed& packed :
         {Packed{.type = 2}, Packed{.type = 5}, Packed{.flags = bulk::compressed}, Packed{.flags = bulk::dataless},
          Packed{.links = 2}, Packed{.common = bulk::common, .error = 13}, Packed{.file = bulk::fileLinks},
          Packed{.common = bulk::common & ~(bulk::error | bulk::device)}}) {
        const std::string bytes = packed.bytes(); // in which the name lies
        std::vector<BulkEntry> entries;
        ASSERT_TRUE(reads(bytes, 1, entries));
        EXPECT_EQ(entries[0].name, "file");
        EXPECT_FALSE(entries[0].attributes);
    }
}

TEST(BulkEntries, whatIsNotAsItShouldBeIsRefused) {
    std::vector<BulkEntry> entries;
    const std::string good = Packed().bytes();
    for (std::size_t size = 0; size < good.size(); ++size)
        EXPECT_FALSE(reads(good.substr(0, size), 1, entries)) << size;
    EXPECT_FALSE(reads(good, 2, entries));
    for (const Packed& packed :
         {Packed{.name = ""}, Packed{.name = "a/b"}, Packed{.name = std::string("a\0b", 3)}, Packed{.nameOffset = -200},
          Packed{.nameOffset = 200}, Packed{.nameLength = 1000}, Packed{.file = bulk::file | 2},
          Packed{.common = bulk::common & ~bulk::error & ~bulk::name}})
        EXPECT_FALSE(reads(packed.bytes(), 1, entries)) << packed.name;
    for (std::uint32_t length : {0U, 3U, 4U, 20U, 0xffffffffU}) {
        std::string bytes = good;
        std::memcpy(bytes.data(), &length, 4);
        EXPECT_FALSE(reads(bytes, 1, entries)) << length;
    }
}
