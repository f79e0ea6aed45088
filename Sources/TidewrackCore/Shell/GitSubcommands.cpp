#include "Shell/GitSubcommands.hpp"

#include "Shell/NameFilter.hpp"
#include "Shell/Options.hpp"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>
#include <string>
#include <utility>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

constexpr std::array checkouts = {"checkout"sv, "restore"sv, "switch"sv};
constexpr std::array sometimesChanging = {"reset"sv, "stash"sv, "clean"sv};
constexpr std::array alwaysChanging = {"rm"sv, "mv"sv, "apply"sv, "merge"sv, "am"sv, "rebase"sv, "pull"sv, "revert"sv};

// Subcommands that leave the work tree as it is, except for files that they are told to write.
constexpr std::array leavingTree = {
    "add"sv,         "annotate"sv,      "archive"sv,       "blame"sv,        "branch"sv,       "bundle"sv,
    "cat-file"sv,    "check-attr"sv,    "check-ignore"sv,  "cherry"sv,       "clone"sv,        "commit"sv,
    "config"sv,      "count-objects"sv, "describe"sv,      "diff"sv,         "diff-files"sv,   "diff-index"sv,
    "diff-tree"sv,   "difftool"sv,      "fetch"sv,         "for-each-ref"sv, "format-patch"sv, "fsck"sv,
    "gc"sv,          "grep"sv,          "hash-object"sv,   "help"sv,         "init"sv,         "log"sv,
    "ls-files"sv,    "ls-remote"sv,     "ls-tree"sv,       "maintenance"sv,  "merge-base"sv,   "name-rev"sv,
    "notes"sv,       "prune"sv,         "push"sv,          "range-diff"sv,   "reflog"sv,       "remote"sv,
    "repack"sv,      "request-pull"sv,  "rev-list"sv,      "rev-parse"sv,    "shortlog"sv,     "show"sv,
    "show-branch"sv, "show-ref"sv,      "status"sv,        "symbolic-ref"sv, "tag"sv,          "update-index"sv,
    "update-ref"sv,  "var"sv,           "verify-commit"sv, "version"sv,      "whatchanged"sv,  "write-tree"sv};

// Those that leave git's own store as it is, but for objects that are added.
constexpr std::array leavingStore = {"annotate"sv,     "archive"sv,
                                     "blame"sv,        "bundle"sv,
                                     "cat-file"sv,     "check-attr"sv,
                                     "check-ignore"sv, "check-mailmap"sv,
                                     "request-pull"sv, "verify-pack"sv,
                                     "cherry"sv,       "clean"sv,
                                     "clone"sv,        "check-ref-format"sv,
                                     "column"sv,       "count-objects"sv,
                                     "describe"sv,     "diff"sv,
                                     "diff-files"sv,   "diff-index"sv,
                                     "diff-tree"sv,    "difftool"sv,
                                     "fast-export"sv,  "for-each-ref"sv,
                                     "format-patch"sv, "fsck"sv,
                                     "grep"sv,         "hash-object"sv,
                                     "help"sv,         "init"sv,
                                     "log"sv,          "ls-files"sv,
                                     "ls-remote"sv,    "ls-tree"sv,
                                     "merge-base"sv,   "merge-tree"sv,
                                     "name-rev"sv,     "patch-id"sv,
                                     "range-diff"sv,   "rev-list"sv,
                                     "rev-parse"sv,    "shortlog"sv,
                                     "show"sv,         "show-branch"sv,
                                     "show-ref"sv,     "status"sv,
                                     "var"sv,          "verify-commit"sv,
                                     "verify-tag"sv,   "version"sv,
                                     "whatchanged"sv,  "write-tree"sv};

// Subcommands with verbs of their own, and those that leave the store as it is; "-": also without a verb.
struct Verbs {
    std::string_view subcommand;
    std::string_view reading; // each between blanks
};
constexpr Verbs verbs[] = {
    {"bisect", " - log view visualize "}, {"notes", " - list show "}, {"remote", " - -v --verbose show get-url "},
    {"sparse-checkout", " - list "},      {"stash", " list show "},   {"submodule", " - status summary "},
    {"worktree", " - list lock unlock "},
};

// The letters of the options of "git clean": behind -e stands a pattern.
std::string cleanFlags(Words arguments) {
    std::string flags;
    for (std::size_t index = 0; index < arguments.size() && arguments[index].text != "--"; ++index) {
        if (!isShortCluster(arguments[index])) continue;
        const std::string_view text = arguments[index].text;
        const std::size_t pattern = std::min(text.find('e'), text.size());
        flags += text.substr(1, pattern - 1);
        if (pattern + 1 == text.size()) ++index;
    }
    return flags;
}

} // namespace

bool hasAny(Words words, std::initializer_list<std::string_view> texts) {
    return std::any_of(words.begin(), words.end(), [&](const Word& word) {
        return std::find(texts.begin(), texts.end(), word.text) != texts.end();
    });
}

bool hasOption(Words words, std::string_view option, std::size_t shortest, char letter) {
    const auto end = std::find_if(words.begin(), words.end(), [](const Word& word) { return word.text == "--"sv; });
    return std::any_of(words.begin(), end, [&](const Word& word) {
        const std::string_view text = std::string_view(word.text).substr(0, word.text.find('='));
        if (text.starts_with("--")) return text.size() >= shortest && option.starts_with(text);
        return letter != 0 && isOption(word) && text.find(letter, 1) != text.npos;
    });
}

