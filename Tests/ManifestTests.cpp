#include "Support/TestHistory.hpp"

#include "Store/Manifest.hpp"
#include "Support/Errors.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

Manifest parsed(const std::string& text) {
    return Manifest::decodeText(TextBuffer(text));
}

// `count` entries with numbers that hardly compress.
Manifest listing(std::size_t count) {
    ManifestBuilder builder;
    std::mt19937_64 random(count);
    const auto number = [&](int bits) { return static_cast<std::int64_t>(random() >> (64 - bits)); };
    for (std::size_t i = 0; i < count; ++i) {
        const std::string blob = "7/" + std::to_string(i);
        const Entry entry{EntryKind::file, 0644, number(17), number(61), -number(61), random(), blob};
        builder.add("src/folder-" + std::to_string(i % 97) + "/file-" + std::to_string(i), entry);
    }
    return builder.finish();
}

const std::string line = "f\t420\t6\t-5\t7\t18446744073709551615\t1/0\tsrc/a b.txt\n";

} // namespace

TEST(Manifest, goldenText) {
    ManifestBuilder builder;
    builder.add("src", {EntryKind::dir, 0755, 4096, 1700000000123456789, 2, 3, ""});
    builder.add("src/a b.txt", {EntryKind::file, 0644, 6, -5, 7, UINT64_MAX, "1/0"});
    builder.add("a\tb\\c\n", {EntryKind::link, 0777, 5, 1, 2, 3, "1/1"});
    builder.add("src-x", {EntryKind::dir, 07777, 0, 0, 0, 4, "ign"});
    builder.add("big", {EntryKind::file, 0, 300000000, 1, 2, 5, "big:300000000:1"});
    const std::string text = "l\t511\t5\t1\t2\t3\t1/1\ta\\tb\\\\c\\n\n"
                             "f\t0\t300000000\t1\t2\t5\tbig:300000000:1\tbig\n"
                             "d\t493\t4096\t1700000000123456789\t2\t3\t\tsrc\n"
                             "d\t4095\t0\t0\t0\t4\tign\tsrc-x\n" +
                             line;
    const Manifest manifest = builder.finish();
    EXPECT_EQ(manifest.encodedText(), text);
    EXPECT_EQ(parsed(text).items(), manifest.items());
    std::vector<std::string> blobs;
    Manifest::forEachBlob(text, [&](std::string_view blob) { blobs.emplace_back(blob); });
    ASSERT_EQ(blobs.size(), manifest.size());
    for (std::size_t i = 0; i < blobs.size(); ++i) EXPECT_EQ(blobs[i], manifest.items()[i].entry.blob);
    EXPECT_EQ(Manifest::decode(manifest.encoded()).items(), manifest.items());
    EXPECT_EQ(manifest.fileCount(), 3);
    EXPECT_EQ(manifest.find("src/a"), nullptr);
    EXPECT_TRUE(manifest.listsBelow("src"));
}

// A stream made by hand: one stored block and the end marker.
TEST(Manifest, readsAForeignStream) {
    std::string bytes = "bvx-";
    for (const unsigned shift : {0U, 8U, 16U, 24U}) bytes += static_cast<char>((line.size() >> shift) & 255);
    bytes += line + "bvx$";
    EXPECT_EQ(Manifest::decode(bytes).encodedText(), line);
    EXPECT_TRUE(Manifest::decode("bvx$").empty());
    EXPECT_TRUE(Manifest::decode(Manifest().encoded()).empty());
}

TEST(Manifest, saysWhatIsWrong) {
    const std::string start = "f\t1\t1\t1\t1\t1\t";
    const std::pair<const char*, std::vector<std::string>> faults[] = {
        {"kind", {"x" + line.substr(1), "f" + line, "\n" + line}},
        {"number",
         {"f", "f\t1\t12a\t1\t1\t1\t1/0\ta\n", "f\t1\t1\t9223372036854775808\t1\t1\t1/0\ta\n",
          "f\t65536\t1\t1\t1\t1\t1/0\ta\n", "f\t-1\t1\t1\t1\t1\t1/0\ta\n", "f\t1\t1\t1\t1\t-1\t1/0\ta\n"}},
        {"line end", {line + line.substr(0, line.size() - 1), start + "1/0"}}};
    for (const auto& [fault, texts] : faults)
        for (const std::string& text : texts)
            EXPECT_EQ(thrownBy([&] { return parsed(text); }), std::string("Corrupt store data: manifest ") + fault)
                << text;

    for (const char* bad : {"1", "/0", "1/", "1/0/0", "1/-1", "a/0", " ", "ignored"})
        EXPECT_EQ(thrownBy([&] { Manifest::forEachBlob(start + bad + "\ta\n", [](std::string_view) {}); }),
                  "Corrupt store data: manifest blob")
            << bad;
}

