#include "Shell/GitRules.hpp"

#include "Shell/Budget.hpp"
#include "Shell/NameFilter.hpp"
#include "Shell/Options.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <array>
#include <optional>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

// Global options whose value is a word of its own.
constexpr std::array valueOptions = {"-c"sv, "--git-dir"sv, "--work-tree"sv, "--namespace"sv};

constexpr std::array checkouts = {"checkout"sv, "restore"sv, "switch"sv};
constexpr std::array sometimesChanging = {"reset"sv, "stash"sv, "clean"sv};
constexpr std::array alwaysChanging = {"rm"sv, "mv"sv, "apply"sv, "merge"sv, "am"sv, "rebase"sv, "pull"sv, "revert"sv};

// Subcommands that leave the work tree as it is, except for files that they are told to write.
constexpr std::array leavingTree = {
    "add"sv,       "annotate"sv,      "archive"sv,      "blame"sv,        "branch"sv,       "bundle"sv,
    "cat-file"sv,  "check-attr"sv,    "check-ignore"sv, "cherry"sv,       "clone"sv,        "commit"sv,
    "config"sv,    "count-objects"sv, "describe"sv,     "diff"sv,         "diff-files"sv,   "diff-index"sv,
    "diff-tree"sv, "difftool"sv,      "fetch"sv,        "for-each-ref"sv, "format-patch"sv, "fsck"sv,
    "gc"sv,        "grep"sv,          "hash-object"sv,  "help"sv,         "init"sv,         "log"sv,
    "ls-files"sv,  "ls-remote"sv,     "ls-tree"sv,      "maintenance"sv,  "merge-base"sv,   "name-rev"sv,
    "notes"sv,     "prune"sv,         "push"sv,         "range-diff"sv,   "reflog"sv,       "remote"sv,
    "repack"sv,    "rev-list"sv,      "rev-parse"sv,    "shortlog"sv,     "show"sv,         "show-branch"sv,
    "show-ref"sv,  "status"sv,        "symbolic-ref"sv, "tag"sv,          "update-index"sv, "update-ref"sv,
    "var"sv,       "verify-commit"sv, "version"sv,      "whatchanged"sv,  "write-tree"sv};

bool hasAny(Words words, std::initializer_list<std::string_view> texts) {
    return std::any_of(words.begin(), words.end(), [&](const Word& word) {
        return std::find(texts.begin(), texts.end(), word.text) != texts.end();
    });
}

// Whether one of the words before "--" is this option, its long name perhaps cut short as git allows, or the letter in
// a cluster.
bool hasOption(Words words, std::string_view option, std::size_t shortest, char letter = 0) {
    const auto end = std::find_if(words.begin(), words.end(), [](const Word& word) { return word.text == "--"sv; });
    return std::any_of(words.begin(), end, [&](const Word& word) {
        const std::string_view text = std::string_view(word.text).substr(0, word.text.find('='));
        if (text.starts_with("--")) return text.size() >= shortest && option.starts_with(text);
        return letter != 0 && isOption(word) && text.find(letter, 1) != text.npos;
    });
}

// Whether git reads an operand as a pattern, or from the top of the work tree: '*.txt', :/, :(exclude)x.
bool isPathspec(const Word& word) {
    return word.text.starts_with(':') || (!word.glob && word.text.find_first_of("*?[") != std::string::npos);
}

// The work tree's topmost folder, of which a command changes more than what lies below the folder where it runs. A
// project is saved whole whatever is named of it.
std::string topOf(const std::string& folder, Effects& effects) {
    if (effects.isInProject(folder)) return folder;
    const std::string& top = effects.gitTopLevel(folder);
    return top.empty() ? folder : top;
}

// What git does to the tree where no rule says it: an alias may do anything, and so may some subcommands.
bool mayChangeTree(std::string_view subcommand, Words arguments) {
    if (subcommand == "worktree" || subcommand == "bisect" || subcommand == "submodule" || subcommand == "stash") {
        constexpr std::array reading = {"list"sv, "log"sv, "show"sv, "status"sv, "view"sv, "create"sv};
        const bool reads = !arguments.empty() && isIn(reading, arguments.front().text);
        return !reads && !(subcommand == "worktree" && hasAny(arguments, {"add", "lock", "unlock"}));
    }
    // Without -f git's configuration says whether it removes anything.
    if (subcommand == "clean") return !hasOption(arguments, "--dry-run", 3, 'n');
    return !isIn(leavingTree, subcommand) && !isIn(checkouts, subcommand) && !isIn(sometimesChanging, subcommand) &&
           !subcommand.starts_with('-');
}

// Without "--" git itself decides whether an operand is a branch or a path. One that is on the disk is
// most likely a path, whose changes git then throws away: that much is unknowable here, not harmless.
void examineUnmarkedPaths(std::string_view subcommand, Words arguments, const std::string& workTree, Effects& effects) {
    bool mayLoseChanges = subcommand == "switch" && hasAny(arguments, {"--discard-changes"});
    const bool indexOnly = hasAny(arguments, {"--staged", "-S"}) && !hasAny(arguments, {"--worktree", "-W"});
    for (const Word& word : arguments) {
        if (isOption(word) || word.text.empty()) continue;
        if (subcommand == "restore" && !indexOnly) mayLoseChanges = true;
        if (subcommand == "checkout" && (word.glob || effects.mayExist(word.text, workTree))) mayLoseChanges = true;
        if (mayLoseChanges) break;
    }
    if (mayLoseChanges) effects.opaque(workTree);
}

