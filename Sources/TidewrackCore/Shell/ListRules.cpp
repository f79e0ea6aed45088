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

// What stands for an item in the words behind: -I SIGN, -ISIGN, -iSIGN, --replace=SIGN.
std::string_view replacedSign(Words options) {
    std::string_view sign;
    for (std::size_t index = 0; index < options.size(); ++index) {
        const std::string_view text = options[index].text;
        if (text.starts_with("--replace=")) sign = text.substr(10);
        if (text.starts_with("-i") && text.size() > 2) sign = text.substr(2);
        const std::size_t at = isShortCluster(options[index]) ? text.find_first_of(valueLetters, 1) : text.npos;
        if (at == text.npos) continue;
        const bool isJoined = at + 1 < text.size();
        if (text[at] == 'I' && isJoined) sign = text.substr(at + 1);
        if (text[at] == 'I' && !isJoined && index + 1 < options.size()) sign = options[index + 1].text;
        if (!isJoined) ++index;
    }
    return sign;
}

// Calls `visit` with each path that a word stands for.
template <typename Visit>
void visitPaths(Words words, const std::string& cwd, Effects& effects, Visit visit) {
    for (const Word& word : words) {
        if (word.unknown || word.text.empty() || effects.skips(word)) continue;
        for (const std::string& path : effects.resolve(word, cwd)) visit(path);
    }
}

template <typename Visit>
void visitOperands(Words arguments, const std::string& cwd, Effects& effects, Visit visit) {
    for (const Word& word : arguments)
        if (!isOption(word)) visitPaths(Words(&word, 1), cwd, effects, visit);
}

bool listsHidden(Words arguments) {
    return hasOption(arguments, 'A', "--almost-all") || hasOption(arguments, 'a', "--all") ||
           hasOption(arguments, 'f', "--all");
}

// What ls prints are the files that its operands name, and the names in the folders, which lie elsewhere where the
// folder is an operand.
void examineListedByLs(Words arguments, Act act, bool recursive, const std::string& cwd, Effects& effects) {
    const bool itself = hasOption(arguments, 'd', "--directory");
    visitOperands(arguments, cwd, effects, [&](const std::string& path) {
        if (itself || !isFolder(path)) effects.risk(path, cwd);
    });
    if (itself || !std::all_of(arguments.begin(), arguments.end(), isOption)) return;
    if (recursive && act == Act::removed) effects.askIfProjectInside(cwd);
    if (recursive && act == Act::removed && listsHidden(arguments)) effects.reachGitStores(cwd, FoundFiles(), true);
    if (effects.isProtected(cwd, Links::followed))
        effects.suspectProjectsIn(cwd);
    else
        effects.thin(cwd, cwd, Links::followed);
}

// What grep -l prints are some of the files that its operands name, or hold.
void examineMatches(const ListingGrep& grep, const std::string& cwd, Effects& effects) {
    visitPaths(grep.roots, cwd, effects, [&](const std::string& path) {
        if (!isFolder(path))
            effects.risk(path, cwd);
        else if (effects.isProtected(path, Links::followed))
            effects.suspectProjectsIn(path);
        else
            effects.thin(path, cwd, Links::followed);
    });
}

