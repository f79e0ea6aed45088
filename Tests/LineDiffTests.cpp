// That hunks make the new text of the old one is checked by Fuzz/LineDiffTarget.cpp.

#include "Support/TestFolders.hpp"

#include "Changes/EditScript.hpp"
#include "Changes/LineDiff.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <random>

using namespace tidewrack;

namespace {

using Ids = std::vector<LineId>;
using Kind = LineDiff::Result::Kind;

// The plain table, one row at a time.
std::size_t longestLength(const Ids& a, const Ids& b) {
    std::vector<std::size_t> row(b.size() + 1, 0);
    for (const LineId line : a) {
        std::size_t diagonal = 0;
        for (std::size_t at = 0; at < b.size(); ++at) {
            const std::size_t above = row[at + 1];
            row[at + 1] = line == b[at] ? diagonal + 1 : std::max(above, row[at]);
            diagonal = above;
        }
    }
    return row.back();
}

Ids without(Ids lines, const std::vector<std::size_t>& offsets) {
    EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
    for (auto at = offsets.rbegin(); at != offsets.rend(); ++at)
        lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(*at));
    return lines;
}

void expectShortest(const Ids& a, const Ids& b) {
    const EditScript script = shortestEditScript(a, b);
    const Ids kept = without(a, script.removed);
    ASSERT_EQ(kept, without(b, script.inserted));
    ASSERT_EQ(kept.size(), longestLength(a, b));
}

Ids randomLines(std::mt19937& random, std::size_t count, LineId letters) {
    Ids lines(count);
    for (LineId& line : lines) line = static_cast<LineId>(random() % letters);
    return lines;
}

// A copy with about `edits` lines changed, dropped or doubled.
Ids edited(std::mt19937& random, Ids lines, std::size_t edits, LineId letters) {
    for (; edits > 0 && !lines.empty(); --edits) {
        const auto at = lines.begin() + static_cast<std::ptrdiff_t>(random() % lines.size());
        switch (random() % 3) {
        case 0: *at = static_cast<LineId>(random() % letters); break;
        case 1: lines.erase(at); break;
        default: lines.insert(at, static_cast<LineId>(random() % letters)); break;
        }
    }
    return lines;
}

std::string numbered(int from, int to) {
    std::string text;
    for (; from <= to; ++from) text += std::to_string(from) + "\n";
    return text;
}

} // namespace

TEST(EditScript, isValidAndShortest) {
    std::mt19937 random(7);
    for (int round = 0; round < 3000 && !HasFatalFailure(); ++round) {
        const auto letters = static_cast<LineId>(1 + random() % 6);
        const Ids a = randomLines(random, random() % 24, letters);
        expectShortest(a, round % 2 ? randomLines(random, random() % 24, letters + 1) : edited(random, a, 4, letters));
    }
    // Too little in common for the quick search; the last so large that two threads share the work.
    for (const auto& [letters, count] : {std::pair(2u, 4100u), {3u, 4100u}, {400u, 4100u}, {30u, 9000u}})
        expectShortest(randomLines(random, count, letters), randomLines(random, count - random() % 1000, letters));
}

// The guess must never change the answer, whether far too low, right or too high, and neither may the edges
// of words (64 rows), blocks (512 rows) and tiles (1024 columns).
TEST(CommonSubsequence, isLongestWhateverTheGuess) {
    std::mt19937 random(9);
    const std::size_t sizes[] = {1, 2, 63, 65, 128, 511, 1023, 1025, 2100};
    for (const std::size_t rows : sizes) {
        for (const std::size_t columns : sizes) {
            const auto letters = static_cast<LineId>(1 + random() % 40);
            const Ids a = randomLines(random, rows, letters);
            Ids b = random() % 2 ? randomLines(random, columns, letters) : edited(random, a, columns / 8, letters);
            const std::size_t longest = longestLength(a, b);
            const std::size_t shortest = a.size() + b.size() - 2 * longest;
            for (const std::size_t guess : {std::size_t{0}, shortest / 2, shortest, a.size() + b.size()}) {
                const auto pairs = longestCommonSubsequence(a, b, letters, guess);
                ASSERT_EQ(pairs.size(), longest) << rows << " " << columns << " " << guess;
                for (std::size_t i = 0; i < pairs.size(); ++i) {
                    ASSERT_EQ(a.at(pairs[i].oldAt), b.at(pairs[i].newAt));
                    const LineMatch& before = pairs[i == 0 ? 0 : i - 1];
                    ASSERT_TRUE(i == 0 || (before.oldAt < pairs[i].oldAt && before.newAt < pairs[i].newAt));
                }
            }
        }
    }
}

TEST(LineDiff, splitsTextAtLineFeedsAndTellsItFromBinary) {
    EXPECT_EQ(LineDiff::lines("a\r\n\nb\n"), (std::vector<std::string_view>{"a\r", "", "b"}));
    const std::string filler(7999, 'x');
    EXPECT_FALSE(LineDiff::text(filler + '\0'));
    EXPECT_TRUE(LineDiff::text(filler + "x" + '\0'));
    EXPECT_FALSE(LineDiff::text(filler + "caf\xe9\n"));
}

TEST(LineDiff, joinsHunksWhoseContextMeets) {
    const std::string before = numbered(1, 30);
    const std::string six = "x\n" + numbered(2, 7) + "x\n" + numbered(9, 30);
    const std::string seven = "x\n" + numbered(2, 8) + "x\n" + numbered(10, 30);
    EXPECT_EQ(LineDiff::diff(before, six, 3).hunks.size(), 1u);
    EXPECT_EQ(LineDiff::diff(before, seven, 3).hunks.size(), 2u);
    EXPECT_EQ(LineDiff::diff(before, six, 0).hunks.size(), 2u);
    EXPECT_EQ(LineDiff::diff(before, seven, static_cast<std::size_t>(-1)).hunks.size(), 1u);
}

TEST(LineDiff, comparesFilesUpToTheLimitAndDoesNotWaitForPipes) {
    const tidewrack::testing::TemporaryFolder folder;
    const std::string most(LineDiff::sizeLimit, 'x');
    folder.write("text", "a\nb\n");
    folder.write("largest", most);
    folder.write("over", most + "x");
    folder.write("binary", std::string("a\0b", 3));
    ASSERT_EQ(::mkfifo(folder.at("pipe").c_str(), 0600), 0);
    const std::string text = folder.at("text");
    EXPECT_EQ(LineDiff::compare(text, text).kind, Kind::unchanged);
    EXPECT_EQ(LineDiff::compare(text, folder.at("binary")).kind, Kind::binary);
    EXPECT_EQ(LineDiff::compare(std::nullopt, folder.at("largest")).added, 1u);
    EXPECT_EQ(LineDiff::compare(folder.at("over"), std::nullopt).kind, Kind::tooLarge);
    for (const char* unreadable : {"missing", "pipe"})
        EXPECT_EQ(LineDiff::compare(text, folder.at(unreadable)).removed, 2u) << unreadable;
}
