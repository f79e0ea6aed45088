#include "Shell/FindRules.hpp"

#include "Shell/CommandRules.hpp"
#include "Shell/NameFilter.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

constexpr std::array findRuns = {"-exec"sv, "-execdir"sv, "-ok"sv, "-okdir"sv};

constexpr std::array findDeletes = {"-delete"sv};
constexpr std::array findWrites = {"-fprint"sv, "-fprint0"sv, "-fprintf"sv, "-fls"sv};

constexpr std::array findTests = {"-name"sv,  "-iname"sv, "-path"sv, "-ipath"sv, "-regex"sv, "-iregex"sv,
                                  "-newer"sv, "-mtime"sv, "-mmin"sv, "-size"sv,  "-empty"sv};

template <std::size_t size>
bool holdsAny(Words words, const std::array<std::string_view, size>& table) {
    return std::any_of(words.begin(), words.end(), [&](const Word& word) { return isIn(table, word.text); });
}

bool isOption(const Word& word) {
    return word.text.starts_with('-');
}

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

// What the tests on names let pass, whatever the others say.
void listFound(Words roots, Words arguments, const std::string& cwd, Effects& effects) {
    std::vector<std::string> names;
    for (std::size_t index = 0; index + 1 < arguments.size(); ++index)
        if (arguments[index].text == "-name") names.push_back(arguments[index + 1].text);
    for (const Word& root : roots)
        if (!root.glob && !root.unknown && effects.takesListing())
            effects.list({absolutePath(root.text, cwd), names, true});
}

// Only what passes the tests goes: a protected folder stays, and is too large to be kept.
void targetTestedTree(const Word& root, const std::string& cwd, Effects& effects) {
    if (effects.skips(root)) return effects.opaque(cwd);
    for (std::string& path : effects.resolve(root, cwd)) {
        if (effects.isProtected(path, linksOf(root)))
            effects.suspectProjectsIn(path);
        else
            effects.target(std::move(path), cwd, linksOf(root));
    }
}

} // namespace

void examineFind(Words arguments, const std::string& cwd, Effects& effects) {
    for (std::size_t index = 0; index + 1 < arguments.size(); ++index)
        if (isIn(findWrites, arguments[index].text)) effects.write(arguments[index + 1], cwd);
    const auto endsRoots = [](const Word& word) { return isOption(word) || word.text == "(" || word.text == "!"; };
    const Words operands = arguments.subspan(wordsBeforeRoots(arguments));
    std::vector<Word> roots(operands.begin(), std::find_if(operands.begin(), operands.end(), endsRoots));
    if (roots.empty()) roots.emplace_back().text = cwd;
    listFound(roots, arguments, cwd, effects);
    if (!findChanges(arguments)) return;
    const bool wholeTree = !holdsAny(arguments, findTests);
    for (const Word& root : roots) {
        if (wholeTree)
            effects.targetWord(root, cwd, linksOf(root), Extent::removed);
        else
            targetTestedTree(root, cwd, effects);
    }
}

bool findActs(Words arguments) {
    return holdsAny(arguments, findRuns) || holdsAny(arguments, findDeletes);
}

bool findChanges(Words arguments) {
    const auto endsRun = [](const Word& word) { return word.text == ";" || word.text == "+"; };
    for (auto word = arguments.begin(); word != arguments.end(); ++word) {
        if (word->text == "-delete") return true;
        if (!isIn(findRuns, word->text)) continue;
        const auto end = std::find_if(word + 1, arguments.end(), endsRun);
        if (!commandOnlyReads({word + 1, end})) return true;
        if (end == arguments.end()) return false;
        word = end;
    }
    return false;
}

} // namespace tidewrack::shell
