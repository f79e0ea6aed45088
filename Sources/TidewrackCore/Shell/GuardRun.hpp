#pragma once
// The reading of one command line by the guard, for its own source files.

#include "Shell/Effects.hpp"
#include "Shell/Functions.hpp"
#include "Shell/NestedText.hpp"
#include "Shell/Position.hpp"
#include "Shell/WordValues.hpp"

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// Follows one command line from command to command. Each takes the same steps: wrappers are taken off, its words get
// their values, and the rest is judged.
class Guard {
  public:
    explicit Guard(const Context& context)
        : context_(context), effects_(context), position_(absolutePath(context.cwd, "/")),
          values_(context, effects_, position_) {}

    Decision run(std::string_view line);

  private:
    struct Doubt {
        std::size_t depth;
        std::string folder;
        std::string failsWithout = {}; // nothing is doubtful when this is a folder, which is looked at late
    };

    void take(Command& command);
    void takeCommand(Command& command);
    void takeReferences(const std::vector<Word>& words);
    void takeGlobOptions(std::string_view line);
    void takeInside(Command& command, std::size_t depth);
    bool takeHarmless(std::span<const Word> words, Command& command);
    [[nodiscard]] bool onlyLooksWithin(const Command& command) const;
    [[nodiscard]] bool looksByGit(std::span<const Word> words) const;
    void takeNested(const Program& program);
    void takeListing(std::vector<Word> words, const Command& command);
    void takeArray(std::vector<Word>& words, const Command& command);
    bool takeDefinition(const Command& command);
    bool takeCall(const std::vector<Word>& words);
    void call(const std::vector<Word>& words);
    bool takeAlias(const Command& command);
    void placeGitsEnvironment(std::vector<Word>& words);
    void peel(std::vector<Word>& words);
    void takeText(const NestedText& nested);
    void takeTextIn(const NestedText& nested, const std::string& folder);
    void takeXargs(const std::vector<Word>& words, const std::string& folder);
    bool takeProgram(std::vector<Word>& words, const std::string& folder);
    void takeGit(std::vector<Word>& words, const std::string& folder);
    void takeTextsOfGit(const std::vector<Word>& words, const std::string& folder);
    bool takeSettingOfGit(const std::vector<Word>& words);
    void takeRunWith(std::vector<Word> command, const std::string& folder);
    void takeRedirects(Command& command);
    void noteBranch(const std::vector<Word>& words);
    void takeTraps();
    void takeSourced(const std::vector<Word>& words);
    void takeNames(const std::vector<Word>& words, const Command& command);
    [[nodiscard]] bool takeValuesFrom(const std::string& path);
    void takeValues(std::string_view text);
    void noteTest(std::span<const Word> words, const Command& command);
    void takeFind(const std::vector<Word>& words, const std::string& folder);
    [[nodiscard]] std::optional<std::string> outputOf(const std::vector<Word>& words, const Command& command);
    [[nodiscard]] std::optional<std::string> textOf(const Input& input, const Command& command);
    bool takeInputs(const std::vector<Word>& words, Command& command);
    void holdFeeder(Command& command);
    [[nodiscard]] std::optional<std::string> writtenBefore();
    void tell(std::span<const Word> words) const;
    [[nodiscard]] bool readsByRule(const Word& name) const;
    void takeUnknown(const Word& name);
    void judge(WordValues::Readings readings);
    bool takeBuiltin(std::vector<Word>& words, const Command& command, bool hadArgument);
    void noteDoubt(const std::vector<Word>& words, bool instead, std::size_t depth);
    void noteFailure(const std::string& folder, std::size_t depth);
    [[nodiscard]] bool isDoubtful(const Doubt& doubt);
    void moveDoubts(std::string_view relative);
    void takeDoubts(const Command& command, const std::vector<Word>& words);
    void changeFolder(const std::vector<Word>& words, std::size_t depth, bool hadArgument);
    [[nodiscard]] Parameters parametersFrom(std::span<const Word> words);
    [[nodiscard]] std::optional<std::string> inSearchPath(const Word& argument);
    void goTo(const std::vector<Word>& words, std::vector<Word>::const_iterator argument, std::size_t depth);
    void enter(std::string folder, std::size_t depth, std::vector<std::string> others = {});
    void takeStack();
    [[nodiscard]] std::vector<std::string> foldersOfOtherRuns(const std::vector<Word>& words,
                                                              std::vector<Word>::const_iterator argument);
    void judgeElsewhere(std::vector<Word>& words);
    void opaque() { effects_.opaque(position_.folder()); }

    const Context& context_;
    Effects effects_;
    Position position_;
    WordValues values_;
    bool followsLast_ = false; // the line mentions $_, the last word of the command before
    std::size_t nesting_ = 0;  // how many substitutions and texts the command is in
    std::size_t nestedBytes_ = 0;
    std::vector<Word> given_;              // assignments that hold for the command alone
    std::optional<std::string> elsewhere_; // the folder in which a wrapper runs the command
    std::map<std::string, std::string, std::less<>> aliases_;
    Functions functions_;
    std::vector<Word> gitSettings_;      // NAME=VALUE of those that the line has given git, each behind -c
    std::vector<NestedText> traps_;      // of the shell that reads the commands
    std::vector<Doubt> doubts_;          // folders in which the line may be instead
    std::size_t settledDoubts_ = 0;      // those that were noted before the && list of now
    std::size_t branches_ = 0;           // of if and case, that are open
    std::size_t depth_ = 0;              // how many parentheses the command is in
    std::size_t otherRuns_ = 0;          // of loops, in which commands were judged
    std::size_t filesRead_ = 0;          // for the values that they give
    std::size_t calls_ = 0;              // of functions, in each other
    std::size_t calledCommands_ = 0;     // by all of them
    std::vector<Word> lister_;           // the last command, where it prints the names of files into a pipe
    std::vector<Word> listed_;           // the same of the one before the command that is judged
    std::optional<std::string> written_; // by the command before into a pipe, where that is known
    std::optional<Command> feeder_;      // instead of that, the command itself: most are read by no shell
};

} // namespace tidewrack::shell
