#include "Shell/GitRules.hpp"

#include "Shell/Budget.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <array>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

// Global options whose value is a word of its own.
constexpr std::array valueOptions = {"-c"sv, "--git-dir"sv, "--work-tree"sv, "--namespace"sv};

constexpr std::array stashTriggers = {"push"sv, "save"sv, "-u"sv, "--include-untracked"sv, "--all"sv, "-a"sv};

constexpr std::array checkouts = {"checkout"sv, "restore"sv, "switch"sv};
constexpr std::array sometimesChanging = {"reset"sv, "stash"sv, "clean"sv};
constexpr std::array alwaysChanging = {"rm"sv, "mv"sv, "apply"sv, "merge"sv, "am"sv, "rebase"sv, "pull"sv, "revert"sv};

template <std::size_t size>
bool isIn(const std::array<std::string_view, size>& table, std::string_view text) {
    return std::find(table.begin(), table.end(), text) != table.end();
}

bool isOption(const Word& word) {
    return word.text.starts_with('-');
}

bool hasAny(Words words, std::initializer_list<std::string_view> texts) {
    return std::any_of(words.begin(), words.end(), [&](const Word& word) {
        return std::find(texts.begin(), texts.end(), word.text) != texts.end();
    });
}

// Without "--" git itself decides whether an operand is a branch or a path. One that stands on the disk is
// most likely a path, whose changes git then throws away: that much is unknowable here, not harmless.
void examineUnmarkedPaths(std::string_view subcommand, Words arguments, const std::string& workTree, Effects& effects) {
    bool mayLoseChanges = subcommand == "switch" && hasAny(arguments, {"--discard-changes"});
    const bool indexOnly = hasAny(arguments, {"--staged", "-S"}) && !hasAny(arguments, {"--worktree", "-W"});
    for (const Word& word : arguments) {
        if (isOption(word) || word.text.empty()) continue;
        if (subcommand == "restore" && !indexOnly) mayLoseChanges = true;
        if (subcommand == "checkout" && exists(absolutePath(word.text, workTree))) mayLoseChanges = true;
    }
    if (mayLoseChanges) effects.opaque(workTree);
}

void examineCheckout(std::string_view subcommand, Words arguments, const std::string& workTree, Effects& effects) {
    const auto marker =
        std::find_if(arguments.begin(), arguments.end(), [](const Word& word) { return word.text == "--"; });
    if (marker != arguments.end()) {
        if (marker + 1 == arguments.end()) return effects.trackedFiles(workTree);
        for (auto path = marker + 1; path != arguments.end(); ++path) {
            if (effects.full()) return effects.opaque(workTree);
            effects.target(absolutePath(path->text, workTree), workTree);
        }
    } else if (hasAny(arguments, {"-f", "--force", "."})) {
        effects.trackedFiles(workTree);
    } else {
        examineUnmarkedPaths(subcommand, arguments, workTree, effects);
    }
}

bool changesWorkTree(std::string_view subcommand, Words arguments) {
    if (subcommand == "reset") return hasAny(arguments, {"--hard", "--merge", "--keep"});
    if (subcommand == "stash") return arguments.empty() || isIn(stashTriggers, arguments.front().text);
    if (subcommand == "clean")
        return std::any_of(arguments.begin(), arguments.end(),
                           [](const Word& word) { return isOption(word) && word.text.find('f') != std::string::npos; });
    return isIn(alwaysChanging, subcommand);
}

// Where the subcommand stands, behind global options.
std::size_t subcommandAt(Words words) {
    std::size_t index = 0;
    while (index < words.size() && isOption(words[index])) {
        const std::string& option = words[index].text;
        index += option == "-C" || isIn(valueOptions, option) ? 2U : 1U;
    }
    return index;
}

} // namespace

void examineGit(Words arguments, const std::string& cwd, Effects& effects) {
    std::string workTree = cwd;
    std::size_t index = 0;
    while (index < arguments.size() && (isOption(arguments[index]) || arguments[index].unknown)) {
        const std::string& option = arguments[index].text;
        const bool hasValue = index + 1 < arguments.size() && (option == "-C" || isIn(valueOptions, option));
        if (hasValue && option == "-C") {
            const Word& folder = arguments[index + 1];
            const Words rest = arguments.subspan(index + 2);
            if (folder.glob && rest.size() > Budget::wordsBehindPattern) return effects.opaque(workTree);
            if (folder.glob) {
                for (const std::string& match : effects.resolve(folder, workTree)) examineGit(rest, match, effects);
                return;
            }
            workTree = absolutePath(folder.text, workTree);
        }
        index += hasValue ? 2U : 1U;
    }
    if (index >= arguments.size()) return;
    const std::string_view subcommand = arguments[index].text;
    const Words rest = arguments.subspan(index + 1);
    if (isIn(checkouts, subcommand)) return examineCheckout(subcommand, rest, workTree, effects);
    if (!changesWorkTree(subcommand, rest)) return;
    const bool takesUntracked = subcommand == "clean" || hasAny(rest, {"-u", "--include-untracked", "-a", "--all"});
    if (takesUntracked)
        effects.target(workTree, workTree, Links::followed, Extent::moved);
    else
        effects.trackedFiles(workTree);
}

bool gitOnlyReads(Words words) {
    const std::size_t index = subcommandAt(words);
    if (index >= words.size() || words[index].unknown) return false;
    const std::string_view subcommand = words[index].text;
    return !isIn(checkouts, subcommand) && !isIn(sometimesChanging, subcommand) && !isIn(alwaysChanging, subcommand);
}

} // namespace tidewrack::shell