// What a command that may do anything is given one after the other: git runs in each of the folders, others may.
void examineFoldersListed(Words arguments, const std::vector<Word>& command, const std::string& cwd, Effects& effects) {
    const bool isGit = commandName(command.front()) == "git"sv && command.size() <= Budget::wordsBehindPattern;
    if (!hasOption(arguments, 'd', "--directory")) return;
    visitOperands(arguments, cwd, effects, [&](const std::string& path) {
        if (!effects.takesLook() || !isFolder(path)) return;
        effects.suspectProjectsIn(path);
        if (!isGit || effects.isProtected(path, Links::followed)) return;
        std::vector<Word> run = command;
        for (Word& one : run) one.text = withItem(one.text, "{}", path);
        (void)examine(run, cwd, effects);
    });
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

std::optional<ListingGrep> listingGrep(Words words) {
    constexpr std::array greps = {"grep"sv, "egrep"sv, "fgrep"sv, "zgrep"sv};
    constexpr std::array searchers = {"rg"sv, "ag"sv};
    const std::string_view name = commandName(words.front());
    const bool searches = isIn(searchers, name);
    if (!searches && !isIn(greps, name)) return std::nullopt;
    ListingGrep grep{{}, searches, searches};
    bool lists = false;
    bool hasPattern = false;
    for (std::size_t index = 1; index < words.size(); ++index) {
        const std::string_view text = words[index].text;
        if (text.size() < 2 || text[0] != '-') {
            grep.roots.push_back(words[index]);
            continue;
        }
        grep.sparesGit = grep.sparesGit || text.find(".git") != text.npos || text.starts_with("--include");
        const bool isLong = text[1] == '-';
        const std::size_t at = isLong ? text.npos : text.find_first_of(searches ? "efmABCgtTjEMrd" : "efmABCdD", 1);
        const std::string_view flags = isLong ? ""sv : text.substr(1, at == text.npos ? at : at - 1);
        grep.recursive = grep.recursive || flags.find_first_of("rR") != flags.npos || text == "--recursive"sv ||
                         text == "--dereference-recursive"sv;
        lists = lists || flags.find_first_of("lL") != flags.npos || text.starts_with("--files");
        hasPattern = hasPattern || text.starts_with("--regexp") || text.starts_with("--file=") || text == "--files"sv ||
                     (at != text.npos && (text[at] == 'e' || text[at] == 'f'));
        if (at + 1 == text.size()) ++index; // its value
    }
    if (!lists) return std::nullopt;
    if (!hasPattern && !grep.roots.empty()) grep.roots.erase(grep.roots.begin());
    if (grep.roots.empty() && grep.recursive) grep.roots.emplace_back().text += '.';
    return grep;
}

void reachListedGitStores(Words lister, const std::string& cwd, Effects& effects) {
    const std::string_view name = commandName(lister.front());
    if (const auto grep = listingGrep(lister); grep && grep->recursive && !grep->sparesGit) {
        for (const Word& root : grep->roots) effects.reachGitStores(absolutePath(root.text, cwd), FoundFiles());
    } else if (name == "ls"sv && effects.losesUnknown()) {
        const Words arguments = lister.subspan(1);
        const bool itself = hasOption(arguments, 'd', "--directory");
        if (!itself && listsHidden(arguments) && std::all_of(arguments.begin(), arguments.end(), isOption))
            effects.reachGitStores(cwd, FoundFiles());
    } else if (listsFiles(lister.front()) && name != "ls"sv && effects.losesUnknown()) {
        reachFoundGitStores(lister, cwd, effects);
    }
}

bool listsFiles(const Word& first) {
    const std::string_view name = commandName(first);
    return name == "ls"sv || name == "find"sv || name == "fd"sv || name == "fdfind"sv;
}

void examineListed(Words lister, Words arguments, const std::string& cwd, Effects& effects) {
    const std::vector<Word> command = commandOfXargs(arguments);
    if (command.empty()) return;
    const Act act = actOn(command);
    if (act == Act::guessed && commandName(lister.front()) == "ls"sv)
        examineFoldersListed(lister.subspan(1), command, cwd, effects);
    else if (act == Act::guessed && !listsMatches(lister))
        examineFound(lister, act, false, cwd, effects);
    if (act != Act::destroyed && act != Act::removed) return;
    // Only what is named by itself goes: not ../x/{}.
    const auto isPart = [](const Word& word) { return isFound(word) && word.text != "{}"sv; };
    if (std::any_of(command.begin(), command.end(), isPart)) return;
    const bool recursive = takesFolders(command);
    if (commandName(lister.front()) == "ls"sv)
        return examineListedByLs(lister.subspan(1), act, recursive, cwd, effects);
    if (const auto grep = listingGrep(lister)) return examineMatches(*grep, cwd, effects);
    examineFound(lister, act, recursive, cwd, effects);
}

void examineUnknownList(Words arguments, const std::string& cwd, Effects& effects) {
    const std::vector<Word> command = commandOfXargs(arguments);
    if (!command.empty() && actOn(command) > Act::guessed) effects.loseUnknownWords(cwd);
}

void examineItems(std::string_view text, Words arguments, const std::string& cwd, Effects& effects) {
    const std::vector<Word> command = commandOfXargs(arguments);
    if (command.empty()) return;
    const bool copies = actOn(command) <= Act::guessed;
    if (copies && !hasOperandsOfItsOwn(commandName(command.front()))) return;
    const bool byLine = std::any_of(arguments.begin(), arguments.end(), [](const Word& word) {
        return isShortCluster(word) && word.text.find_first_of("0dI") != std::string::npos;
    });
    const std::string_view separators = byLine ? "\n"sv : " \t\n"sv;
    std::vector<std::string_view> places; // where the items stand: {} and what is around it
    for (const Word& word : command)
        if (isFound(word) && !(copies && word.text == "{}"sv) && places.size() < Budget::placesOfItems)
            places.push_back(word.text);
    if (places.empty() && !copies) places.emplace_back("{}");
    for (std::size_t begin = 0, count = 0; begin < text.size() && count < Budget::itemsOfList;) {
        const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
        std::string_view item = text.substr(begin, end - begin);
        begin = end + 1;
        item = item.substr(0, item.find_last_not_of(' ') + 1); // what echo prints has one at its end
        if (item.empty()) continue;
        ++count;
        for (const std::string_view place : places)
            effects.risk(absolutePath(place.size() > Budget::nameLength ? item : withItem(place, "{}", item), cwd),
                         cwd);
    }
}

} // namespace tidewrack::shell
