#include "Shell/FindRules.hpp"

#include "Shell/Budget.hpp"
#include "Shell/CommandRules.hpp"
#include "Shell/FdWords.hpp"
#include "Shell/FoundFiles.hpp"
#include "Shell/NameFilter.hpp"
#include "Shell/OptionEffects.hpp"
#include "Shell/Options.hpp"
#include "Shell/Wrappers.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

constexpr std::array findRuns = {"-exec"sv, "-execdir"sv, "-ok"sv, "-okdir"sv};

constexpr std::array findDeletes = {"-delete"sv};
constexpr std::array findWrites = {"-fprint"sv, "-fprint0"sv, "-fprintf"sv, "-fls"sv};

constexpr std::array findTests = {
    "-name"sv,      "-iname"sv,      "-path"sv,    "-ipath"sv,   "-regex"sv,   "-iregex"sv,  "-newer"sv,
    "-mtime"sv,     "-mmin"sv,       "-size"sv,    "-empty"sv,   "-ctime"sv,   "-cmin"sv,    "-atime"sv,
    "-amin"sv,      "-anewer"sv,     "-cnewer"sv,  "-lname"sv,   "-ilname"sv,  "-inum"sv,    "-samefile"sv,
    "-wholename"sv, "-iwholename"sv, "-newermt"sv, "-newerct"sv, "-newerat"sv, "-newerBt"sv, "-newermm"sv,
    "-newercm"sv,   "-perm"sv,       "-user"sv,    "-group"sv,   "-uid"sv,     "-gid"sv,     "-nouser"sv,
    "-nogroup"sv,   "-executable"sv, "-links"sv};

// Those of them that may well hold for everything in a folder.
constexpr std::array broadTests = {"-perm"sv,    "-user"sv,    "-group"sv,   "-uid"sv,        "-gid"sv,
                                   "-links"sv,   "-nouser"sv,  "-nogroup"sv, "-executable"sv, "-newermt"sv,
                                   "-newerct"sv, "-newerat"sv, "-newerBt"sv};

template <std::size_t size>
bool holdsAny(Words words, const std::array<std::string_view, size>& table) {
    return std::any_of(words.begin(), words.end(), [&](const Word& word) { return isIn(table, word.text); });
}

// Whether the word is a test on the kind of file that leaves out files and folders: -type l, -xtype l.
bool takesOnlyLinks(Words arguments, std::size_t index) {
    if (index + 1 >= arguments.size()) return false;
    const std::string_view text = arguments[index].text;
    const Word& kinds = arguments[index + 1];
    return (text == "-type"sv || text == "-xtype"sv) && !kinds.unknown &&
           kinds.text.find_first_of("fd") == std::string::npos;
}

bool takesOnlyLinks(Words arguments) {
    for (std::size_t index = 0; index < arguments.size(); ++index)
        if (takesOnlyLinks(arguments, index)) return true;
    return false;
}

// Whether it is not certain that a folder keeps most of what it holds.
bool hasOnlyBroadTests(Words arguments) {
    const auto isNarrow = [](const Word& word) { return isIn(findTests, word.text) && !isIn(broadTests, word.text); };
    return !takesOnlyLinks(arguments) && std::none_of(arguments.begin(), arguments.end(), isNarrow);
}

// Whether find takes files to another place and leaves the folders where they are.
bool movesFiles(Words arguments) {
    const auto isType = [](const Word& type, const Word& value) {
        return type.text == "-type"sv && value.text == "f"sv;
    };
    const bool takesFiles = std::adjacent_find(arguments.begin(), arguments.end(), isType) != arguments.end();
    if (!takesFiles || holdsAny(arguments, findDeletes)) return false;
    const auto commands = commandsOfFind(arguments);
    return std::all_of(commands.begin(), commands.end(), [](const std::vector<Word>& command) {
        return !command.empty() && (commandName(command.front()) == "mv"sv || actOn(command) != Act::removed);
    });
}

constexpr std::array negations = {"!"sv, "-not"sv};

