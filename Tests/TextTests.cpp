#include "Support/Text.hpp"

#include <gtest/gtest.h>

using namespace tidewrack;

TEST(Text, countsAndCutsByWhatAPersonSees) {
    EXPECT_EQ(characterCount("ae\u0301\U0001F469\u200D\U0001F4BBz"), 4u); // a, e + accent, a joined emoji, z
    EXPECT_EQ(firstCharacters("e\u0301\u0301x", 1), "e\u0301\u0301");
    EXPECT_EQ(characterLength("\r\n\n"), 2u);
    EXPECT_EQ(characterLength("\r\r\n"), 1u);
    EXPECT_EQ(characterCount("\xff\xfe"
                             "a"),
              3u);
}

TEST(Text, foldsWhatAVolumeWithoutCaseTakesForOne) {
    EXPECT_EQ(caseFolded("R\u00C9SUM\u00c9.Md"), caseFolded("re\u0301sume\u0301.md"));
    EXPECT_EQ(caseFolded("STRASSE"), caseFolded("stra\u00dfe"));
    EXPECT_NE(caseFolded("e.md"), caseFolded("\u00e9.md"));
    EXPECT_EQ(caseFolded("A\xff"), "A\xff");
    EXPECT_EQ(caseFolded(""), "");
}

TEST(Text, repairsOnlyWhatIsBroken) {
    EXPECT_EQ(repairedUtf8("na\u00efve"), "na\u00efve");
    EXPECT_EQ(repairedUtf8("a\xff"
                           "b\xc3"),
              "a\uFFFD"
              "b\uFFFD");
    EXPECT_FALSE(isUtf8("\xed\xa0\x80")); // a lone surrogate
    EXPECT_FALSE(isUtf8("\xc0\xaf"));     // an overlong slash
}

TEST(Text, knowsLettersNumbersAndLowerCase) {
    EXPECT_TRUE(isLetterOrNumber("\u00c9"));
    EXPECT_TRUE(isLetterOrNumber("\u0663")); // an Arabic digit
    EXPECT_FALSE(isLetterOrNumber("-"));
    EXPECT_FALSE(isLetterOrNumber("\U0001F4CC"));
    EXPECT_EQ(lowercased("\u00c9COLE \u0416"), "\u00e9cole \u0436");
}
