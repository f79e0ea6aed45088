#pragma once
// A command line as a tree: the commands, their words, and the commands within those. It is built once; all that
// judges a line reads it.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// Stands in a word's text for a "$" that must never be expanded (U+E000); expanding turns it back.
inline constexpr std::string_view protectedDollar = "\xEE\x80\x80";

struct Word {
    std::string text;         // without quotes and escapes
    bool quoted = false;      // some part of it was in quotes
    bool glob = false;        // an unquoted "*", "?" or "[" occurred
    bool tilde = false;       // it began with an unquoted "~"
    bool expands : 1 = false; // it may hold something that expanding changes
    bool appends : 1 = false; // of a redirection: what the file holds stays
    bool splits : 1 = false;  // its value came from variables outside quotes, and some shells take it apart
    bool unknown : 1 = false; // its value cannot be known; it is empty, and keeps its place among the words
    std::uint32_t plain = 0;  // how many leading bytes of the text were outside quotes and escapes

    bool operator==(const Word&) const = default;
};

// A word that may hold a brace list, as it was written.
struct BracedWord {
    std::size_t index; // among the words
    std::string source;

    bool operator==(const BracedWord&) const = default;
};

// What a command reads from.
struct Input {
    enum class Kind { file, text }; // < file; a here-document or here-string

    Kind kind = Kind::file;
    Word word; // the file, or the text itself

    bool operator==(const Input&) const = default;
};

struct Command;

struct Program {
    std::vector<Command> commands;

    bool operator==(const Program&) const;
};

// A part of a word that running other commands gives.
struct Substitution {
    enum class Kind { output, number, file }; // $( ) and backquotes; $(( )); <( ) and >( )

    Kind kind = Kind::output;
    Program program;

    bool operator==(const Substitution&) const = default;
};

struct Command {
    std::vector<Word> words;     // the command name and its arguments
    std::vector<Word> redirects; // the targets of output redirections
    std::vector<Input> inputs;
    std::vector<BracedWord> braced;
    std::vector<Substitution> nested; // in its words; each is in a word's text as its mark
    bool opaque = false;              // holds something that could not be cut
    bool fromPipe = false;            // reads what the command before it writes
    bool toPipe = false;
    bool afterAnd = false; // stands behind &&
    bool afterOr = false;  // ... or behind ||
    bool inBackground = false;
    bool isArray = false;        // NAME= and the words in the parentheses behind it
    bool isPattern = false;      // of a case: runs nothing
    bool isDefinition = false;   // the name of a function that is defined
    std::size_t depth = 0;       // how many parentheses it is in ...
    std::size_t sharedDepth = 0; // ... and how many of those hold the command before it too

    bool operator==(const Command&) const = default;
};

inline bool Program::operator==(const Program& other) const {
    return commands == other.commands;
}

// The mark in a word's text for the substitution of this number.
[[nodiscard]] std::string substitutionMark(std::size_t number);
// The number of the substitution whose mark the text begins with; none where there is no mark.
[[nodiscard]] std::optional<std::size_t> markedSubstitution(std::string_view text);
inline constexpr std::size_t markLength = 3;
inline constexpr char firstMarkByte = '\xEE';

} // namespace tidewrack::shell
