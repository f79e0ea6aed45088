// How the commands within a word are cut: $( ), backquotes, <( ) and $(( )).

#include "Shell/Budget.hpp"
#include "Shell/Lexer.hpp"

#include <algorithm>
#include <utility>

namespace tidewrack::shell {

namespace {

// The marks of substitutions are the characters from U+E100 on.
constexpr unsigned secondMarkByte = 0x84;

bool isOneOf(char c, std::string_view set) {
    return set.find(c) != std::string_view::npos;
}

bool endsOperand(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

} // namespace

std::string substitutionMark(std::size_t number) {
    return {firstMarkByte, static_cast<char>(secondMarkByte + number / 64), static_cast<char>(0x80 + number % 64)};
}

std::optional<std::size_t> markedSubstitution(std::string_view text) {
    if (text.size() < markLength || text[0] != firstMarkByte) return std::nullopt;
    const auto byte = [&](std::size_t at) { return static_cast<unsigned>(static_cast<unsigned char>(text[at])); };
    if (byte(1) < secondMarkByte || byte(2) < 0x80) return std::nullopt;
    const std::size_t number = (byte(1) - secondMarkByte) * 64 + (byte(2) - 0x80);
    return number < Budget::nestedPerCommand ? std::optional(number) : std::nullopt;
}

Lexer::Lexer(std::string_view text, std::size_t at, const Lexer& outer)
    : text_(text), at_(at), end_(text.size()), depth_(1), lowestDepth_(1), nesting_(outer.nesting_ + 1),
      spent_(outer.spent_) {}

Lexer::Lexer(std::string_view text, const Lexer& outer)
    : text_(text), end_(text.size()), nesting_(outer.nesting_ + 1), spent_(outer.spent_) {}

bool Lexer::mayNest() const {
    return nesting_ < Budget::nesting && spent_->nestedCommands < Budget::nestedCommands &&
           out_->nested.size() < Budget::nestedPerCommand;
}

void Lexer::addSubstitution(Substitution substitution) {
    closeName();
    markPlain();
    if (substitution.kind == Substitution::Kind::file) {
        append("/dev/fd/63"); // as the shell names it; a device, which is never saved
    } else {
        word_.expands = true;
        append(substitutionMark(out_->nested.size()));
    }
    escaped_ = true; // nothing behind it is plain
    lastDollar_ = std::string::npos;
    out_->nested.push_back(std::move(substitution));
}

void Lexer::takeProgram(Lexer& inner, Program& program) {
    for (Command command; inner.next(command); command = Command()) {
        program.commands.push_back(std::move(command));
        if (++spent_->nestedCommands >= Budget::nestedCommands) return markOpaque();
    }
    if (inner.opaque()) markOpaque();
}

// Takes the commands in the parentheses that begin here; false when they are nested too deeply.
bool Lexer::takeParenthesized(Substitution::Kind kind) {
    if (!mayNest()) return false;
    Substitution substitution{kind, {}};
    Lexer inner(text_.substr(0, end_), at_ + 1, *this);
    takeProgram(inner, substitution.program);
    at_ = inner.at_;
    addSubstitution(std::move(substitution));
    return true;
}

// The length of the "((1 + 2))" that begins at `at` and runs nothing; 0 when there is none, or when it might be
// parentheses within each other.
std::size_t Lexer::arithmeticLength(std::size_t at) {
    if (at < noArithmeticBefore_ || !standsAt(at, '(') || !standsAt(at + 1, '(')) return 0;
    const std::string_view text = text_.substr(at, std::min(end_ - at, Budget::arithmeticLength));
    std::size_t open = 0;
    char before = '(';  // the last character that is no blank, and
    bool blank = false; // whether a blank followed it
    for (std::size_t length = 0; length < text.size(); ++length) {
        const char c = text[length];
        if (isOneOf(c, "`\n;'\"") || (c == '$' && text.substr(length + 1).starts_with('('))) return 0;
        if (c == ' ') {
            blank = true;
            continue;
        }
        if (blank && (endsOperand(before) || before == ')') && (endsOperand(c) || c == '('))
            return 0; // a command's words
        if (c == '(') ++open;
        if (c == ')' && --open == 0) return text[length - 1] == ')' ? length + 1 : 0;
        before = c;
        blank = false;
    }
    noArithmeticBefore_ = at + text.size();
    return 0;
}

bool Lexer::takeArithmetic() {
    const std::size_t length = mayNest() ? arithmeticLength(at_) : 0;
    if (length == 0) return false;
    at_ += length;
    addSubstitution({Substitution::Kind::number, {}});
    return true;
}

// Takes the commands up to the closing backquote; false when there is none.
bool Lexer::takeBackquoted() {
    std::size_t end = at_;
    std::string inside;
    const bool may = mayNest();
    while (may && end < end_ && text_[end] != '`') {
        const bool escape = text_[end] == '\\' && end + 1 < end_ &&
                            std::string_view("\\`$").find(text_[end + 1]) != std::string_view::npos;
        if (escape) ++end;
        inside += text_[end++];
    }
    if (!may || end >= end_) {
        markOpaque();
        return false;
    }
    Substitution substitution;
    Lexer inner(inside, *this);
    takeProgram(inner, substitution.program);
    at_ = end + 1;
    addSubstitution(std::move(substitution));
    return true;
}

} // namespace tidewrack::shell
