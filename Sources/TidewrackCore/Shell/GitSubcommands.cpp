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

// What a subcommand leaves as it is: the work tree, except for files that it is told to write; git's own store, but for
// objects that are added.
enum class Leaves { tree, store, both };

struct Subcommand {
    std::string_view name;
    Leaves leaves;
};

// Sorted by name, for the search.
constexpr Subcommand subcommands[] = {{"add", Leaves::tree},
                                      {"annotate", Leaves::both},
                                      {"archive", Leaves::both},
                                      {"blame", Leaves::both},
                                      {"branch", Leaves::tree},
                                      {"bundle", Leaves::both},
                                      {"cat-file", Leaves::both},
                                      {"check-attr", Leaves::both},
                                      {"check-ignore", Leaves::both},
                                      {"check-mailmap", Leaves::store},
                                      {"check-ref-format", Leaves::store},
                                      {"cherry", Leaves::both},
                                      {"clean", Leaves::store},
                                      {"clone", Leaves::both},
                                      {"column", Leaves::store},
                                      {"commit", Leaves::tree},
                                      {"config", Leaves::tree},
                                      {"count-objects", Leaves::both},
                                      {"describe", Leaves::both},
                                      {"diff", Leaves::both},
                                      {"diff-files", Leaves::both},
                                      {"diff-index", Leaves::both},
                                      {"diff-tree", Leaves::both},
                                      {"difftool", Leaves::store},
                                      {"fast-export", Leaves::store},
                                      {"fetch", Leaves::tree},
                                      {"for-each-ref", Leaves::both},
                                      {"format-patch", Leaves::both},
                                      {"fsck", Leaves::both},
                                      {"gc", Leaves::tree},
                                      {"grep", Leaves::both},
                                      {"hash-object", Leaves::both},
                                      {"help", Leaves::both},
                                      {"init", Leaves::both},
                                      {"log", Leaves::both},
                                      {"ls-files", Leaves::both},
                                      {"ls-remote", Leaves::both},
                                      {"ls-tree", Leaves::both},
                                      {"maintenance", Leaves::tree},
                                      {"merge-base", Leaves::both},
                                      {"merge-tree", Leaves::store},
                                      {"name-rev", Leaves::both},
                                      {"notes", Leaves::tree},
                                      {"patch-id", Leaves::store},
                                      {"prune", Leaves::tree},
                                      {"push", Leaves::tree},
                                      {"range-diff", Leaves::both},
                                      {"reflog", Leaves::tree},
                                      {"remote", Leaves::tree},
                                      {"repack", Leaves::tree},
                                      {"request-pull", Leaves::both},
                                      {"rev-list", Leaves::both},
                                      {"rev-parse", Leaves::both},
                                      {"shortlog", Leaves::both},
                                      {"show", Leaves::both},
                                      {"show-branch", Leaves::both},
                                      {"show-ref", Leaves::both},
                                      {"status", Leaves::both},
                                      {"symbolic-ref", Leaves::tree},
                                      {"tag", Leaves::tree},
                                      {"update-index", Leaves::tree},
                                      {"update-ref", Leaves::tree},
                                      {"var", Leaves::both},
                                      {"verify-commit", Leaves::both},
                                      {"verify-pack", Leaves::store},
                                      {"verify-tag", Leaves::store},
                                      {"version", Leaves::both},
                                      {"whatchanged", Leaves::both},
                                      {"write-tree", Leaves::both}};

static_assert(isSortedByName(subcommands));
constexpr NameIndex<Subcommand> subcommandIndex(subcommands);

bool leaves(std::string_view subcommand, Leaves which) {
    const Subcommand* found = subcommandIndex.find(subcommand);
    return found != nullptr && (found->leaves == which || found->leaves == Leaves::both);
}

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
    if (subcommand == "difftool") return hasAny(arguments, {"--tool-help", "-h"});
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
    return !leaves(subcommand, Leaves::tree) && !isIn(checkouts, subcommand) && !isIn(sometimesChanging, subcommand) &&
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
    if (leaves(subcommand, Leaves::store) || hasAny(arguments, {"--help", "--dry-run"})) return true;
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
