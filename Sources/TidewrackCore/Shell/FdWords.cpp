#include "Shell/FdWords.hpp"

#include "Shell/NameFilter.hpp"
#include "Shell/OptionEffects.hpp"
#include "Shell/Options.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

constexpr std::array fdRuns = {"-x"sv, "-X"sv, "--exec"sv, "--exec-batch"sv};
constexpr std::string_view fdLetters = "dEtecSoj";
constexpr std::string_view fdOptions =
    " --max-depth --min-depth --exact-depth --exclude --type --extension --size --color "
    "--owner --threads --changed-within --changed-before --max-results --and "
    "--ignore-file --path-separator --batch-size --base-directory --search-path --format --newer --older "
    "--change-newer-than --change-older-than ";

// Regular expressions that match in every name.
constexpr std::array allNames = {""sv, "."sv, ".*"sv, "^"sv, "$"sv, "^.*"sv, "^.*$"sv, ".+"sv, "^."sv};

// Whether an option of fd's that doesn't name extensions leaves out files that are neither hidden nor ignored. Of a
// cluster without a value nothing is left but letters that don't; -1 ends the search.
bool leavesOut(std::string_view option, std::string_view value) {
    constexpr std::array harmless = {"-d"sv,
                                     "-c"sv,
                                     "-j"sv,
                                     "-e"sv,
                                     "--max-depth"sv,
                                     "--color"sv,
                                     "--threads"sv,
                                     "--extension"sv,
                                     "--search-path"sv,
                                     "--base-directory"sv,
                                     "--hidden"sv,
                                     "--no-ignore"sv,
                                     "--no-ignore-vcs"sv,
                                     "--unrestricted"sv,
                                     "--absolute-path"sv,
                                     "--full-path"sv,
                                     "--glob"sv,
                                     "--regex"sv,
                                     "--fixed-strings"sv,
                                     "--ignore-case"sv,
                                     "--case-sensitive"sv,
                                     "--follow"sv,
                                     "--print0"sv};
    if (option == "-t"sv || option == "--type"sv)
        return value != "f"sv && value != "file"sv && value != "d"sv && value != "directory"sv;
    return !option.empty() && !isIn(harmless, option);
}

// A shell's pattern for all names that hold what the regular expression matches; none where it is not that simple.
std::optional<std::string> patternFor(std::string_view expression) {
    constexpr std::string_view signs = "*+?()[]{}|^$";
    std::string pattern = expression.starts_with('^') ? "" : "*";
    if (expression.starts_with('^')) expression.remove_prefix(1);
    const bool isEnd = expression.ends_with('$') && !expression.ends_with("\\$");
    if (isEnd) expression.remove_suffix(1);
    for (std::size_t at = 0; at < expression.size(); ++at) {
        const char c = expression[at];
        const bool isEscape = c == '\\' && at + 1 < expression.size();
        if (isEscape && (signs.find(expression[at + 1]) != signs.npos || expression[at + 1] == '.'))
            pattern.append({c, expression[++at]});
        else if (c == '\\' || signs.find(c) != signs.npos)
            return std::nullopt;
        else if (c == '.' && expression.substr(at + 1).starts_with('*'))
            pattern += expression[++at];
        else
            pattern += c == '.' ? '?' : c;
    }
    return isEnd ? pattern : pattern + '*';
}

std::string escaped(std::string_view text) {
    std::string pattern;
    for (const char c : text) pattern.append({'\\', c});
    return pattern;
}

} // namespace

std::size_t fdCommandAt(Words arguments) {
    const auto runs = [](const Word& word) { return isIn(fdRuns, word.text); };
    return static_cast<std::size_t>(std::find_if(arguments.begin(), arguments.end(), runs) - arguments.begin());
}

FdWords::FdWords(Words arguments) {
    const Words own = arguments.first(fdCommandAt(arguments));
    for (std::size_t index = 0; index < own.size(); ++index) {
        if (own[index].text == "--"sv) {
            for (const Word& word : own.subspan(index + 1)) operands.push_back(&word);
            return;
        }
        if (isOption(own[index]))
            index += takeOption(own, index);
        else
            operands.push_back(&own[index]);
    }
}