// How many of find's arguments come before its roots: -L, -H, -EX, -O3, -D word.
std::size_t wordsBeforeRoots(Words arguments) {
    std::size_t count = 0;
    for (; count < arguments.size() && isOption(arguments[count]); ++count) {
        const std::string_view text = arguments[count].text;
        if (text == "-D")
            ++count;
        else if (text.find_first_not_of("HLPEXxds", 1) != std::string_view::npos && !text.starts_with("-O"))
            break;
    }
    return std::min(count, arguments.size());
}

// Whether one test on names alone, and on being a file, says what find acts on.
bool nameDecides(Words arguments) {
    constexpr std::array harmless = {"-delete"sv, "-print"sv, "-print0"sv, "-depth"sv, "-xdev"sv, "-mount"sv};
    std::size_t tests = 0;
    for (std::size_t index = wordsBeforeRoots(arguments); index < arguments.size(); ++index) {
        const std::string_view text = arguments[index].text;
        if (arguments[index].unknown || arguments[index].glob || text == "("sv || text == "!"sv) return false;
        if (isIn(findRuns, text)) {
            while (index < arguments.size() && arguments[index].text != ";" && arguments[index].text != "+") ++index;
        } else if (text == "-name"sv || text == "-iname"sv || text == "-maxdepth"sv || text == "-type"sv) {
            if (++index == arguments.size()) return false;
            if (text == "-type"sv && arguments[index].text != "f"sv) return false;
            if (text.ends_with("name") && ++tests > 1) return false;
        } else if (isOption(arguments[index]) && !isIn(harmless, text)) {
            return false;
        }
    }
    return true;
}

// ! -name ., ! -path ./, -not -path ROOT: leaves out the searched folder alone.
bool sparesOnlyRoot(Words arguments, std::size_t index) {
    if (index == 0 || index + 1 >= arguments.size() || !isIn(negations, arguments[index - 1].text)) return false;
    const std::string_view test = arguments[index].text;
    const std::string_view name = arguments[index + 1].text;
    if (test == "-name"sv) return name == "."sv || name == ".."sv;
    const auto isName = [&](const Word& word) { return word.text == name; };
    const Words before = arguments.first(index - 1);
    const auto end = std::find_if(before.begin(), before.end(), isOption);
    return (test == "-path"sv || test == "-wholename"sv) &&
           (name == "."sv || name == "./"sv || std::any_of(before.begin(), end, isName));
}

// Whether a test stands before everything that find does to files, in the same part of the expression: not behind it,
// as in `-delete -name x`, and not before an "or". `prints`: what is printed is acted on.
bool testsLimit(Words arguments, bool prints) {
    bool isLimited = false;
    bool hasTest = false;
    bool acts = false;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string_view text = arguments[index].text;
        if (text == "-o"sv || text == "-or"sv || text == ","sv) isLimited = false;
        const bool isTest =
            (isIn(findTests, text) && !sparesOnlyRoot(arguments, index)) || takesOnlyLinks(arguments, index);
        isLimited = isLimited || isTest;
        hasTest = hasTest || isTest;
        bool isAction = isIn(findDeletes, text) || (prints && text.starts_with("-print"));
        if (isIn(findRuns, text)) {
            const auto endsRun = [](const Word& word) { return word.text == ";"sv || word.text == "+"sv; };
            const auto end =
                std::find_if(arguments.begin() + static_cast<std::ptrdiff_t>(index), arguments.end(), endsRun);
            const auto begin = arguments.begin() + static_cast<std::ptrdiff_t>(index) + 1;
            isAction = !prints && begin < end && actOn({begin, end}) != Act::nothing;
            index = static_cast<std::size_t>(end - arguments.begin());
        }
        acts = acts || isAction;
        if (isAction && !isLimited) return false;
    }
    return acts || hasTest;
}

