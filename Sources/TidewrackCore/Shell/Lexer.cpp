#include "Shell/Lexer.hpp"

#include "Shell/Budget.hpp"
#include "Shell/Expansion.hpp"
#include "Shell/Quotes.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace tidewrack::shell {

namespace {

constexpr std::size_t usualWords = 8; // few commands have more
constexpr std::size_t manyWords = 1'000;

// Words that may come before a `case` in its command.
constexpr std::array<std::string_view, 6> wordsBeforeCase = {"then", "else", "do", "{", "!", "time"};

constexpr std::array<bool, 256> specialBytes() {
    std::array<bool, 256> special{};
    for (const char c : std::string_view(" \t\n;|()&><'\"\\`$*?[{#~")) special[static_cast<unsigned char>(c)] = true;
    for (std::size_t byte = 0x80; byte < special.size(); ++byte) special[byte] = true;
    return special;
}

constexpr std::array<bool, 256> special = specialBytes();

bool isAscii(char c) {
    return static_cast<unsigned char>(c) < 0x80;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool continuesName(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '_' || !isAscii(c);
}

bool isOneOf(char c, std::string_view set) {
    return set.find(c) != std::string_view::npos;
}

bool isReservedBefore(const Word& word) {
    constexpr std::array<std::string_view, 9> words = {"if", "while", "until", "then", "else", "elif", "do", "{", "!"};
    return std::find(words.begin(), words.end(), word.text) != words.end();
}

} // namespace

Lexer::Lexer(std::string_view command) : text_(command), end_(command.size()) {}

// The length of the character at `at`. A carriage return never joins the line feed behind it, so that no
// line end is overlooked.
std::size_t Lexer::characterAt(std::size_t at) const {
    const bool alone = at + 1 >= end_ || isAscii(text_[at + 1]) || text_[at] == '\r';
    if (isAscii(text_[at]) && alone) return 1;
    return characterLength(text_.substr(at, end_ - at));
}

bool Lexer::standsAt(std::size_t at, char c) const {
    return at < end_ && text_[at] == c && characterAt(at) == 1;
}

void Lexer::append(std::string_view text) {
    word_.text += text;
    started_ = true;
}

// Notes that the word so far is outside quotes and escapes, unless one of them came before.
void Lexer::markPlain() {
    if (!word_.quoted && !escaped_) word_.plain = static_cast<std::uint32_t>(word_.text.size());
}

void Lexer::beginWord() {
    word_.text.clear();
    word_.quoted = word_.glob = word_.tilde = word_.expands = word_.splits = word_.appends = false;
    word_.plain = 0;
    started_ = false;
    escaped_ = false;
    braced_ = false;
    lastDollar_ = std::string::npos;
}

void Lexer::flush() {
    if (!started_) return;
    if (braced_ && role_ == Role::argument)
        out_->braced.push_back({out_->words.size(), std::string(text_.substr(wordBegin_, wordEnd_ - wordBegin_))});
    markPlain();
    word_.appends = appends_ && role_ == Role::output;
    if (role_ == Role::inputFile || role_ == Role::inputText) {
        out_->inputs.push_back({role_ == Role::inputFile ? Input::Kind::file : Input::Kind::text, std::move(word_)});
    } else {
        std::vector<Word>& list = role_ == Role::output ? out_->redirects : out_->words;
        makeRoom(list);
        list.push_back(std::move(word_));
    }
    beginWord();
    role_ = Role::argument;
}

// True when the command so far has something in it.
bool Lexer::endCommand() {
    flush();
    role_ = Role::argument;
    if (out_->words.empty() && out_->redirects.empty()) return false;
    if (depth_ > 0) noteCase();
    out_->opaque = std::exchange(opaquePart_, false);
    out_->fromPipe = std::exchange(fromPipe_, false);
    out_->afterAnd = std::exchange(afterAnd_, false);
    out_->afterOr = std::exchange(afterOr_, false);
    out_->depth = depth_;
    out_->sharedDepth = std::exchange(lowestDepth_, depth_);
    return true;
}

// The ")" behind a pattern of a `case` closes none of the parentheses that hold the `case`. The depth tells such a ")".
void Lexer::noteCase() {
    for (const Word& word : out_->words) {
        // Most commands begin with none of the words in question, and there may be very many.
        if (word.plain != word.text.size() || word.text.empty() || !isOneOf(word.text[0], "cetd{!")) return;
        if (word.text == "case") return cases_.push_back(depth_);
        if (word.text == "esac" && !cases_.empty()) return cases_.pop_back();
        if (std::find(wordsBeforeCase.begin(), wordsBeforeCase.end(), word.text) == wordsBeforeCase.end()) return;
    }
}

void Lexer::markOpaque() {
    opaque_ = true;
    opaquePart_ = true;
}

bool Lexer::next(Command& command) {
    command.words.clear();
    command.redirects.clear();
    command.inputs.clear();
    command.braced.clear();
    command.nested.clear();
    command.toPipe = command.inBackground = command.isPattern = command.isDefinition = false;
    command.isArray = false;
    out_ = &command;
    if (command.words.capacity() == 0) command.words.reserve(usualWords);
    for (;;) {
        if (!started_ && role_ == Role::argument) {
            while (takePlainWord()) {
            }
        }
        if (!started_) wordBegin_ = at_;
        wordEnd_ = at_;
        if (at_ >= end_) return endCommand();
        takePlainRun();
        wordEnd_ = at_;
        if (at_ < end_ && takeCharacter()) return true;
    }
}

// Reserves room for all words that may follow, instead of moving a huge list each time it has doubled.
void Lexer::makeRoom(std::vector<Word>& list) const {
    if (list.size() == manyWords) list.reserve(manyWords + (end_ - at_) / 2 + 1);
}

// The end of the bytes that mean nothing but themselves.
std::size_t Lexer::plainRunEnd() const {
    std::size_t end = at_;
    while (end < end_ && !special[static_cast<unsigned char>(text_[end])]) ++end;
    return end;
}

// Takes a word that is nothing but plain bytes, which most are, whole and with the blank behind it.
bool Lexer::takePlainWord() {
    const std::size_t end = plainRunEnd();
    if (end == at_ || !standsAt(end, ' ')) return false;
    makeRoom(out_->words);
    Word& word = out_->words.emplace_back();
    word.text = text_.substr(at_, end - at_);
    word.plain = static_cast<std::uint32_t>(word.text.size());
    at_ = end + 1;
    return true;
}

void Lexer::takePlainRun() {
    const std::size_t end = plainRunEnd();
    if (end > at_) append(text_.substr(at_, end - at_));
    at_ = end;
}

// Takes the special character at the current place; true when it ended a command.
bool Lexer::takeCharacter() {
    const char c = text_[at_];
    const std::size_t length = characterAt(at_);
    if (!isAscii(c) || length > 1) {
        word_.expands = true; // the text may hold the mark of a protected "$"
        append(text_.substr(at_, length));
        at_ += length;
        return false;
    }
    ++at_;
    switch (c) {
    case ' ':
    case '\t': flush(); return false;
    case '\n':
    case ';':
    case '|':
    case '(':
    case ')': return takeOperator(c);
    case '&': return takeAmpersand();
    case '>': takeOutputRedirect(); return false;
    case '<': takeInputRedirect(); return false;
    case '\'': takeSingleQuoted(); return false;
    case '"': takeDoubleQuoted(); return false;
    case '\\': takeBackslash(); return false;
    default: takeInWord(c); return false;
    }
}

// Whether NAME= stands before a parenthesis that closes in the same line.
bool Lexer::beginsArray() const {
    if (!started_ || word_.quoted || role_ != Role::argument || !word_.text.ends_with('=') || word_.text.size() < 2)
        return false;
    if (nameLength(word_.text) + 2 < word_.text.size()) return false;
    const std::string_view rest = text_.substr(at_, std::min(end_ - at_, Budget::arrayLength));
    const std::size_t close = rest.find_first_of(")\n(;|&<>");
    return close != rest.npos && rest[close] == ')';
}

// The end of a pattern such as !(a|b) whose parenthesis stands before `at_`, in a word that is no command's first; 0
// where there is none.
std::size_t Lexer::extendedPatternEnd() const {
    if (!started_ || word_.text.empty() || !isOneOf(word_.text.back(), "!?*+@") || out_->words.empty()) return 0;
    if (word_.text == "!" && std::all_of(out_->words.begin(), out_->words.end(), isReservedBefore)) return 0;
    const std::string_view rest = text_.substr(at_, std::min(end_ - at_, Budget::arrayLength));
    std::size_t open = 1;
    for (std::size_t at = 0; at < rest.size() && !isOneOf(rest[at], "\n;&<>'\"`$"); ++at) {
        if (rest[at] == '(') ++open;
        if (rest[at] == ')' && --open == 0) return at_ + at + 1;
    }
    return 0;
}

// Many names may match it; where it stands for a whole one, at least a letter does.
void Lexer::takeExtendedPattern(std::size_t end) {
    word_.text.pop_back();
    const bool whole = word_.text.empty() || word_.text.back() == '/';
    append(whole ? "*[!*]" : "*");
    word_.glob = true;
    escaped_ = true; // what stands there is not what was written
    at_ = end;
}

bool Lexer::takeOperator(char c) {
    if (c == '(')
        if (const std::size_t end = extendedPatternEnd(); end > 0) {
            takeExtendedPattern(end);
            return false;
        }
    if (c == '(' && beginsArray()) {
        flush();
        out_->isArray = inArray_ = true;
        return false;
    }
    const bool complete = endCommand();
    if (const std::size_t length = c == '(' ? arithmeticLength(at_ - 1) : 0; length > 0) {
        at_ += length - 1;
        append("((");
        return complete;
    }
    if (c == ')' && std::exchange(inArray_, false)) return complete;
    if (c == '(') {
        out_->isDefinition = complete && standsAt(at_, ')');
        ++depth_;
    }
    if (c == ')') out_->isPattern = complete && (depth_ == 0 || (!cases_.empty() && cases_.back() == depth_));
    if (c == ')' && depth_ > 0 && (cases_.empty() || cases_.back() != depth_)) {
        lowestDepth_ = std::min(lowestDepth_, --depth_);
        if (nesting_ > 0 && depth_ == 0) end_ = at_; // what stands behind is the outer command's
    }
    if (c == '\n') at_ = std::min(hereDocuments_.behindBodies(at_), end_);
    if (c == '|') {
        fromPipe_ = !standsAt(at_, '|');
        afterOr_ = !fromPipe_;
        if (!fromPipe_ || standsAt(at_, '&')) ++at_;
        out_->toPipe = complete && fromPipe_;
    }
    return complete;
}

void Lexer::takeInWord(char c) {
    switch (c) {
    case '`':
        if (takeBackquoted()) return;
        break;
    case '$':
        if (standsAt(at_, '\'')) return takeAnsiQuoted();
        if (standsAt(at_, '"')) return; // a translated text: no part of the word is the "$"
        if (standsAt(at_, '(')) {
            if (takeArithmetic() || takeParenthesized(Substitution::Kind::output)) return;
            markOpaque(); // the parenthesis ends the word, and a "$" at the end of a word is one
        } else {
            word_.expands = true;
        }
        lastDollar_ = word_.text.size();
        break;
    case '*':
    case '?':
    case '[': word_.glob = true; break;
    case '~':
        if (!started_) word_.tilde = word_.expands = true;
        break;
    case '{': braced_ = true; break;
    case '#':
        if (!started_) return skipComment();
        break;
    default: break;
    }
    append(std::string_view(&c, 1));
}

bool Lexer::takeAmpersand() {
    if (!standsAt(at_, '>')) {
        const bool complete = endCommand();
        const bool conjunction = standsAt(at_, '&');
        if (conjunction) ++at_;
        afterAnd_ = conjunction;
        out_->inBackground = complete && !conjunction;
        return complete;
    }
    ++at_;
    flush();
    appends_ = standsAt(at_, '>');
    if (appends_ || standsAt(at_, '|')) ++at_;
    role_ = Role::output;
    return false;
}

void Lexer::takeOutputRedirect() {
    const bool descriptor = started_ && !word_.quoted &&
                            std::all_of(word_.text.begin(), word_.text.end(), [](char c) { return isDigit(c); });
    if (descriptor) {
        beginWord();
    } else {
        flush();
    }
    appends_ = false;
    if (standsAt(at_, '(') && takeParenthesized(Substitution::Kind::file)) return;
    if (standsAt(at_, '&')) {
        ++at_;
        const std::size_t digits = at_;
        while (at_ < end_ && isDigit(text_[at_])) ++at_;
        if (at_ > digits || standsAt(at_, '-')) return;
        // Without a descriptor it is a file that takes both output streams.
        skipBlanks();
        if (at_ < end_ && (isDigit(text_[at_]) || text_[at_] == '-')) return;
        role_ = Role::output;
        return;
    }
    appends_ = standsAt(at_, '>');
    if (appends_ || standsAt(at_, '|')) ++at_;
    role_ = Role::output;
}

void Lexer::takeInputRedirect() {
    flush();
    if (standsAt(at_, '<')) {
        ++at_;
        if (!standsAt(at_, '<')) return takeHereDocument();
        ++at_;
        skipBlanks();
        role_ = Role::inputText;
        return;
    }
    if (standsAt(at_, '(')) {
        takeParenthesized(Substitution::Kind::file);
        return;
    }
    if (standsAt(at_, '&')) {
        ++at_;
        skipBlanks();
        skipWord();
        return;
    }
    skipBlanks();
    role_ = Role::inputFile;
}

// A variable's name ends where quotes begin or end, and at a backslash: in "$X"y it is not Xy. Braces keep that end
// once the quotes are gone.
void Lexer::closeName() {
    if (!word_.expands || at_ >= end_ || !(continuesName(text_[at_]) || isOneOf(text_[at_], "'\"\\"))) return;
    std::string& text = word_.text;
    if (lastDollar_ >= text.size() || text.size() - lastDollar_ > Budget::nameLength) return;
    const std::string_view name = std::string_view(text).substr(lastDollar_ + 1);
    if (name.empty() || nameLength(name) != name.size()) return;
    text.insert(text.size() - name.size(), 1, '{');
    text += '}';
}

void Lexer::beginQuotes() {
    closeName();
    markPlain();
    word_.quoted = true;
    word_.expands = true;
    started_ = true;
}

void Lexer::takeSingleQuoted() {
    beginQuotes();
    while (at_ < end_) {
        const std::size_t begin = at_;
        while (at_ < end_ && isAscii(text_[at_]) && text_[at_] != '\'' && text_[at_] != '$') ++at_;
        append(text_.substr(begin, at_ - begin));
        if (at_ >= end_) return;
        const std::size_t length = characterAt(at_);
        const std::string_view character = text_.substr(at_, length);
        at_ += length;
        if (character == "'") return;
        append(character == "$" ? protectedDollar : character);
    }
}

// $'...': like single quotes, but with escapes for what is hard to write.
void Lexer::takeAnsiQuoted() {
    ++at_;
    beginQuotes();
    std::string decoded;
    while (at_ < end_ && !standsAt(at_, '\'')) {
        if (text_[at_] == '\\') {
            at_ += decodeAnsiEscape(text_.substr(at_, end_ - at_), decoded);
        } else {
            const std::size_t length = characterAt(at_);
            decoded += text_.substr(at_, length);
            at_ += length;
        }
    }
    if (at_ < end_) ++at_;
    for (const char c : decoded) append(c == '$' ? protectedDollar : std::string_view(&c, 1));
}

void Lexer::takeDoubleQuoted() {
    beginQuotes();
    takeQuotedText(true);
}

// Takes text in which only "$", backquotes and backslashes mean something.
void Lexer::takeQuotedText(bool endsAtQuote) {
    const std::string_view escapable = endsAtQuote ? "\"\\$`" : "\\$`";
    while (at_ < end_) {
        const std::size_t begin = at_;
        while (at_ < end_ && isAscii(text_[at_]) && !isOneOf(text_[at_], "\"\\$`")) ++at_;
        append(text_.substr(begin, at_ - begin));
        if (at_ >= end_) return;
        const std::size_t length = characterAt(at_);
        const std::string_view character = text_.substr(at_, length);
        at_ += length;
        if (character == "\"" && endsAtQuote) return closeName();
        if (character == "\\" && at_ < end_ && isOneOf(text_[at_], escapable) && characterAt(at_) == 1) {
            append(text_[at_] == '$' ? protectedDollar : text_.substr(at_, 1));
            ++at_;
            continue;
        }
        if (character == "`" && takeBackquoted()) continue;
        if (character == "$" && standsAt(at_, '(')) {
            if (takeArithmetic() || takeParenthesized(Substitution::Kind::output)) continue;
            markOpaque();
        }
        if (character == "$") lastDollar_ = word_.text.size();
        append(character);
    }
}

void Lexer::takeBackslash() {
    if (at_ >= end_) return;
    closeName();
    const std::size_t length = characterAt(at_);
    const std::string_view character = text_.substr(at_, length);
    at_ += length;
    // A continued line: as a part of the word the line break would hide the command behind it.
    if (character == "\n") return;
    markPlain();
    escaped_ = true;
    word_.expands = true;
    append(character == "$" ? protectedDollar : character);
}

void Lexer::skipComment() {
    at_ = std::min(text_.find('\n', at_), end_);
}

void Lexer::skipBlanks() {
    while (standsAt(at_, ' ') || standsAt(at_, '\t')) ++at_;
}

// Skips a word that names no output, and returns its text. Quotes are honoured: otherwise the second quote
// of `< "a b"` would open a string that swallows the commands behind it.
std::string Lexer::skipWord() {
    std::string skipped;
    char quote = 0;
    while (at_ < end_) {
        const std::size_t length = characterAt(at_);
        const std::string_view character = text_.substr(at_, length);
        const char c = length == 1 ? character[0] : 'x';
        if (!quote && isOneOf(c, " \t\n;|&()<>")) break;
        at_ += length;
        if (quote != '\'' && (c == '`' || (c == '$' && standsAt(at_, '(')))) markOpaque();
        if (c == quote) {
            quote = 0;
        } else if (!quote && (c == '\'' || c == '"')) {
            quote = c;
        } else if (c == '\\' && quote != '\'' && at_ < end_) {
            const std::size_t next = characterAt(at_);
            skipped += text_.substr(at_, next);
            at_ += next;
        } else {
            skipped += character;
        }
    }
    return skipped;
}

Parsed parse(std::string_view command) {
    Parsed parsed;
    Lexer lexer(command);
    for (Command one; lexer.next(one); one = Command()) parsed.program.commands.push_back(std::move(one));
    parsed.opaque = lexer.opaque();
    return parsed;
}

} // namespace tidewrack::shell
