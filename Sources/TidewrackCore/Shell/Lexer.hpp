#pragma once
// Cuts a command line into simple commands, as a shell would, without running anything. Deliberately small:
// what it cannot follow is reported as opaque rather than guessed.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// Stands in a word's text for a "$" that must never be expanded (U+E000); expand() turns it back.
inline constexpr std::string_view protectedDollar = "\xEE\x80\x80";

struct Word {
    std::string text;         // without quotes and escapes
    bool quoted = false;      // some part of it was in quotes
    bool glob = false;        // an unquoted "*", "?" or "[" occurred
    bool tilde = false;       // it began with an unquoted "~"
    bool expands : 1 = false; // it may hold something that expand() changes
    bool splits : 1 = false;  // its value came from variables outside quotes, and some shells take it apart
    bool unknown : 1 = false; // its value cannot be known; it is empty, and keeps the place of what will stand there
    std::uint32_t plain = 0;  // how many leading bytes of the text stood outside quotes and escapes

    bool operator==(const Word&) const = default;
};

// A word that may hold a brace list, as it was written.
struct BracedWord {
    std::size_t index;       // among the words
    std::string_view source; // points into the command line

    bool operator==(const BracedWord&) const = default;
};

struct Simple {
    std::vector<Word> words;     // the command name and its arguments
    std::vector<Word> redirects; // the targets of output redirections
    std::vector<BracedWord> braced;
    bool opaque = false;         // holds something whose effect shows only when it runs
    std::size_t depth = 0;       // how many parentheses it stands in ...
    std::size_t sharedDepth = 0; // ... and how many of those hold the command before it too

    bool operator==(const Simple&) const = default;
};

struct Parsed {
    std::vector<Simple> commands;
    bool opaque = false;
};

// Hands out the commands of a line one by one, so that a line of a million separators needs no more memory
// than its longest command. `command` must outlive the lexer.
class Lexer {
  public:
    explicit Lexer(std::string_view command);
    Lexer(const Lexer&) = delete;
    Lexer& operator=(const Lexer&) = delete;

    // Fills `simple` with the next command that has a word or a redirect; false when there is none.
    bool next(Simple& simple);

    // Whether anything so far was opaque: a command substitution, backquotes, a here-document.
    [[nodiscard]] bool opaque() const { return opaque_; }

  private:
    struct HereDocument {
        std::string delimiter;
        bool stripTabs = false;
    };

    [[nodiscard]] std::size_t characterAt(std::size_t at) const;
    [[nodiscard]] bool standsAt(std::size_t at, char c) const;
    void append(std::string_view text);
    void markPlain();
    void beginWord();
    void flush();
    bool endCommand();
    void noteCase();
    void markOpaque();
    void makeRoom(std::vector<Word>& list) const;
    [[nodiscard]] std::size_t plainRunEnd() const;
    bool takePlainWord();
    void takePlainRun();
    bool takeCharacter();
    bool takeOperator(char c);
    void takeInWord(char c);
    void takeParenthesis(char c);
    bool takeAmpersand();
    void takeOutputRedirect();
    void takeInputRedirect();
    void closeName();
    void beginQuotes();
    void takeSingleQuoted();
    void takeAnsiQuoted();
    void takeDoubleQuoted();
    void takeBackslash();
    void skipComment();
    void skipBlanks();
    std::string skipWord();
    void enterBody();
    bool leaveBody();
    [[nodiscard]] bool findBodyEnd(const HereDocument& document);

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t end_; // of the text, or of the here-document's body that is being cut

    Simple* out_ = nullptr;
    Word word_;
    bool started_ = false;
    bool escaped_ = false;
    bool braced_ = false;
    std::size_t lastDollar_ = std::string::npos; // where the word's last unprotected "$" stands
    std::size_t wordBegin_ = 0;
    std::size_t wordEnd_ = 0; // where a word would end that is being cut
    bool redirect_ = false;
    bool opaque_ = false;
    bool opaquePart_ = false;

    std::size_t depth_ = 0;
    std::size_t lowestDepth_ = 0;
    std::vector<std::size_t> cases_; // the depths of the open `case`s that stand in parentheses

    std::vector<HereDocument> hereDocuments_;
    std::size_t failedSearches_ = 0;
    bool inBody_ = false;
    std::size_t resumeAt_ = 0;
    std::size_t depthOutside_ = 0;
};

// All commands of a line. Never fails.
[[nodiscard]] Parsed parse(std::string_view command);

} // namespace tidewrack::shell