// Whether a test keeps what lies in .git from being found: ! -path './.git/*', -name .git -prune, -maxdepth 1.
bool keepsOutOfGit(Words arguments, const FoundFiles& tests) {
    constexpr std::array prunes = {"-prune"sv};
    const bool isPruned = holdsAny(arguments, prunes);
    for (std::size_t index = 1; index < arguments.size(); ++index) {
        const std::string_view test = arguments[index - 1].text;
        const std::string_view value = arguments[index].text;
        if (test == "-type"sv && value == "f"sv && tests.depth < 2) return true;
        const std::size_t at = value.find(".git");
        if (!test.starts_with('-') || at == value.npos) continue;
        const bool isStore = at + 4 == value.size() || value[at + 4] == '/' || value[at + 4] == '*';
        const bool isNegated = index > 1 && isIn(negations, arguments[index - 2].text);
        if (isStore && (isNegated || isPruned)) return true;
    }
    return false;
}

// What must hold of a file so that find acts on it, as far as its path tells.
FoundFiles testsOf(Words arguments, bool areLimiting) {
    FoundFiles tests;
    tests.certain = nameDecides(arguments);
    const auto isFile = [](const Word& test, const Word& kind) { return test.text == "-type"sv && kind.text == "f"sv; };
    tests.takesFolders = std::adjacent_find(arguments.begin(), arguments.end(), isFile) == arguments.end();
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string_view test = arguments[index].text;
        tests.onlyEmpty = tests.onlyEmpty || (areLimiting && test == "-empty"sv);
        if (index + 1 == arguments.size()) break;
        const bool isNegated = index > 0 && isIn(negations, arguments[index - 1].text);
        const std::string& pattern = arguments[index + 1].text;
        if (test == "-maxdepth"sv)
            tests.depth = std::min(tests.depth, std::size_t(std::strtoul(pattern.c_str(), nullptr, 10)));
        if (isNegated || !areLimiting) continue;
        if (test == "-name"sv) tests.names.push_back(pattern);
        if (test == "-path"sv || test == "-wholename"sv) tests.paths.push_back(pattern);
        if (test == "-iname"sv) tests.anyCaseNames.push_back(pattern);
        if (test == "-ipath"sv || test == "-iwholename"sv) tests.anyCasePaths.push_back(pattern);
    }
    tests.sparesGit = keepsOutOfGit(arguments, tests);
    tests.takesFolders = tests.takesFolders && !(tests.names.empty() && tests.anyCaseNames.empty());
    return tests;
}

// Whether only files that lie in the folder itself can go.
bool takesTopAlone(const FoundFiles& tests, bool recursive) {
    return tests.depth < 2 && !recursive;
}

// What the tests on names let pass, whatever the others say.
void listFound(Words roots, const FoundFiles& tests, bool namesDecide, const std::string& cwd, Effects& effects) {
    for (const Word& root : roots)
        if (!root.glob && !root.unknown && effects.takesListing())
            effects.list({absolutePath(root.text, cwd), namesDecide ? tests.names : std::vector<std::string>(), true});
}

// Only what passes the tests goes: a protected folder stays, and is too large to be kept. What is only guessed is saved
// as guesses are.
void takeTree(const Word& root, const FoundFiles& tests, Act act, bool recursive, const std::string& cwd,
              Effects& effects) {
    if (act == Act::nothing) return;
    if (root.unknown || effects.skips(root)) return effects.opaque(cwd);
    for (const std::string& path : effects.resolve(root, cwd)) {
        // A folder that goes takes with it what it holds.
        const auto takes = [&](std::string_view file) {
            std::size_t depth = 0;
            for (std::size_t at = path.size(); at < file.size(); ++depth) {
                at = std::min(file.find('/', at + 1), file.size());
                if ((recursive || at == file.size()) && tests.pass(file.substr(0, at), depth + 1)) return true;
            }
            return false;
        };
        const bool allGoes = act == Act::removed && tests.takesAll() && !takesTopAlone(tests, recursive);
        if (act != Act::guessed) effects.reachGitStores(path, tests, allGoes);
        if (act != Act::guessed) effects.takeBelow(path, takes);
        if (act == Act::removed && recursive && tests.takesFolders) effects.takeProtected(path, takes);
        if (effects.isProtected(path, linksOf(root)))
            effects.suspectProjectsIn(path);
        else if (act == Act::destroyed || act == Act::removed)
            effects.thin(path, cwd, linksOf(root), tests, act == Act::removed);
        else if (effects.isInProject(path))
            effects.suspect(path);
        else
            effects.opaque(path); // of which a copy is kept where it is small
        if (act == Act::guessed && !effects.isInProject(path)) effects.suspectProjectsIn(path);
    }
}