void examineCheckout(std::string_view subcommand, Words arguments, const std::string& workTree, Effects& effects) {
    const auto marker =
        std::find_if(arguments.begin(), arguments.end(), [](const Word& word) { return word.text == "--"; });
    if (marker != arguments.end()) {
        if (marker + 1 == arguments.end() || std::any_of(marker + 1, arguments.end(), isPathspec))
            return effects.trackedFiles(topOf(workTree, effects));
        for (auto path = marker + 1; path != arguments.end(); ++path) {
            if (effects.full()) return effects.opaque(workTree);
            effects.target(absolutePath(path->text, workTree), workTree);
        }
    } else if (hasAny(arguments, {"."}) || hasOption(arguments, "--pathspec-from-file", 5) ||
               std::any_of(arguments.begin(), arguments.end(), isPathspec) ||
               hasOption(arguments, "--force", 4, subcommand == "restore" ? '\0' : 'f')) {
        effects.trackedFiles(topOf(workTree, effects));
    } else {
        examineUnmarkedPaths(subcommand, arguments, workTree, effects);
    }
}

bool isStashing(Words arguments) {
    return arguments.empty() || isOption(arguments.front()) || arguments.front().text == "push"sv ||
           arguments.front().text == "save"sv;
}

bool changesWorkTree(std::string_view subcommand, Words arguments) {
    if (subcommand == "reset")
        return hasOption(arguments, "--hard", 3) || hasOption(arguments, "--merge", 3) ||
               hasOption(arguments, "--keep", 3);
    if (subcommand == "stash") return isStashing(arguments);
    if (subcommand == "clean")
        return !hasOption(arguments, "--dry-run", 3, 'n') &&
               (hasOption(arguments, "--force", 3, 'f') || hasOption(arguments, "--interactive", 3, 'i'));
    return isIn(alwaysChanging, subcommand);
}

bool takesUntracked(std::string_view subcommand, Words arguments) {
    return subcommand == "clean" || (subcommand == "stash" && (hasOption(arguments, "--include-untracked", 4, 'u') ||
                                                               hasOption(arguments, "--all", 4, 'a')));
}

// --output FILE, as diff, log and archive take it.
void examineOutput(Words arguments, const std::string& folder, Effects& effects) {
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        if (!arguments[index].text.starts_with("--output")) continue;
        const std::size_t equals = arguments[index].text.find('=');
        if (equals == std::string::npos && index + 1 == arguments.size()) return;
        Word file = equals == std::string::npos ? arguments[index + 1] : arguments[index];
        if (equals != std::string::npos) file.text.erase(0, equals + 1);
        effects.write(file, folder);
    }
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
    std::optional<Word> otherTree;
    bool namesStore = false;
    bool forced = false; // by a setting: git clean needs no -f
    std::size_t index = 0;
    while (index < arguments.size() && (isOption(arguments[index]) || arguments[index].unknown)) {
        const std::string& option = arguments[index].text;
        const bool hasValue = index + 1 < arguments.size() && (option == "-C" || isIn(valueOptions, option));
        if (hasValue && option == "-C") {
            const Word& folder = arguments[index + 1];
            const Words rest = arguments.subspan(index + 2);
            if (folder.glob && rest.size() > Budget::wordsBehindPattern) return effects.opaque(workTree);
            if (folder.glob) {
                for (const std::string& match : effects.resolve(folder, workTree))
                    if (!effects.isProtected(match, Links::followed)) examineGit(rest, match, effects);
                return;
            }
            if (workTree.size() > Budget::folderLength || effects.skips(folder)) return effects.opaque(cwd);
            workTree = absolutePath(folder.text, workTree);
        }
        forced = forced || (option == "-c"sv && hasValue && arguments[index + 1].text == "clean.requireForce=false"sv);
        namesStore = namesStore || option.starts_with("--git-dir");
        if (option == "--work-tree"sv && hasValue) otherTree = arguments[index + 1];
        if (option.starts_with("--work-tree=")) {
            otherTree = arguments[index];
            otherTree->text.erase(0, option.find('=') + 1);
        }
        index += hasValue ? 2U : 1U;
    }
    if (index >= arguments.size()) return;
    if (otherTree && (otherTree->unknown || otherTree->glob)) return effects.opaque(workTree);
    if (otherTree) workTree = absolutePath(otherTree->text, workTree);
    const std::string_view subcommand = arguments[index].text;
    const Words rest = arguments.subspan(index + 1);
    examineOutput(rest, workTree, effects);
    const bool cleans = subcommand == "clean" && forced && mayChangeTree(subcommand, rest);
    const bool changes = cleans || isIn(checkouts, subcommand) || changesWorkTree(subcommand, rest);
    if (changes && !otherTree && !namesStore && effects.isProtectedWithoutGit(workTree)) return;
    if (isIn(checkouts, subcommand)) return examineCheckout(subcommand, rest, workTree, effects);
    if (subcommand == "init" || subcommand == "clone") effects.noteNewGitStore();
    if (!changes) {
        if (mayChangeTree(subcommand, rest)) effects.suspect(workTree);
        return;
    }
    if (subcommand == "clean")
        effects.target(workTree, workTree, Links::followed, Extent::moved);
    else if (takesUntracked(subcommand, rest))
        effects.target(topOf(workTree, effects), workTree, Links::followed, Extent::moved);
    else
        effects.trackedFiles(topOf(workTree, effects));
}

bool gitOnlyReads(Words words) {
    const std::size_t index = subcommandAt(words);
    if (index >= words.size() || words[index].unknown) return false;
    const std::string_view subcommand = words[index].text;
    return !isIn(checkouts, subcommand) && !isIn(sometimesChanging, subcommand) && !isIn(alwaysChanging, subcommand) &&
           !mayChangeTree(subcommand, words.subspan(index + 1));
}

} // namespace tidewrack::shell
