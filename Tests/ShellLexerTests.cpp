#include "Shell/Expansion.hpp"
#include "Shell/Lexer.hpp"

#include <gtest/gtest.h>

using namespace tidewrack::shell;

namespace {

// A command line as text: words parted by "|", redirects behind ">", commands behind one another with ";",
// an opaque line marked with a leading "?".
std::string shape(std::string_view command) {
    const Parsed parsed = parse(command);
    std::string text = parsed.opaque ? "?" : "";
    for (const Simple& simple : parsed.commands) {
        if (&simple != &parsed.commands.front()) text += ';';
        for (const Word& word : simple.words) text += (&word == &simple.words.front() ? "" : "|") + word.text;
        for (const Word& target : simple.redirects) text += '>' + target.text;
    }
    return text;
}

Word onlyWord(std::string_view command) {
    const Parsed parsed = parse(command);
    EXPECT_EQ(parsed.commands.size(), 1u);
    EXPECT_EQ(parsed.commands.front().words.size(), 1u);
    return parsed.commands.front().words.front();
}

std::string expandedText(std::string_view command, const Environment& environment = {}) {
    Variables variables(environment);
    return expand(onlyWord(command), "/h", variables).text;
}

struct Row {
    std::string_view command;
    std::string_view expected;
};

} // namespace

TEST(ShellLexer, cutsCommandsWordsAndRedirects) {
    using namespace std::string_view_literals;
    const Row rows[] = {
        {"", ""},
        {" \t\n;;|&& ", ""},
        {"a|b||c&d&&e\nf(g)h", "a;b;c;d;e;f;g;h"},
        {"a >x >>y 2>z &>u &>>v >|w", "a>x>y>z>u>v>w"},
        {"a >&2 2>&- b >&x c>& \"y z\" d >&", "a|-|b|c|d>x>y z"},
        {"a 12>x b2>y '3'>z", "a|b2|3>x>y>z"},
        {"a >", "a"},
        {"a >; rm b", "a;rm|b"},
        {"tee >(rm b)", "tee;rm|b"},
        {"sort <in>out", "sort>out"},
        {"wc -l < \"my file\"; rm b", "wc|-l;rm|b"},
        {"diff <(rm b) c", "diff;rm|b;c"},
        {"cat <&3 -n", "cat|-n"},
        {"'a b' c\"d e\"f \\rm a\\ b x\\", "a b|cd ef|rm|a b|x"},
        {"'' x", "|x"},
        {"\"a\\\"b\\\\c\\d\\`\"", "a\"b\\c\\d`"},
        {"echo a # b; c\nd", "echo|a;d"},
        {"a#b", "a#b"},
        {"echo 'open; rm b", "echo|open; rm b"},
        {"a\0b c"sv, "a\0b|c"sv},
        {"rm $'a b'c $'it\\'s' $'\\x41\\101\\u00e9\\t\\q\\0'", "rm|a bc|it's|AA\u00e9\t\\q"},
        {"rm $'$HOME\\x24' $\"a b\" \"$'x'\"; rm $'open; b", "rm|\uE000HOME\uE000|a b|$'x';rm|open; b"},
        // What only running would show
        {"echo $(date) > f", "?echo|$;date;>f"},
        {"echo `date`", "?echo|`date`"},
        {"echo \"$(date)\"", "?echo|$(date)"},
        {"echo \"`date`\"", "?echo|`date`"},
        {"echo '$(x)' '`x`' \"\\$(x)\" \\$", "echo|\uE000(x)|`x`|\uE000(x)|\uE000"},
        {"cat <<< 'a b' c", "?cat|c"},
        {"cat < `ls`", "?cat"},
        {"echo $((1 << 2))\nrm b", "?echo|$;1;rm|b"},
        // Here documents hide nothing behind them
        {"cat <<EOF > f\nhi there\nEOF\nrm b", "?cat>f;hi|there;rm|b"},
        {"cat <<'E F' >f\nIt's \"so\nE F\nrm b", "?cat>f;Its \"so\n;rm|b"},
        {"cat <<-EOF\n\tdon't\n\tEOF\nrm b", "?cat;dont\n;rm|b"},
        {"cat <<A; cat <<B\n'\nA\n\"\nB\nrm b", "?cat;cat;\n;\n;rm|b"},
        {"cat <<EOF\nno end", "?cat;no|end"},
    };
    for (const Row& row : rows) EXPECT_EQ(shape(row.command), row.expected) << row.command;
}

