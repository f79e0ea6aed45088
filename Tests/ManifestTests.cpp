#include "Support/TestHistory.hpp"

#include "Store/Manifest.hpp"
#include "Support/Errors.hpp"

#include <gtest/gtest.h>

#include <random>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

Manifest parsed(const std::string& text) {
    return Manifest::decodeText(TextBuffer(text));
}

std::string faultOf(const std::string& text) {
    return thrownBy([&] { return parsed(text); });
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
    EXPECT_EQ(manifest.below("src").first->path, "src/a b.txt"); // neither "src" nor "src-x"
    EXPECT_EQ(manifest.below("src").last - manifest.below("src").first, 1);
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

TEST(Manifest, escapesPaths) {
    const std::string plain = "a b/\xc3\xbc\xff\r'\"";
    EXPECT_EQ(Manifest::escape(plain), plain);
    EXPECT_EQ(Manifest::escape("\\\t\n"), "\\\\\\t\\n");
    EXPECT_EQ(Manifest::unescape("\\x\\"), "x\\"); // an unknown escape stands for itself, a last backslash too
    const std::string two = "f\t1\t1\t1\t1\t1\t1/0\tbad\xfe\nf\t1\t1\t1\t1\t1\t1/1\tbad\xff\n";
    EXPECT_EQ(parsed(two).encodedText(), two);
}

TEST(Manifest, parseFaults) {
    const std::string kind = "Corrupt store data: manifest kind";
    const std::string number = "Corrupt store data: manifest number";
    const std::string end = "Corrupt store data: manifest line end";
    EXPECT_EQ(faultOf("x" + line.substr(1)), kind);
    EXPECT_EQ(faultOf("f" + line), kind);
    EXPECT_EQ(faultOf("\n" + line), kind);
    EXPECT_EQ(faultOf("f"), number); // no further field
    EXPECT_EQ(faultOf(line + line.substr(0, line.size() - 1)), end);
    for (const char* bad : {"12a", "", "-", "+1", " 1", "1 ", "0x1", "9223372036854775808", "--1"}) {
        EXPECT_EQ(faultOf(std::string("f\t1\t") + bad + "\t1\t1\t1\t1/0\ta\n"), number) << bad;
        EXPECT_EQ(faultOf(std::string("f\t1\t1\t") + bad + "\t1\t1\t1/0\ta\n"), number) << bad;
    }
    EXPECT_EQ(faultOf("f\t65536\t1\t1\t1\t1\t1/0\ta\n"), number);
    EXPECT_EQ(faultOf("f\t-1\t1\t1\t1\t1\t1/0\ta\n"), number);
    EXPECT_EQ(faultOf("f\t1\t1\t1\t1\t-1\t1/0\ta\n"), number);
    EXPECT_EQ(faultOf("f\t1\t1\t1\t1\t1\t1/0"), end);

    const std::string start = "f\t1\t1\t1\t1\t1\t";
    const auto blobFault = [](const std::string& text) {
        return thrownBy([&] { Manifest::forEachBlob(text, [](std::string_view) {}); });
    };
    for (const std::string& text : {"x" + line.substr(1), "f" + line, "\n" + line, line + "f\n"})
        EXPECT_EQ(blobFault(text), kind) << text;
    for (const std::string& text : {std::string("f"), line.substr(0, line.size() - 1), start + "\n", start + "1/0\n"})
        EXPECT_EQ(blobFault(line + text), end) << text;
    for (const char* bad : {"1", "/0", "1/", "1/0/0", "1/-1", "a/0", " ", "ignored"})
        EXPECT_EQ(blobFault(start + bad + "\ta\n"), "Corrupt store data: manifest blob") << bad;
}

TEST(Manifest, keepsTheLaterOfEqualPathsAndSorts) {
    const Manifest manifest = parsed("f\t1\t1\t1\t1\t1\t1/0\tb\n"
                                     "f\t1\t1\t1\t1\t1\t1/1\ta/x\n"
                                     "f\t1\t1\t1\t1\t1\t1/2\tb\n"
                                     "f\t1\t1\t1\t1\t1\t1/3\ta-x\n");
    EXPECT_EQ(manifest.encodedText(), "f\t1\t1\t1\t1\t1\t1/3\ta-x\n"
                                      "f\t1\t1\t1\t1\t1\t1/1\ta/x\n"
                                      "f\t1\t1\t1\t1\t1\t1/2\tb\n");
}

TEST(Manifest, reasonsOfContentsNotKept) {
    const auto reason = [](const char* blob) { return Entry{EntryKind::file, 0, 0, 0, 0, 0, blob}.notKeptReason(); };
    EXPECT_EQ(reason("big:300000000:1"), "it was larger than the size limit");
    EXPECT_EQ(reason("err13"), "it couldn't be read: Permission denied");
    EXPECT_TRUE(reason("err").has_value());
    EXPECT_TRUE(reason("err99999999999999").has_value());
    for (const char* kept : {"1/0", "", "ign"}) EXPECT_EQ(reason(kept), std::nullopt) << kept;
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
    for (const std::size_t entries : {1U, 40U, 400U}) {
        const std::string bytes = listing(entries).encoded();
        const std::size_t step = entries == 400 ? 31 : entries == 40 ? 5 : 1;
        for (std::size_t length = 0; length < bytes.size(); length += step)
            EXPECT_THROW((void)Manifest::decode(bytes.substr(0, length)), TidewrackError) << entries << " " << length;
    }
    EXPECT_THROW((void)Manifest::decode("not a manifest at all"), TidewrackError);
}

TEST(Manifest, pathIndexFindsEveryPath) {
    const Manifest manifest = listing(1000);
    const PathIndex index(manifest);
    for (std::uint32_t i = 0; i < manifest.size(); ++i) EXPECT_EQ(index.find(manifest.items()[i].path), i);
    EXPECT_EQ(index.find("src"), PathIndex::none);
    EXPECT_EQ(index.find(""), PathIndex::none);
    EXPECT_EQ(PathIndex(Manifest()).find("a"), PathIndex::none);
}

TEST(Manifest, buildsOnABaseThatMayGo) {
    std::optional<Manifest> base =
        parsed("f\t1\t1\t1\t1\t1\t1/0\ta\nf\t1\t1\t1\t1\t1\t1/1\tb\nf\t1\t1\t1\t1\t1\t1/2\td\n");
    ManifestBuilder builder(*base);
    Entry changed = *base->find("b");
    changed.blob = "2/0";
    builder.add("e", changed);
    builder.add("d", *base->find("d"), 2);
    const auto handle = builder.add("b", *base->find("b"), 1);
    builder.add("c", *base->find("a"));
    builder.setEntry(handle, changed);
    EXPECT_EQ(builder.item(handle).path, "b");
    const Manifest built = builder.finish();
    base.reset();
    EXPECT_EQ(built.encodedText(), "f\t1\t1\t1\t1\t1\t2/0\tb\nf\t1\t1\t1\t1\t1\t1/0\tc\n"
                                   "f\t1\t1\t1\t1\t1\t1/2\td\nf\t1\t1\t1\t1\t1\t2/0\te\n");
}
