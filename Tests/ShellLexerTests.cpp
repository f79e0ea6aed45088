#include "Shell/Expansion.hpp"
#include "Shell/Lexer.hpp"

#include <gtest/gtest.h>

using namespace tidewrack::shell;

namespace {

std::string shape(const Program& program);

// A word's text, with the commands in it in braces.
std::string shape(const Word& word, const Command& command) {
    std::string text = word.text;
    for (std::size_t number = 0; number < command.nested.size(); ++number) {
        const std::size_t at = text.find(substitutionMark(number));
        if (at == std::string::npos) continue;
        const bool isNumber = command.nested[number].kind == Substitution::Kind::number;
        text.replace(at, markLength, isNumber ? "#" : "{" + shape(command.nested[number].program) + "}");
    }
    return text;
}

// Commands as text: words parted by "|", redirects behind ">", inputs behind "<" or, where they are texts, "<<",
// commands behind one another with ";".
std::string shape(const Program& program) {
    std::string text;
    for (const Command& command : program.commands) {
        if (&command != &program.commands.front()) text += ';';
        for (const Word& word : command.words)
            text += (&word == &command.words.front() ? "" : "|") + shape(word, command);
        for (const Substitution& file : command.nested)
            if (file.kind == Substitution::Kind::file) text += "{" + shape(file.program) + "}";
        for (const Input& input : command.inputs)
            text += (input.kind == Input::Kind::text ? "<<" : "<") + shape(input.word, command);
        for (const Word& target : command.redirects) text += '>' + shape(target, command);
    }
    return text;
}

// An opaque line is marked with a leading "?".
std::string shape(std::string_view command) {
    const Parsed parsed = parse(command);
    return (parsed.opaque ? "?" : "") + shape(parsed.program);
}

Word onlyWord(std::string_view command) {
    const Parsed parsed = parse(command);
    EXPECT_EQ(parsed.program.commands.size(), 1u);
    EXPECT_EQ(parsed.program.commands.front().words.size(), 1u);
    return parsed.program.commands.front().words.front();
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
        {"tee >(rm b)", "tee|/dev/fd/63{rm|b}"},
        {"sort <in>out", "sort<in>out"},
        {"wc -l < \"my file\"; rm b", "wc|-l<my file;rm|b"},
        {"diff <(rm b) c", "diff|/dev/fd/63|c{rm|b}"},
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
        // Commands within words
        {"echo $(date) > f", "echo|{date}>f"},
        {"echo `date -d \\`x\\`` b", "echo|{date|-d|{x}}|b"},
        {"echo \"a$(date; (b) | c \")\")d\" e", "echo|a{date;b;c|)}d|e"},
        {"echo \"`date`\"x", "echo|{date}x"},
        {"echo $(case a in (a) b;; c) d;; esac; e) f", "echo|{case|a|in;a;b;c;d;esac;e}|f"},
        {"echo $(rm b", "echo|{rm|b}"},
        {"echo $((1 << 2)) $((a)b)\nrm b", "echo|#|{a;b};rm|b"},
        {"echo `rm b", "?echo|`rm|b"},
        {"$(a $(b $(c $(d $(e $(f $(g $(h $(i))))))))) j", "?{a|{b|{c|{d|{e|{f|{g|{h|$;i}}}}}}}}|j"},
        {"echo '$(x)' '`x`' \"\\$(x)\" \\$", "echo|\uE000(x)|`x`|\uE000(x)|\uE000"},
        {"cat <<< 'a b' c", "cat|c<<a b"},
        {"cat < `ls`", "cat<{ls}"},
        // Here documents hide nothing behind them
        {"cat <<EOF > f\nhi there\nEOF\nrm b", "cat<<hi there\n>f;rm|b"},
        {"cat <<'E F' >f\nIt's \"so\nE F\nrm b", "cat<<It's \"so\n>f;rm|b"},
        {"cat <<-EOF\n\tdon't\n\tEOF\nrm b", "cat<<\tdon't\n;rm|b"},
        {"cat <<A; cat <<B\n'\nA\n\"\nB\nrm b", "cat<<'\n;cat<<\"\n;rm|b"},
        {"cat <<EOF | a\n$(b)\nEOF\nc", "cat<<{b}\n;a;c"},
        {"cat <<\\EOF \"x\ny\"\n$(b)\nEOF\nc", "cat|x\ny<<$(b)\n;c"},
        {"a \"$(cat <<'EOF'\n)\\\"\nEOF\n)\" b", "a|{cat<<)\\\"\n}|b"},
        {"cat <<EOF\nno end", "cat<<no end"},
        {"(cat <<EOF\nno end", "?cat;no|end"},
        {"a $(cat <<EOF\nno end", "?a|{cat;no|end}"},
        {"cat <<2\nno end", "?cat;no|end"},
    };
    for (const Row& row : rows) EXPECT_EQ(shape(row.command), row.expected) << row.command;
}

