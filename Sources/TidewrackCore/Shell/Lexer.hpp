#pragma once
// Cuts a command line into commands, as a shell would, without running anything. Deliberately small: what it cannot
// follow is reported as opaque rather than guessed.

#include "Shell/HereDocuments.hpp"
#include "Shell/Program.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// All commands of a line, and whether a part of it could not be cut.
struct Parsed {
    Program program;
    bool opaque = false;
};

// Hands out the commands of a line one by one, so that a line of a million separators needs no more memory
// than its longest command. `command` must outlive the lexer.
class Lexer {
  public:
    explicit Lexer(std::string_view command);
    Lexer(const Lexer&) = delete;
    Lexer& operator=(const Lexer&) = delete;

    // Fills `command` with the next command that has a word or a redirect; false when there is none.
    bool next(Command& command);

    // Whether anything so far could not be cut: backquotes left open, or commands nested too deeply.
    [[nodiscard]] bool opaque() const { return opaque_; }

  private:
    // For the commands between the parenthesis in front of `at` and the one that closes it.
    Lexer(std::string_view text, std::size_t at, const Lexer& outer);
    // For the text between backquotes.
    Lexer(std::string_view text, const Lexer& outer);

    enum class Role { argument, output, inputFile, inputText };

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
    [[nodiscard]] bool beginsArray() const;
    [[nodiscard]] std::size_t extendedPatternEnd() const;
    void takeExtendedPattern(std::size_t end);
    bool takeAmpersand();
    void takeOutputRedirect();
    void takeInputRedirect();
    void takeHereDocument();
    void takeBody(const HereDocuments::Body& body, bool literal);
    [[nodiscard]] bool mayNest() const;
    bool takeParenthesized(Substitution::Kind kind);
    [[nodiscard]] std::size_t arithmeticLength(std::size_t at);
    bool takeArithmetic();
    bool takeBackquoted();
    void takeProgram(Lexer& inner, Program& program);
    void addSubstitution(Substitution substitution);
    void closeName();
    void beginQuotes();
    void takeSingleQuoted();
    void takeAnsiQuoted();
    void takeDoubleQuoted();
    void takeQuotedText(bool endsAtQuote);
    void takeBackslash();
    void skipComment();
    void skipBlanks();
    std::string skipWord();

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t end_; // of the text, or of the commands that are being cut

    Command* out_ = nullptr;
    Word word_;
    bool started_ = false;
    bool escaped_ = false;
    bool braced_ = false;
    std::size_t lastDollar_ = std::string::npos; // where the word's last unprotected "$" is
    std::size_t wordBegin_ = 0;
    std::size_t wordEnd_ = 0;    // where a word would end that is being cut
    Role role_ = Role::argument; // of the next word
    bool appends_ = false;       // of the next word, in the role of output
    bool fromPipe_ = false;
    bool afterAnd_ = false;
    bool afterOr_ = false;
    bool inArray_ = false;
    bool opaque_ = false;
    bool opaquePart_ = false;

    std::size_t depth_ = 0;
    std::size_t lowestDepth_ = 0;
    std::vector<std::size_t> cases_; // the depths of the open `case`s that are in parentheses

    HereDocuments hereDocuments_;
    std::size_t noArithmeticBefore_ = 0; // where it was looked for in vain

    std::size_t nesting_ = 0;
    // What the line has cost, counted in the outermost lexer.
    struct Spent {
        std::size_t nestedCommands = 0; // cut within commands
        std::size_t searchedBytes = 0;  // for the ends of here-documents
    };
    Spent ownSpent_;
    Spent* spent_ = &ownSpent_;
};

// All commands of a line. Never fails.
[[nodiscard]] Parsed parse(std::string_view command);

} // namespace tidewrack::shell
