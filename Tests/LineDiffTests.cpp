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

// The new lines that `script` makes of the old ones; kept lines are taken from the old side.
Ids applied(const EditScript& script, const Ids& oldLines, const Ids& newLines) {
    Ids kept;
    auto removed = script.removed.begin();
    for (std::size_t at = 0; at < oldLines.size(); ++at) {
        if (removed != script.removed.end() && *removed == at)
            ++removed;
        else
            kept.push_back(oldLines[at]);
    }
    EXPECT_EQ(removed, script.removed.end()) << "removed offsets ascend and exist";
    Ids result;
    auto next = kept.begin();
    auto inserted = script.inserted.begin();
    for (std::size_t at = 0; at < newLines.size(); ++at) {
        if (inserted != script.inserted.end() && *inserted == at) {
            ++inserted;
            result.push_back(newLines[at]);
        } else if (next != kept.end()) {
            result.push_back(*next++);
        }
    }
    EXPECT_EQ(inserted, script.inserted.end());
    EXPECT_EQ(next, kept.end());
    return result;
}

// The plain table, one row at a time.
std::size_t shortestLength(const Ids& a, const Ids& b) {
    std::vector<std::size_t> row(b.size() + 1, 0);
    for (const LineId line : a) {
        std::size_t diagonal = 0;
        for (std::size_t at = 0; at < b.size(); ++at) {
            const std::size_t above = row[at + 1];
            row[at + 1] = line == b[at] ? diagonal + 1 : std::max(above, row[at]);
            diagonal = above;
        }
    }
    return a.size() + b.size() - 2 * row.back();
}

void expectShortest(const Ids& a, const Ids& b) {
    const EditScript script = shortestEditScript(a, b);
    ASSERT_EQ(applied(script, a, b), b);
    ASSERT_EQ(script.removed.size() + script.inserted.size(), shortestLength(a, b)) << a.size() << " " << b.size();
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

Ids paired(const std::vector<LineMatch>& pairs, const Ids& lines, std::uint32_t LineMatch::*side) {
    Ids result;
    for (std::size_t at = 0; at < pairs.size(); ++at) {
        EXPECT_TRUE(at == 0 || pairs[at - 1].*side < pairs[at].*side) << "pairs ascend";
        result.push_back(lines.at(pairs[at].*side));
    }
    return result;
}

// A hunk as a person would write it down: "-1:old", "+1:new", " 2=2:same".
std::vector<std::string> drawn(const LineDiff::Hunk& hunk) {
    std::vector<std::string> result;
    for (const LineDiff::Line& line : hunk.lines) {
        const std::string before = line.oldNumber ? std::to_string(*line.oldNumber) : "";
        const std::string after = line.newNumber ? std::to_string(*line.newNumber) : "";
        switch (line.kind) {
        case LineDiff::Line::Kind::context: result.push_back(" " + before + "=" + after + ":" + line.text); break;
        case LineDiff::Line::Kind::added: result.push_back(before + "+" + after + ":" + line.text); break;
        case LineDiff::Line::Kind::removed: result.push_back(after + "-" + before + ":" + line.text); break;
        }
    }
    return result;
}

using Drawn = std::vector<std::string>;

std::string numbered(int from, int to) {
    std::string text;
    for (; from <= to; ++from) text += std::to_string(from) + "\n";
    return text;
}

class LineDiffFiles : public ::testing::Test {
  protected:
    [[nodiscard]] std::string path(const std::string& name) const { return folder.at(name); }
    [[nodiscard]] std::string file(const std::string& name, const std::string& bytes) const {
        folder.write(name, bytes);
        return path(name);
    }

    tidewrack::testing::TemporaryFolder folder;
};

} // namespace

TEST(EditScript, isValidAndShortestOnSmallInputs) {
    std::mt19937 random(7);
    for (int round = 0; round < 3000 && !HasFatalFailure(); ++round) {
        const auto letters = static_cast<LineId>(1 + random() % 6);
        const Ids a = randomLines(random, random() % 24, letters);
        expectShortest(a, round % 2 ? randomLines(random, random() % 24, letters + 1) : edited(random, a, 4, letters));
    }
}

TEST(EditScript, isShortestWhenTheSidesHaveLittleInCommon) {
    std::mt19937 random(8);
    for (const LineId letters : {2u, 3u, 30u, 400u}) {
        const Ids a = randomLines(random, 4100, letters);
        expectShortest(a, randomLines(random, 2900 + random() % 2000, letters));
    }
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
            const std::size_t shortest = shortestLength(a, b);
            for (const std::size_t guess : {std::size_t{0}, shortest / 2, shortest, a.size() + b.size()}) {
                const auto pairs = longestCommonSubsequence(a, b, letters, guess);
                ASSERT_EQ(a.size() + b.size() - 2 * pairs.size(), shortest) << rows << " " << columns << " " << guess;
                ASSERT_EQ(paired(pairs, a, &LineMatch::oldAt), paired(pairs, b, &LineMatch::newAt));
            }
        }
    }
}