// How many words behind the option are its own.
std::size_t FdWords::takeOption(Words arguments, std::size_t index) {
    const std::string& text = arguments[index].text;
    std::string option = text.substr(0, text.find('='));
    std::optional<std::string> value;
    bool takes = listsWord(fdOptions, option);
    if (option.size() < text.size()) value = text.substr(option.size() + 1);
    if (isShortCluster(arguments[index])) {
        const std::size_t at = text.find_first_of(fdLetters, 1);
        takes = at != std::string::npos;
        flags += text.substr(1, at == std::string::npos ? at : at - 1);
        option = takes ? std::string{'-', text[at]} : std::string();
        isLimited = isLimited || flags.find_first_of("1q") != std::string::npos;
        value = takes && at + 1 < text.size() ? std::optional(text.substr(at + 1)) : std::nullopt;
    }
    const bool isNext = takes && !value && index + 1 < arguments.size();
    if (isNext) value = arguments[index + 1].text;
    isLimited = isLimited || leavesOut(option, value.value_or(""));
    if (option == "--glob"sv) flags += 'g';
    if (option == "--full-path"sv) flags += 'p';
    if (option == "--fixed-strings"sv) flags += 'F';
    if (option == "--ignore-case"sv) flags += 'i';
    if (value && (option == "-e"sv || option == "--extension"sv)) extensions.push_back(*value);
    if (value && (option == "-d"sv || option == "--max-depth"sv)) depth = *value;
    if (value && (option == "--search-path"sv || option == "--base-directory"sv)) {
        Word word = arguments[isNext ? index + 1 : index];
        word.text = *value;
        if (option == "--search-path"sv)
            roots.push_back(std::move(word));
        else
            folder = std::move(word);
    }
    return isNext ? 1 : 0;
}

bool FdWords::takesAll() const {
    if (isLimited || !extensions.empty()) return false;
    if (operands.empty()) return true;
    const Word& pattern = *operands.front();
    if (pattern.unknown) return false;
    const bool isGlob = flags.find('g') != std::string::npos;
    if (flags.find('F') != std::string::npos) return pattern.text.empty();
    return isGlob ? pattern.text == "*"sv : isIn(allNames, pattern.text);
}

std::string folderOf(const FdWords& all, const std::string& cwd) {
    return all.folder && !all.folder->unknown ? absolutePath(all.folder->text, cwd) : cwd;
}

std::vector<Word> rootsOfFd(const FdWords& all, const std::string& cwd) {
    std::vector<Word> roots = all.roots;
    for (std::size_t index = 1; index < all.operands.size(); ++index) roots.push_back(*all.operands[index]);
    if (roots.empty()) roots.emplace_back().text = cwd;
    return roots;
}

FoundFiles testsOfFd(const FdWords& all, Words arguments) {
    FoundFiles tests;
    const auto has = [&](char letter) { return all.flags.find(letter) != std::string::npos; };
    for (std::string_view extension : all.extensions) {
        if (extension.starts_with('.')) extension.remove_prefix(1);
        tests.endings.push_back("*." + escaped(extension));
    }
    if (!all.depth.empty()) tests.depth = std::size_t(std::strtoul(all.depth.c_str(), nullptr, 10));
    const auto findsHidden = [](const Word& word) {
        return word.text == "--hidden"sv || word.text == "--unrestricted"sv ||
               (isShortCluster(word) && word.text.find_first_of("Hu") != std::string::npos);
    };
    tests.sparesGit = std::none_of(arguments.begin(), arguments.end(), findsHidden);
    if (all.operands.empty() || all.operands.front()->unknown || has('p')) return tests;
    const std::string& text = all.operands.front()->text;
    // A brace in a pattern means something else to fd.
    std::optional<std::string> pattern;
    if (has('F'))
        pattern = '*' + escaped(text) + '*';
    else if (!has('g'))
        pattern = patternFor(text);
    else if (text.find_first_of("{\\") == std::string::npos)
        pattern = text;
    if (!pattern || text.empty()) return tests;
    const bool isCapital = std::any_of(text.begin(), text.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
    (isCapital && !has('i') ? tests.names : tests.anyCaseNames).push_back(*pattern);
    return tests;
}

} // namespace tidewrack::shell
