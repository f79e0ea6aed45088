#include "Changes/LineDiff.hpp"
#include "Changes/Merge.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

using namespace tidewrack;

namespace {

// One letter a line.
std::string textOf(const std::string& letters) {
    std::string text;
    for (const char letter : letters) text += std::string(1, letter) + "\n";
    return text;
}

std::string shown(const Merge& merge) {
    switch (merge.kind) {
    case Merge::Kind::clean: return merge.text;
    case Merge::Kind::clash: return "<clash>";
    case Merge::Kind::binary: return "<binary>";
    case Merge::Kind::tooLarge: return "<too large>";
    }
    return {};
}

// `fresh`: what lines may be added.
std::string edited(std::mt19937& random, std::string letters, const std::string& fresh) {
    for (auto edits = random() % 5; edits > 0; --edits) {
        const auto at = random() % (letters.size() + 1);
        if (random() % 2 != 0 && at < letters.size()) letters.erase(at, 1);
        if (random() % 2 != 0) letters.insert(at, 1, fresh[random() % fresh.size()]);
    }
    return letters;
}

} // namespace

TEST(Merge, ofSmallTexts) {
    struct Row {
        std::string base, one, other, wanted;
    };
    const std::string filler(LineDiff::sizeLimit, 'x');
    const std::vector<Row> rows = {
        {textOf("abc"), textOf("Abc"), textOf("abC"), textOf("AbC")},
        {textOf("ab"), textOf("Ab"), textOf("aB"), textOf("AB")}, // they only touch
        {textOf("a"), textOf("A"), textOf("an"), textOf("An")},
        {textOf("a"), textOf("A"), textOf("na"), textOf("nA")},
        {textOf("abc"), textOf("aXc"), textOf("aYc"), "<clash>"},
        {textOf("ab"), textOf("aXb"), textOf("aYb"), "<clash>"},
        {textOf("abc"), textOf("a"), textOf("abXc"), "<clash>"},
        {textOf("abcd"), textOf("Xd"), textOf("aBcd"), "<clash>"},
        {textOf("abcd"), textOf("aXcd"), textOf("aXcD"), textOf("aXcD")}, // the same change, once
        {textOf("ab"), textOf("aXb"), textOf("aXb"), textOf("aXb")},
        {textOf("ab"), textOf("AB"), textOf("Ab"), textOf("AB")}, // the same, and more
        {textOf("ab"), textOf("AB"), textOf("Xb"), "<clash>"},
        {textOf("axxxb"), textOf("axxb"), textOf("Zaxxb"), textOf("Zaxxb")}, // whichever x is said to have gone
        {textOf("axxb"), textOf("axxxb"), textOf("Zaxxxb"), textOf("Zaxxxb")},
        {"", textOf("a"), "", textOf("a")},
        {"", textOf("a"), textOf("b"), "<clash>"},
        {textOf("a"), "", textOf("b"), "<clash>"},
        {"a\nb", "a\nb\n", "A\nb", "A\nb\n"}, // the final line feed is a part of its line
        {"a\nb\n", "a\nb", "a\nb\nc\n", "<clash>"},
        {"a\r\nb\r\n", "a\r\nB\r\n", "A\r\nb\r\n", "A\r\nB\r\n"},
        {"a\nb\n", "a\r\nb\r\n", "a\nB\n", "<clash>"},
        {"a\n", std::string("a\0\n", 3), "b\n", "<binary>"},
        {"a\n", filler + "\n", "b\n", "<too large>"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(shown(Merge::of(row.base, row.one, row.other)), row.wanted) << row.base << row.one << row.other;
        EXPECT_EQ(shown(Merge::of(row.base, row.other, row.one)), row.wanted) << row.base << row.other << row.one;
    }
}

// Lines that one side alone added are there, those that one side removed are not, and all others stay.
TEST(Merge, keepsWhatEitherSideDid) {
    std::mt19937 random(11);
    int clean = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string base = "abcdefghijkl";
        base.resize(random() % base.size());
        const std::string one = edited(random, base, "ABCDEF");
        const std::string other = edited(random, base, "UVWXYZ");
        const Merge merge = Merge::of(textOf(base), textOf(one), textOf(other));
        ASSERT_EQ(merge, Merge::of(textOf(base), textOf(other), textOf(one)));
        ASSERT_EQ(Merge::of(textOf(base), textOf(one), textOf(base)).text, textOf(one));
        ASSERT_EQ(Merge::of(textOf(base), textOf(one), textOf(one)).text, textOf(one));
        if (merge.kind != Merge::Kind::clean) continue;
        ++clean;
        std::multiset<char> wanted;
        for (const char line : one + other) // letters of the base stay where both sides kept them
            if (base.find(line) == base.npos || (one.find(line) != one.npos && other.find(line) != other.npos))
                wanted.insert(line);
        for (const char line : base)
            if (one.find(line) != one.npos && other.find(line) != other.npos) wanted.erase(wanted.find(line));
        std::multiset<char> got;
        for (const std::string_view line : LineDiff::lines(merge.text)) got.insert(line.front());
        ASSERT_EQ(got, wanted) << base << " " << one << " " << other << " " << merge.text;
    }
    EXPECT_GT(clean, 5000);
}