TEST(CommonSubsequence, staysInANarrowBandOfALargeTable) {
    std::mt19937 random(10);
    const Ids a = randomLines(random, 30000, 3);
    const Ids b = edited(random, a, 3000, 3);
    const auto narrow = longestCommonSubsequence(a, b, 3, 100);
    const auto whole = longestCommonSubsequence(a, b, 3, a.size() + b.size());
    EXPECT_EQ(narrow.size(), whole.size());
    EXPECT_EQ(paired(narrow, a, &LineMatch::oldAt), paired(narrow, b, &LineMatch::newAt));
}

TEST(LineDiff, splitsAtLineFeedsOnly) {
    using Views = std::vector<std::string_view>;
    EXPECT_EQ(LineDiff::lines(""), Views{});
    EXPECT_EQ(LineDiff::lines("\n"), Views{""});
    EXPECT_EQ(LineDiff::lines("a\r\n\nb"), (Views{"a\r", "", "b"}));
    EXPECT_EQ(LineDiff::lines("a\n\n"), (Views{"a", ""}));
}

TEST(LineDiff, tellsTextFromBinary) {
    const std::string filler(7999, 'x');
    EXPECT_TRUE(LineDiff::text(""));
    EXPECT_FALSE(LineDiff::text(filler + '\0'));
    EXPECT_TRUE(LineDiff::text(filler + "x" + '\0'));
    EXPECT_FALSE(LineDiff::text(filler + "caf\xe9\n"));
}

TEST(LineDiff, putsRemovedLinesBeforeAddedOnesWithTheirNumbers) {
    const auto result = LineDiff::diff("a\nb\nc\nd\n", "a\nB\nC\nd\ne", 1);
    EXPECT_EQ(result.kind, Kind::text);
    EXPECT_EQ(result.added, 3u);
    EXPECT_EQ(result.removed, 2u);
    ASSERT_EQ(result.hunks.size(), 1u);
    EXPECT_EQ(drawn(result.hunks[0]), (Drawn{" 1=1:a", "-2:b", "-3:c", "+2:B", "+3:C", " 4=4:d", "+5:e"}));
}

TEST(LineDiff, joinsHunksWhoseContextMeets) {
    const std::string before = numbered(1, 30);
    const std::string six = "x\n" + numbered(2, 7) + "x\n" + numbered(9, 30);
    const std::string seven = "x\n" + numbered(2, 8) + "x\n" + numbered(10, 30);
    EXPECT_EQ(LineDiff::diff(before, six, 3).hunks.size(), 1u);
    const auto apart = LineDiff::diff(before, seven, 3);
    ASSERT_EQ(apart.hunks.size(), 2u);
    EXPECT_EQ(drawn(apart.hunks[0]), (Drawn{"-1:1", "+1:x", " 2=2:2", " 3=3:3", " 4=4:4"}));
    EXPECT_EQ(drawn(apart.hunks[1]),
              (Drawn{" 6=6:6", " 7=7:7", " 8=8:8", "-9:9", "+9:x", " 10=10:10", " 11=11:11", " 12=12:12"}));
    EXPECT_EQ(LineDiff::diff(before, six, 0).hunks.size(), 2u);
    EXPECT_EQ(LineDiff::diff(before, seven, static_cast<std::size_t>(-1)).hunks.size(), 1u);
}

TEST(LineDiff, overlooksAFinalLineFeedButNotTheTextsDifference) {
    EXPECT_EQ(LineDiff::diff("a\n", "a\n", 3).kind, Kind::unchanged);
    const auto feed = LineDiff::diff("a\nb", "a\nb\n", 3);
    EXPECT_EQ(feed.kind, Kind::text);
    EXPECT_TRUE(feed.hunks.empty());
    EXPECT_EQ(feed.added + feed.removed, 0u);
}

TEST_F(LineDiffFiles, comparesFiles) {
    const std::string text = file("text", "a\nb\n");
    EXPECT_EQ(LineDiff::compare(text, text).kind, Kind::unchanged);
    EXPECT_EQ(LineDiff::compare(std::nullopt, std::nullopt).kind, Kind::unchanged);
    EXPECT_EQ(LineDiff::compare(text, file("binary", std::string("a\0b", 3))).kind, Kind::binary);
    const auto added = LineDiff::compare(std::nullopt, text);
    ASSERT_EQ(added.hunks.size(), 1u);
    EXPECT_EQ(drawn(added.hunks[0]), (Drawn{"+1:a", "+2:b"}));
    EXPECT_EQ(LineDiff::compare(text, path("missing")).removed, 2u);
}

TEST_F(LineDiffFiles, comparesUpToTheLimit) {
    const std::string most(LineDiff::sizeLimit, 'x');
    const std::string largest = file("largest", most);
    const std::string over = file("over", most + "x");
    EXPECT_EQ(LineDiff::compare(std::nullopt, largest).added, 1u);
    EXPECT_EQ(LineDiff::compare(largest, over).kind, Kind::tooLarge);
    EXPECT_EQ(LineDiff::compare(over, std::nullopt).kind, Kind::tooLarge);
}

TEST_F(LineDiffFiles, doesNotWaitForAPipe) {
    const std::string pipe = path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(LineDiff::read(pipe).error, EINVAL);
    EXPECT_EQ(LineDiff::compare(file("text", "a\n"), pipe).removed, 1u);
}