std::vector<Word> rootsOfFind(Words arguments, const std::string& cwd) {
    const auto endsRoots = [](const Word& word) { return isOption(word) || word.text == "(" || word.text == "!"; };
    const Words operands = arguments.subspan(wordsBeforeRoots(arguments));
    std::vector<Word> roots(operands.begin(), std::find_if(operands.begin(), operands.end(), endsRoots));
    if (roots.empty()) roots.emplace_back().text = cwd;
    return roots;
}

// -L, -follow: what links lead to is found as well.
bool followsLinks(Words arguments) {
    const Words before = arguments.first(wordsBeforeRoots(arguments));
    const auto follows = [](const Word& word) { return word.text.find('L') != std::string::npos; };
    return std::any_of(before.begin(), before.end(), follows) ||
           std::any_of(arguments.begin(), arguments.end(), [](const Word& word) { return word.text == "-follow"sv; });
}

// The roots with those that find comes to through links, where it takes something.
std::vector<Word> reachedRoots(Words arguments, Act act, const std::string& cwd, Effects& effects) {
    std::vector<Word> roots = rootsOfFind(arguments, cwd);
    if (act == Act::nothing || !followsLinks(arguments)) return roots;
    std::vector<std::string> linked;
    for (Word& root : roots) {
        if (!root.unknown && !root.glob)
            for (std::string& path : effects.linkedFrom(absolutePath(root.text, cwd)))
                linked.push_back(std::move(path));
        if (!root.unknown && !root.text.ends_with('/')) root.text += '/'; // itself, too
    }
    for (std::string& path : linked) roots.emplace_back().text = std::move(path);
    return roots;
}

void askIfProjectIn(const Word& root, const std::string& cwd, Effects& effects) {
    if (root.unknown) return;
    for (const std::string& path : effects.resolve(root, cwd)) effects.askIfProjectInside(path);
}

bool removesRecursively(Words arguments) {
    for (const std::vector<Word>& command : commandsOfFind(arguments))
        if (takesFolders(command)) return true;
    return false;
}

} // namespace

bool isFound(const Word& word) {
    return word.text.find("{}") != std::string::npos;
}

void examineFind(Words arguments, const std::string& cwd, Effects& effects) {
    for (std::size_t index = 0; index + 1 < arguments.size(); ++index)
        if (isIn(findWrites, arguments[index].text)) effects.write(arguments[index + 1], cwd);
    const Act act = findAct(arguments);
    const std::vector<Word> roots = reachedRoots(arguments, act, cwd, effects);
    const bool areLimiting = testsLimit(arguments, false);
    const FoundFiles tests = testsOf(arguments, areLimiting);
    constexpr std::array others = {"-prune"sv, "-o"sv, "-or"sv, ","sv};
    listFound(roots, tests, !holdsAny(arguments, others), cwd, effects);
    const bool removes = act == Act::removed;
    const bool wholeTree = removes && !areLimiting && !movesFiles(arguments);
    const bool isBroad = removes && hasOnlyBroadTests(arguments);
    const auto isProtected = [&](const Word& root) {
        const auto paths = root.unknown ? std::vector<std::string>() : effects.resolve(root, cwd);
        return std::any_of(paths.begin(), paths.end(),
                           [&](const std::string& path) { return effects.isProtected(path, linksOf(root)); });
    };
    const bool recursive = removesRecursively(arguments);
    const bool asksForAll = wholeTree && !takesTopAlone(tests, recursive);
    for (const Word& root : roots) {
        if (asksForAll || ((wholeTree || isBroad) && isProtected(root)))
            effects.targetWord(root, cwd, linksOf(root), Extent::removed);
        else
            takeTree(root, tests, act, recursive, cwd, effects);
    }
}