namespace {

bool isDryClean(Words arguments) {
    return hasOption(arguments, "--dry-run", 3) || cleanFlags(arguments).find('n') != std::string::npos;
}

// Whether an option says that the index alone changes, or nothing.
bool sparesTree(std::string_view subcommand, Words arguments) {
    if (subcommand == "rm") return hasOption(arguments, "--cached", 4);
    return subcommand == "apply" && !hasOption(arguments, "--apply", 3) &&
           hasAny(arguments, {"--cached", "--check", "--stat", "--numstat", "--summary"});
}

bool isStashing(Words arguments) {
    return arguments.empty() || isOption(arguments.front()) || arguments.front().text == "push"sv ||
           arguments.front().text == "save"sv;
}

// Whether "git branch" or "git tag" only lists.
bool onlyLists(Words arguments) {
    for (const auto& [name, letter] : {std::pair("--delete"sv, 'd'),
                                       {"--delete"sv, 'D'},
                                       {"--move"sv, 'm'},
                                       {"--move"sv, 'M'},
                                       {"--copy"sv, 'c'},
                                       {"--copy"sv, 'C'},
                                       {"--force"sv, 'f'}})
        if (hasOption(arguments, name, 4, letter)) return false;
    if (hasAny(arguments, {"--list", "-l", "--contains", "--no-contains", "--merged", "--no-merged", "--points-at"}))
        return true;
    return std::all_of(arguments.begin(), arguments.end(), isOption) &&
           !hasAny(arguments, {"--unset-upstream", "--edit-description"});
}

} // namespace

bool isCheckout(std::string_view subcommand) {
    return isIn(checkouts, subcommand);
}

bool mayChangeTree(std::string_view subcommand, Words arguments) {
    if (sparesTree(subcommand, arguments)) return false;
    if (subcommand == "worktree" || subcommand == "bisect" || subcommand == "submodule" || subcommand == "stash" ||
        subcommand == "sparse-checkout" || subcommand == "lfs") {
        constexpr std::array reading = {"list"sv,   "log"sv,      "show"sv, "status"sv, "view"sv,
                                        "create"sv, "ls-files"sv, "env"sv,  "locks"sv};
        const bool reads = !arguments.empty() && isIn(reading, arguments.front().text);
        return !reads && !(subcommand == "worktree" && hasAny(arguments, {"add", "lock", "unlock"}));
    }
    // Without -f git's configuration says whether it removes anything.
    if (subcommand == "clean") return !isDryClean(arguments);
    return !isIn(leavingTree, subcommand) && !isIn(checkouts, subcommand) && !isIn(sometimesChanging, subcommand) &&
           !subcommand.starts_with('-');
}

bool changesWorkTree(std::string_view subcommand, Words arguments) {
    if (subcommand == "reset")
        return hasOption(arguments, "--hard", 3) || hasOption(arguments, "--merge", 3) ||
               hasOption(arguments, "--keep", 3);
    if (subcommand == "stash") return isStashing(arguments);
    if (subcommand == "clean")
        return !isDryClean(arguments) &&
               (hasOption(arguments, "--force", 3, 'f') || hasOption(arguments, "--interactive", 3, 'i'));
    return isIn(alwaysChanging, subcommand) && !sparesTree(subcommand, arguments);
}

bool takesUntracked(std::string_view subcommand, Words arguments) {
    return subcommand == "clean" || (subcommand == "stash" && (hasOption(arguments, "--include-untracked", 4, 'u') ||
                                                               hasOption(arguments, "--all", 4, 'a')));
}

bool leavesStore(std::string_view subcommand, Words arguments) {
    if (isIn(leavingStore, subcommand) || hasAny(arguments, {"--help", "--dry-run"})) return true;
    const std::string_view first = arguments.empty() ? "-"sv : std::string_view(arguments.front().text);
    for (const Verbs& each : verbs)
        if (each.subcommand == subcommand) return listsWord(each.reading, first);
    if (subcommand == "branch" || subcommand == "tag") return onlyLists(arguments);
    if (subcommand == "reflog") return first != "expire"sv && first != "delete"sv;
    const auto operands = std::count_if(arguments.begin(), arguments.end(), [](const Word& w) { return !isOption(w); });
    if (subcommand == "symbolic-ref") return operands < 2 && !hasOption(arguments, "--delete", 3, 'd');
    if (subcommand == "config")
        return hasOption(arguments, "--list", 4, 'l') || first.starts_with("--get") || first == "get"sv ||
               first == "list"sv || (operands == 1 && arguments.size() == 1);
    return false;
}

bool losesObjects(std::string_view subcommand, Words arguments) {
    constexpr std::array losing = {"gc"sv, "prune"sv, "repack"sv, "filter-branch"sv, "filter-repo"sv, "maintenance"sv};
    return isIn(losing, subcommand) || (subcommand == "reflog" && !leavesStore(subcommand, arguments));
}

bool onlyReadsTree(std::string_view subcommand, Words arguments) {
    return !isIn(checkouts, subcommand) && !isIn(sometimesChanging, subcommand) && !isIn(alwaysChanging, subcommand) &&
           !mayChangeTree(subcommand, arguments);
}

} // namespace tidewrack::shell
