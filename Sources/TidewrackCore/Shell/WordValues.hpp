#pragma once
// What the words of a command stand for: brace lists, variables, the values of loops, the output of commands that
// can be told without running them.

#include "Shell/Effects.hpp"
#include "Shell/Expansion.hpp"
#include "Shell/Position.hpp"
#include "Shell/Program.hpp"

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

class WordValues {
  public:
    // The words as they are, and as seen by a shell that splits an unquoted variable's value; `apart` is empty when
    // that is the same. Both count, since not all shells split.
    struct Readings {
        std::vector<Word> whole;
        std::vector<Word> apart;
    };

    // All must outlive this.
    WordValues(const Context& context, Effects& effects, const Position& position);

    // Replaces the words that hold brace lists by those that they stand for.
    void expandBraceLists(Command& command);

    // Expands the words of a command. What an unset variable leaves behind outside quotes is no word at all.
    [[nodiscard]] Readings read(std::vector<Word> words, const Command& command);
    // The same in place, as a shell that splits nothing.
    void expandAll(std::vector<Word>& words, const Command& command);

    // Whether the words mention a loop of several values, and there is time to try them all.
    [[nodiscard]] bool vary(const std::vector<Word>& words, const Command& command) {
        return !choicesIn(words, command).empty();
    }

    // Reads the words of a command as often as a loop runs it, each time with one value for every loop variable. All
    // values at once would take the places of each other's sources and destinations. False, and nothing done, when the
    // words mention no loop of several values.
    bool forEachRun(const std::vector<Word>& words, const Command& command,
                    const std::function<void(Readings&&)>& visit);

    // True when the words are nothing but assignments, which are recorded. Behind a declaration word they are recorded
    // also among options and plain names.
    bool assignAll(const std::vector<Word>& words, bool declared, const Command& command);

    // Gives the variable these values one after the other; none: values that only running would show.
    void bindLoop(std::string_view name, std::vector<Word> values);
    // Adds to the values that it has: NAME+=(a b).
    void extendLoop(std::string_view name, std::vector<Word> values);

    // Gives $0, $1, ... these values, none where nothing is known of them, and returns what they were.
    std::optional<Parameters> exchangeParameters(std::optional<Parameters> parameters) {
        return variables_.exchangeParameters(std::move(parameters));
    }
    // shift COUNT
    void shiftParameters(std::size_t count);
    // What "$@" stands for; one unknown word where that is not known.
    [[nodiscard]] std::vector<Word> allParameters() const;

    // NAME=value, expanded already.
    void give(const Word& assignment);
    // Whether a variable's name begins like that.
    [[nodiscard]] bool holdsAnyLike(std::string_view begin) const { return variables_.holdsAnyLike(begin); }
    // What the line gives the variable, where it does; valid until the next assignment.
    [[nodiscard]] const std::string* assigned(std::string_view name) const { return variables_.assigned(name); }
    [[nodiscard]] bool hasAssigned() const { return variables_.hasAssigned(); }
    // Empty for a variable without value.
    [[nodiscard]] std::string valueOf(std::string_view name);

    // Whatever has no value may be given one: by a file that is not read, or by a text that is not known.
    void noteOthersUnknown() { variables_.noteOthersUnknown(); }
    void noteUnknown(std::string_view name) { bindLoop(name, {}); }
    // See Variables::noteFilled().
    void noteFilled(std::string_view name) { variables_.noteFilled(name); }

    // The folder has changed.
    void noteFolder(bool entered);

    // What is assigned in a subshell ends with it.
    void beginSubshell();
    void endSubshell() { variables_.endSubshell(); }

  private:
    struct Loop {
        std::string name;
        std::vector<Word> values;
    };

    void begin();
    void assign(const Word& word, std::size_t equals);
    void expandOne(Word& word);
    bool replaceMarks(std::string& text);
    [[nodiscard]] std::optional<std::string> outputOf(const Substitution& substitution);
    [[nodiscard]] std::optional<std::vector<std::string>> knownWords(const Command& command);
    void noteKnownFolder(Word word, std::size_t end);
    void shortenOwnHome(Word& word) const;
    std::vector<Word> expandedOverLoops(std::vector<Word> words);
    void expandOver(Word word, std::size_t loop, bool glob, std::vector<Word>& out);
    void forgetLoop(std::string_view name);
    Loop* loopOf(std::string_view name);
    std::vector<std::string> choicesIn(const std::vector<Word>& words, const Command& command);
    void visitRuns(const std::vector<Word>& words, const Command& command, std::span<const std::string> loops,
                   const std::function<void(Readings&&)>& visit);
    void expandParameters(std::vector<Word>& words) const;
    std::vector<Word> takenApart(const std::vector<Word>& words);

    const Context& context_;
    Effects& effects_;
    const Position& position_;
    Variables variables_;
    std::vector<Loop> loops_;
    const Command* command_ = nullptr; // whose words are read
    bool begun_ = false;               // PWD has its value
    std::string separators_;           // where the line gives IFS: those, and blanks
    std::size_t alternatives_ = 0;
    std::size_t braceWords_ = 0;
};

// A word whose value cannot be known becomes empty: a guess such as "/*" for "$unknown/*" would be refused for no
// reason. It stays where it is, because many commands tell sources from destinations by their places.
void setUnknown(Word& word);

// The offset of the "=" when the word assigns to a variable, its name and "=" unquoted; 0 when it does not.
[[nodiscard]] std::size_t assignmentAt(const Word& word);

} // namespace tidewrack::shell