TEST(ShellLexer, goesByWhatAPersonSeesButNeverHidesALineEnd) {
    EXPECT_EQ(shape("a \\\r\nrm b"), "a|\r;rm|b");
    EXPECT_EQ(shape("# c\r\nrm b"), "rm|b");
    EXPECT_EQ(shape("rm *\u0301 \u00e9\u0301;x"), "rm|*\u0301|\u00e9\u0301;x");
    EXPECT_FALSE(parse("rm *\u0301").commands[0].words[1].glob);
    EXPECT_EQ(shape("rm \xff\xfe;x"), "rm|\xff\xfe;x");
}

TEST(ShellExpansion, replacesTildesAndVariables) {
    const Environment environment = {{"X", "/x"}, {"EMPTY", ""}, {"HOME", "/other"}, {"1", "one"}, {"gr\u00fc", "g"}};
    const Row rows[] = {
        {"~", "/h"},
        {"$HOME/a", "/h/a"},
        {"${HOME}/a", "/h/a"},
        {"${HOME:-/f}", "/other"},
        {"\"\\$HOME\"", "$HOME"},
        {"\"$X/a\"$X", "/x/a/x"},
        {"\"$X\"a", "/xa"},
        {"$X\"a\"'b'", "/xab"},
        {"$X\\_old", "/x_old"},
        {"\"$X\"\"$X\"$X", "/x/x/x"},
        {"a$NOPE.b", "a.b"},
        {"${EMPTY:-/tmp}", "/tmp"},
        {"${NOPE:-$HOME/a}", "/h/a"},
        {"${NOPE:-~/a}", "/h/a"},
        {"${X:?needed}", "/x"},
        {"$1$", "one$"},
        {"$@$-", "$@$-"},
        {"${X", "/x"},
        {"$gr\u00fc/x", "g/x"},
        {"'$a$b'$X'$'", "$a$b/x$"},
    };
    for (const Row& row : rows) EXPECT_EQ(expandedText(row.command, environment), row.expected) << row.command;
}

TEST(ShellExpansion, saysWhenAValueIsUnknown) {
    const Environment environment = {{"X", "a.c"}, {"EMPTY", ""}, {"BIG", std::string(150'000, 'x')}};
    Variables variables(environment);
    for (const char* unknown :
         {"${NOPE:-${X", "${X%.c}", "${HOME%/}", "${#NOPE}", "${NOPE/#/x}", "${NOPE//*/x}", "${NOPE+x}", "${NOPE@Q}"}) {
        EXPECT_EQ(expand(onlyWord(unknown), "/h", variables).text, "") << unknown;
        EXPECT_TRUE(variables.unfollowed()) << unknown;
        variables.setUnfollowed(false);
    }
    for (const char* nothing :
         {"${NOPE%.c}", "${EMPTY##*/}", "${NOPE/a*/x}", "${NOPE//a}", "${NOPE:1:2}", "${NOPE^^}", "${NOPE,}"}) {
        EXPECT_EQ(expand(onlyWord(nothing), "/h", variables).text, "") << nothing;
        EXPECT_FALSE(variables.unfollowed()) << nothing;
    }
    EXPECT_EQ(expand(onlyWord("$BIG$BIG"), "/h", variables).text.size(), 150'000u);
    EXPECT_TRUE(variables.unfollowed());
}
