// Programs that run others, and git, as the guard judges them.

#include "Shell/GuardRun.hpp"

#include "Shell/Budget.hpp"
#include "Shell/CommandRules.hpp"
#include "Shell/FindRules.hpp"
#include "Shell/ListRules.hpp"
#include "Shell/NestedText.hpp"
#include "Shell/Wrappers.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewrack::shell {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

namespace {

// Whether the word is NAME=VALUE of this name.
bool assigns(const Word& word, std::string_view name) {
    return word.text.starts_with(name) && word.text.size() > name.size() && word.text[name.size()] == '=';
}

bool runsWhatItFinds(std::string_view name) {
    return name == "find"sv || name == "fd"sv || name == "fdfind"sv;
}

bool isOperand(const Word& word) {
    return !word.unknown && !word.text.starts_with('-');
}

} // namespace

// False when it is not known what the program does.
bool Guard::takeProgram(std::vector<Word>& words, const std::string& folder) {
    const std::string_view name = commandName(words.front());
    if (runsWhatItFinds(name))
        takeFind(words, folder);
    else if (name == "xargs"sv)
        takeXargs(words, folder);
    else if (name == "git"sv)
        takeGit(words, folder);
    else
        return examine(words, folder, effects_);
    return true;
}

void Guard::takeGit(std::vector<Word>& words, const std::string& folder) {
    const bool isGiven = !given_.empty() || values_.hasAssigned() || !gitSettings_.empty();
    placeGitsEnvironment(words);
    if (!takeSettingOfGit(words)) words.insert(words.begin() + 1, gitSettings_.begin(), gitSettings_.end());
    const std::string_view first = words.size() > 2 ? std::string_view(words[1].text) : ""sv;
    const bool mayGive = first.starts_with('-') || first == "difftool"sv || first == "rebase"sv;
    if (isGiven || mayGive) takeTextsOfGit(words, folder);
    (void)examine(words, folder, effects_);
}

// git config [set] NAME VALUE: later commands of the line run what it says, as if behind -c. False for other commands.
bool Guard::takeSettingOfGit(const std::vector<Word>& words) {
    auto word = std::find(words.begin() + 1, words.end(), Word{.text = "config", .plain = 6});
    if (word == words.end()) return false;
    const auto isValue = [](const Word& one) { return isOperand(one) && one.text != "set"sv; };
    const auto name = std::find_if(word + 1, words.end(), isValue);
    const auto value = name == words.end() ? name : std::find_if(name + 1, words.end(), isOperand);
    if (value == words.end() || gitSettings_.size() >= 2 * Budget::traps) return true;
    gitSettings_.push_back(Word{.text = "-c"});
    gitSettings_.push_back(Word{.text = name->text + "=" + value->text});
    return true;
}

// git works on the tree that GIT_WORK_TREE names.
void Guard::placeGitsEnvironment(std::vector<Word>& words) {
    if (given_.empty() && !values_.holdsAnyLike("GIT_")) return;
    for (const Word& word : given_)
        if (word.text.starts_with("GIT_WORK_TREE=") || word.text.starts_with("GIT_DIR="))
            values_.give(word); // also for later: more is saved
    for (const std::string_view name : {"GIT_WORK_TREE"sv, "GIT_DIR"sv}) {
        std::string value = values_.valueOf(name);
        if (value.empty()) continue;
        Word option;
        option.text = (name == "GIT_DIR"sv ? "--git-dir=" : "--work-tree=") + std::move(value);
        words.insert(words.begin() + 1, std::move(option)); // before one on the line, which is stronger
    }
}

// What a command does in the other runs of a loop, which are in other folders.
void Guard::judgeElsewhere(std::vector<Word>& words) {
    for (const std::string& folder : position_.others()) {
        if (nestedText(words) || functions_.contains(words.front().text) || ++otherRuns_ > Budget::otherRuns)
            effects_.opaque(folder);
        else if (runsWhatItFinds(commandName(words.front())))
            takeFind(words, folder);
        else if (!examine(words, folder, effects_) && !readsByRule(words.front()))
            effects_.suspect(folder);
    }
}

// What find runs may take more than what it finds, which is not known one by one.
void Guard::takeFind(const std::vector<Word>& words, const std::string& folder) {
    (void)examine(words, folder, effects_);
    const Words arguments = Words(words).subspan(1);
    const bool isFind = commandName(words.front()) == "find"sv;
    const std::string where = isFind ? folder : folderOfFd(arguments, folder);
    for (std::vector<Word>& command : isFind ? commandsOfFind(arguments) : commandsOfFd(arguments))
        takeRunWith(std::move(command), where);
}

// A command that is run for operands which are not known, beside what it does to those.
void Guard::takeRunWith(std::vector<Word> command, const std::string& folder) {
    const Unwrapped around = unwrap(command);
    const bool moves = around.folder && !around.folder->unknown && !isFound(*around.folder);
    const std::string where = moves ? absolutePath(around.folder->text, folder) : folder;
    if (around.text) takeTextIn({around.text->text, around.text->unknown, true}, where);
    if (command.empty()) return;
    auto nested = nestedText(command);
    const std::string_view name = commandName(command.front());
    if (!nested && !hasOperandsOfItsOwn(name) && !isOurs(name)) return;
    for (Word& word : command)
        if (isFound(word) && !(nested && word.text == nested->text)) word = Word{.unknown = true};
    if (nested)
        takeTextIn(*nestedText(command), where);
    else if (moves || !command.back().unknown || std::count_if(command.begin(), command.end(), isOperand) > 1)
        (void)examine(command, where, effects_);
}

// A text that it hands to a shell is run with parameters that are not known.
void Guard::takeXargs(const std::vector<Word>& words, const std::string& folder) {
    (void)examine(words, folder, effects_);
    std::vector<Word> command = commandOfXargs(Words(words).subspan(1));
    (void)unwrap(command);
    auto nested = nestedText(command);
    if (!nested && !command.empty() && hasOperandsOfItsOwn(commandName(command.front()))) {
        if (std::none_of(command.begin(), command.end(), isFound)) command.emplace_back().text = "{}";
        takeRunWith(std::move(command), folder);
    }
    if (!nested) return;
    nested->parameters.reset();
    nested->text = withItem(nested->text, "{}", "$1");
    takeTextIn(*nested, folder);
}

// What the line gives to git to run: an editor, a pager, an alias.
void Guard::takeTextsOfGit(const std::vector<Word>& words, const std::string& folder) {
    RunByGit run = textsRunByGit(words, folder);
    for (const std::string_view name : variablesRunByGit) {
        const auto isGiven = [&](const Word& word) { return assigns(word, name); };
        const auto given = std::find_if(given_.begin(), given_.end(), isGiven);
        const std::string* assigned = values_.assigned(name);
        if (given != given_.end())
            run.add(given->text.substr(name.size() + 1));
        else if (assigned != nullptr)
            run.add(*assigned);
    }
    for (const NestedText& text : run.texts) takeTextIn(text, run.folder);
}

} // namespace tidewrack::shell
