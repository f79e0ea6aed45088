#include "Support/TestFolders.hpp"

#include "Engine/Spelling.hpp"
#include "Store/Manifest.hpp"
#include "Support/Errors.hpp"

#include <gtest/gtest.h>

#include <cerrno>

#include <initializer_list>
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
    EXPECT_EQ(parsed("f\t1\t1\t1\t1\t1\t1/0\tbig\n" + text).items(), manifest.items()) << "the later line counts";
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

TEST(Manifest, tellsWhyContentsWereNotKept) {
    using Why = KeepFailure::Why;
    const std::string unread = "it couldn't be read";
    for (const auto& [blob, reason] : std::vector<std::pair<std::string, std::string>>{
             {"err", unread},
             {"err99999999999999", unread},
             {KeepFailure::system(EACCES).blob(), unread + ": Permission denied"},
             {KeepFailure{Why::changing}.blob(), "it kept changing while it was copied"},
             {KeepFailure{Why::late}.blob(), "there was no time left to copy it"},
             {"1/2", "kept"}}) {
        const Entry entry{EntryKind::file, 0, 0, 0, 0, 0, blob};
        EXPECT_EQ(entry.notKeptReason().value_or("kept"), reason) << blob;
        EXPECT_EQ(entry.notKept(), reason != "kept") << blob;
    }
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

TEST(Spelling, isTheOneOfTheListings) {
    const auto listing = [](std::initializer_list<const char*> paths) {
        ManifestBuilder builder;
        for (const char* path : paths) builder.add(path, {});
        return builder.finish();
    };
    const Manifest then = listing({"README", "src", "src/caf\u00e9", "stra\u00dfe"});
    const Manifest today = listing({"ReadMe", "src", "src/caf\u00e9"});
    using Paths = std::vector<std::string>;
    EXPECT_EQ(asListed({"readme", "SRC/Cafe\u0301", "STRASSE", "gone", ""}, {&then, &today}),
              (Paths{"README", "ReadMe", "src/caf\u00e9", "stra\u00dfe", "gone", ""}));
    EXPECT_EQ(asListed({"README"}, {&then, &today}), (Paths{"README", "ReadMe"}));
    EXPECT_EQ(asListed({"Src", "src/cafe"}, {&today}), (Paths{"src", "src/cafe"}));
}