TEST(ShellLexer, goesByWhatAPersonSeesButNeverHidesALineEnd) {
    EXPECT_EQ(shape("a \\\r\nrm b"), "a|\r;rm|b");
    EXPECT_EQ(shape("# c\r\nrm b"), "rm|b");
    EXPECT_EQ(shape("rm *\u0301 \u00e9\u0301;x"), "rm|*\u0301|\u00e9\u0301;x");
    EXPECT_FALSE(parse("rm *\u0301").program.commands[0].words[1].glob);
    EXPECT_EQ(shape("rm \xff\xfe;x"), "rm|\xff\xfe;x");
}

TEST(ShellExpansion, replacesTildesAndVariables) {
    const Environment environment = {{"X", "/x"},       {"EMPTY", ""}, {"HOME", "/other"}, {"gr\u00fc", "g"},
                                     {"F", "/a/b.c.d"}, {"E", ".d"},   {"U", "AB"}};
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
        {"$-", "$-"},
        {"${X", "/x"},
        {"$gr\u00fc/x", "g/x"},
        {"'$a$b'$X'$'", "$a$b/x$"},
        {"${F%/*},${F%%/*},${F#*/},${F##*/}", "/a,,a/b.c.d,b.c.d"},
        {"${F%.d},${F%%.*},${F%nope},${F%\"$E\"},${X%/}", "/a/b.c,/a/b,/a/b.c.d,/a/b.c,/x"},
        {"${F/.c/-},${F//./-},${F/#/x},${F/%.d/.e},${F/b*/}", "/a/b-.d,/a/b-c-d,x/a/b.c.d,/a/b.c.e,/a/"},
        {"${F:3},${F:1:1},${F:9},${F^^},${U,,},${U,}", "b.c.d,a,,/A/B.C.D,ab,aB"},
    };
    for (const Row& row : rows) EXPECT_EQ(expandedText(row.command, environment), row.expected) << row.command;
}

TEST(ShellExpansion, saysWhenAValueIsUnknown) {
    const Environment environment = {
        {"X", "a.c"}, {"EMPTY", ""}, {"BIG", std::string(150'000, 'x')}, {"LONG", std::string(5'000, 'a')}};
    Variables variables(environment);
    for (const char* unknown : {"${NOPE:-${X", "${!X}", "${X/}", "${X%*a*b*c*}", "${LONG%%*a?}", "${#NOPE}",
                                "${NOPE/#/x}", "${NOPE//*/x}", "${NOPE+x}", "${NOPE@Q}", "$@", "$2", "${2}", "$#"}) {
        EXPECT_EQ(expand(onlyWord(unknown), "/h", variables).text, "") << unknown;
        EXPECT_TRUE(variables.unfollowed()) << unknown;
        variables.setUnfollowed(false);
    }
    for (const char* nothing :
         {"${NOPE%.c}", "${EMPTY##*/}", "${NOPE/a*/x}", "${NOPE//a}", "${NOPE:1:2}", "${NOPE^^}", "${NOPE,}"}) {
        EXPECT_EQ(expand(onlyWord(nothing), "/h", variables).text, "") << nothing;
        EXPECT_FALSE(variables.unfollowed()) << nothing;
    }
    variables.exchangeParameters(Parameters{"sh", "one", std::nullopt});
    EXPECT_EQ(expand(onlyWord("x$1\"${1}\"${3}x"), "/h", variables).text, "xoneonex");
    EXPECT_FALSE(variables.unfollowed());
    EXPECT_EQ(expand(onlyWord("${2}"), "/h", variables).text, "");
    EXPECT_TRUE(variables.unfollowed());
    EXPECT_EQ(expand(onlyWord("$BIG$BIG"), "/h", variables).text.size(), 150'000u);
    EXPECT_TRUE(variables.unfollowed());
}