void examineFd(Words arguments, const std::string& where, Effects& effects) {
    const FdWords all(arguments);
    const std::string cwd = folderOf(all, where);
    const std::vector<Word> roots = rootsOfFd(all, cwd);
    const FoundFiles tests = testsOfFd(all, arguments);
    listFound(roots, FoundFiles(), false, cwd, effects);
    const Act act = fdAct(arguments);
    const bool recursive = takesFolders(arguments.subspan(fdCommandAt(arguments)));
    const bool wholeTree = act == Act::removed && all.takesAll() && !takesTopAlone(tests, recursive);
    for (const Word& root : roots) {
        if (wholeTree)
            effects.targetWord(root, cwd, linksOf(root), Extent::removed);
        else
            takeTree(root, tests, act, recursive, cwd, effects);
    }
}

void examineFound(Words lister, Act act, bool recursive, const std::string& where, Effects& effects) {
    const Words arguments = lister.subspan(1);
    if (commandName(lister.front()) != "find"sv) {
        const FdWords all(arguments);
        const std::string cwd = folderOf(all, where);
        const FoundFiles tests = testsOfFd(all, arguments);
        const bool isAll = all.takesAll() && !takesTopAlone(tests, recursive);
        for (const Word& root : rootsOfFd(all, cwd)) {
            if (act == Act::removed && isAll) askIfProjectIn(root, cwd, effects);
            takeTree(root, tests, act, recursive, cwd, effects);
        }
        return;
    }
    const bool areLimiting = testsLimit(arguments, true);
    const FoundFiles tests = testsOf(arguments, areLimiting);
    for (const Word& root : reachedRoots(arguments, act, where, effects)) {
        if (act == Act::removed && !areLimiting && !takesTopAlone(tests, recursive))
            askIfProjectIn(root, where, effects);
        takeTree(root, tests, act, recursive, where, effects);
    }
}

void reachFoundGitStores(Words lister, const std::string& where, Effects& effects) {
    const Words arguments = lister.subspan(1);
    const bool isFind = commandName(lister.front()) == "find"sv;
    const FdWords all(isFind ? Words() : arguments);
    const std::string cwd = isFind ? where : folderOf(all, where);
    const FoundFiles tests = isFind ? testsOf(arguments, testsLimit(arguments, true)) : testsOfFd(all, arguments);
    for (const Word& root : isFind ? rootsOfFind(arguments, cwd) : rootsOfFd(all, cwd))
        if (!root.unknown) effects.reachGitStores(absolutePath(root.text, cwd), tests);
}

std::string folderOfFd(Words arguments, const std::string& cwd) {
    return folderOf(FdWords(arguments), cwd);
}

std::vector<std::vector<Word>> commandsOfFd(Words arguments) {
    const std::size_t at = fdCommandAt(arguments);
    if (at == arguments.size()) return {};
    const Words command = arguments.subspan(at + 1);
    const auto end = std::find_if(command.begin(), command.end(), [](const Word& word) { return word.text == ";"sv; });
    return {{command.begin(), end}};
}

Act fdAct(Words arguments, std::size_t nesting) {
    const auto commands = commandsOfFd(arguments);
    return commands.empty() ? Act::nothing : actOn(commands.front(), nesting);
}

std::vector<std::vector<Word>> commandsOfFind(Words arguments) {
    std::vector<std::vector<Word>> commands;
    const auto endsRun = [](const Word& word) { return word.text == ";" || word.text == "+"; };
    for (auto word = arguments.begin(); word != arguments.end(); ++word) {
        if (!isIn(findRuns, word->text)) continue;
        const auto end = std::find_if(word + 1, arguments.end(), endsRun);
        commands.emplace_back(word + 1, end);
        if (end == arguments.end()) break;
        word = end;
    }
    return commands;
}

Act findAct(Words arguments, std::size_t nesting) {
    Act act = holdsAny(arguments, findDeletes) ? Act::removed : Act::nothing;
    for (std::vector<Word>& command : commandsOfFind(arguments))
        act = std::max(act, actOn(std::move(command), nesting));
    return act;
}

} // namespace tidewrack::shell
