#include "Shell/ListRules.hpp"

#include "Shell/Budget.hpp"
#include "Shell/CommandRules.hpp"
#include "Shell/FindRules.hpp"
#include "Shell/NameFilter.hpp"
#include "Shell/NestedText.hpp"
#include "Shell/OptionEffects.hpp"
#include "Shell/Options.hpp"
#include "Shell/Wrappers.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <array>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

// Options of xargs whose value is a word of its own.
constexpr std::string_view valueLetters = "InPLdEsaJRS";
constexpr std::array valueOptions = {"--max-args"sv, "--max-procs"sv, "--max-chars"sv, "--delimiter"sv, "--arg-file"sv};

// Whether the value of an option of xargs is the next word: -n 1, -0I {}, --max-args 1, but not -n1.
bool takesNextWord(const Word& option) {
    if (!isShortCluster(option)) return isIn(valueOptions, option.text);
    return option.text.find_first_of(valueLetters, 1) == option.text.size() - 1;
}

// What stands for an item in the words behind: -I SIGN, -ISIGN, --replace=SIGN.
std::string_view replacedSign(Words options) {
    std::string_view sign;
    for (std::size_t index = 0; index < options.size(); ++index) {
        const std::string_view text = options[index].text;
        if (text.starts_with("--replace=")) sign = text.substr(10);
        const std::size_t at = isShortCluster(options[index]) ? text.find_first_of(valueLetters, 1) : text.npos;
        if (at == text.npos) continue;
        const bool isJoined = at + 1 < text.size();
        if (text[at] == 'I' && isJoined) sign = text.substr(at + 1);
        if (text[at] == 'I' && !isJoined && index + 1 < options.size()) sign = options[index + 1].text;
        if (!isJoined) ++index;
    }
    return sign;
}

// What ls prints are the files that its operands name, and the names in the folders, which lie elsewhere where the
// folder is an operand.
void examineListedByLs(Words arguments, Act act, bool recursive, const std::string& cwd, Effects& effects) {
    const bool itself = hasOption(arguments, 'd', "--directory");
    bool named = false;
    for (const Word& word : arguments) {
        if (isOption(word)) continue;
        named = true;
        if (word.unknown || word.text.empty() || effects.skips(word)) continue;
        for (const std::string& path : effects.resolve(word, cwd))
            if (itself || !isFolder(path)) effects.risk(path, cwd);
    }
    if (named || itself) return;
    if (recursive && act == Act::removed) effects.askIfProjectInside(cwd);
    if (effects.isProtected(cwd, Links::followed))
        effects.suspectProjectsIn(cwd);
    else
        effects.thin(cwd, cwd, Links::followed);
}

} // namespace

std::vector<Word> commandOfXargs(Words arguments) {
    std::size_t index = 0;
    while (index < arguments.size() && isOption(arguments[index])) index += takesNextWord(arguments[index]) ? 2U : 1U;
    index = std::min(index, arguments.size());
    std::vector<Word> command(arguments.begin() + static_cast<std::ptrdiff_t>(index), arguments.end());
    (void)unwrap(command);
    const std::string_view sign = replacedSign(arguments.first(index));
    if (!sign.empty() && sign != "{}"sv && command.size() <= Budget::itemsOfList)
        for (Word& word : command)
            if (word.text.find(sign) != std::string::npos) word.text = withItem(word.text, sign, "{}");
    return command;
}

bool listsFiles(const Word& first) {
    const std::string_view name = commandName(first);
    return name == "ls"sv || name == "find"sv || name == "fd"sv || name == "fdfind"sv;
}

void examineListed(Words lister, Words arguments, const std::string& cwd, Effects& effects) {
    const std::vector<Word> command = commandOfXargs(arguments);
    if (command.empty()) return;
    // Only what is named by itself goes: not ../x/{}.
    const auto isPart = [](const Word& word) { return isFound(word) && word.text != "{}"sv; };
    if (std::any_of(command.begin(), command.end(), isPart)) return;
    const Act act = actOn(command);
    if (act != Act::destroyed && act != Act::removed) return;
    const bool recursive = isRecursive(Words(command).subspan(1));
    if (commandName(lister.front()) == "ls"sv)
        return examineListedByLs(lister.subspan(1), act, recursive, cwd, effects);
    examineFound(lister, act, recursive, cwd, effects);
}

void examineItems(std::string_view text, Words arguments, const std::string& cwd, Effects& effects) {
    const std::vector<Word> command = commandOfXargs(arguments);
    if (command.empty() || actOn(command) <= Act::guessed) return;
    const bool byLine = std::any_of(arguments.begin(), arguments.end(), [](const Word& word) {
        return isShortCluster(word) && word.text.find_first_of("0dI") != std::string::npos;
    });
    const std::string_view separators = byLine ? "\n"sv : " \t\n"sv;
    for (std::size_t begin = 0, count = 0; begin < text.size() && count < Budget::itemsOfList;) {
        const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
        const std::string_view item = text.substr(begin, end - begin);
        begin = end + 1;
        if (item.empty()) continue;
        ++count;
        effects.risk(absolutePath(item, cwd), cwd);
    }
}

} // namespace tidewrack::shell