TEST(Manifest, keepsTheLaterOfEqualPaths) {
    const std::string first = "f\t1\t1\t1\t1\t1\t1/0\tb\n";
    const std::string second = "f\t1\t1\t1\t1\t1\t1/2\tb\n";
    EXPECT_EQ(parsed(first + line + second).encodedText(), second + line);
}

TEST(Manifest, tellsOddReasonsOfContentsNotKept) {
    for (const char* blob : {"err", "err99999999999999"})
        EXPECT_TRUE((Entry{EntryKind::file, 0, 0, 0, 0, 0, blob}.notKeptReason())) << blob;
}

TEST(Manifest, largeOnesAreCompressedInTwoHalves) {
    const Manifest manifest = listing(20000);
    const std::string text = manifest.encodedText();
    ASSERT_GT(text.size(), std::size_t{1} << 20);
    const std::string bytes = manifest.encoded();
    EXPECT_LT(bytes.size(), text.size() * 3 / 4);
    EXPECT_EQ(Manifest::decode(bytes).encodedText(), text);
    EXPECT_EQ(manifest.encoded(), bytes);
    // Text that shrinks to almost nothing needs far more room than its bytes suggest.
    ManifestBuilder builder;
    const std::string name(200, 'a');
    for (int i = 0; i < 20000; ++i) builder.add(name + std::to_string(i), {EntryKind::dir, 0755, 0, 0, 0, 1, ""});
    const Manifest same = builder.finish();
    EXPECT_EQ(Manifest::decode(same.encoded()).items(), same.items());
}

TEST(Manifest, noPartOfAStreamDecodes) {
    for (const std::size_t entries : {1U, 40U}) {
        const std::string bytes = listing(entries).encoded();
        for (std::size_t length = 0; length < bytes.size(); length += entries == 40 ? 5 : 1)
            EXPECT_THROW((void)Manifest::decode(bytes.substr(0, length)), TidewrackError) << entries << " " << length;
    }
    EXPECT_THROW((void)Manifest::decode("not a manifest at all"), TidewrackError);
}

// In byte order the contents of "a" come after "a-b", a folder need not be listed itself, and names may be alike for
// longer than what is compared at once.
TEST(Manifest, pathIndexFindsEveryPathInAnyOrder) {
    const std::vector<std::string> paths = {"a",           "a-b",          "a-b/x", "a/-",       "a/b",
                                            "a/b/x",       "b/lost/deep",  "x",     "x0",        "y/12345678",
                                            "y/123456789", "y/123456789a", "y/z",   "y/\xC3\xA4"};
    ManifestBuilder builder;
    for (const std::string& path : paths) builder.add(path, {EntryKind::file, 0644, 0, 0, 0, 1, ""});
    const Manifest manifest = builder.finish();
    PathIndex index(manifest);
    for (std::size_t step = 1; step <= paths.size(); ++step)
        for (std::size_t i = 0; i < paths.size(); ++i) {
            const std::size_t wanted = i * step % paths.size();
            EXPECT_EQ(index.find(paths[wanted]), wanted) << paths[wanted] << " after others, step " << step;
        }
    for (const char* path : {"b", "b/lost", "a/x", "a-b/b", "nowhere/x", "x0/x", "-", "y/1234567", "y/12345678a"})
        EXPECT_EQ(index.find(path), PathIndex::none) << path;
    EXPECT_EQ(PathIndex(Manifest()).find("a"), PathIndex::none);
}

// What the second listing has of the first comes by rank, in any order, as a walk finds it.
TEST(Manifest, builtUponAnotherSaysWhatWasAdded) {
    const Manifest base = listing(9);
    const auto again = [&](const std::function<void(ManifestBuilder&, const Manifest::Item&, std::uint32_t)>& add) {
        ManifestBuilder builder(base);
        for (std::size_t i = base.size(); i-- > 0;) add(builder, base.items()[i], static_cast<std::uint32_t>(i));
        return builder.finish();
    };
    const Manifest same = again([](auto& builder, const auto& item, auto rank) {
        const std::string blob(item.entry.blob);
        Entry entry = item.entry;
        entry.blob = blob;
        builder.add(item.path, entry, rank);
    });
    EXPECT_EQ(&same.items(), &base.items());
    std::vector<Manifest::Item> wanted;
    const Manifest other = again([&](auto& builder, const auto& item, auto rank) {
        if (rank == 4) return; // gone
        Entry entry = item.entry;
        if (rank == 2 || rank == 6) entry.size += 1;
        const auto handle = builder.add(item.path, entry, rank);
        if (rank == 3) entry.blob = "9/9";
        if (rank == 6) entry = item.entry; // it turns out the same after all
        builder.setEntry(handle, entry);
        EXPECT_EQ(builder.item(handle), (Manifest::Item{item.path, entry}));
        wanted.insert(wanted.begin(), {item.path, entry});
        if (rank == 5) builder.add("in between", entry);
    });
    const Entry& five = base.items()[5].entry;
    wanted.push_back({"in between", five});
    std::sort(wanted.begin(), wanted.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    EXPECT_EQ(other.items(), wanted);
}
