#include "Shell/GitRules.hpp"

#include "Shell/Budget.hpp"
#include "Shell/NameFilter.hpp"
#include "Shell/Options.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

// Global options whose value is a word of its own.
constexpr std::array valueOptions = {"-c"sv, "--git-dir"sv, "--work-tree"sv, "--namespace"sv, "--config-env"sv};

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

bool isDryClean(Words arguments) {
    return hasOption(arguments, "--dry-run", 3) || cleanFlags(arguments).find('n') != std::string::npos;
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

// Whether an option says that the index alone changes, or nothing.
bool sparesTree(std::string_view subcommand, Words arguments) {
    if (subcommand == "rm") return hasOption(arguments, "--cached", 4);
    return subcommand == "apply" && !hasOption(arguments, "--apply", 3) &&
           hasAny(arguments, {"--cached", "--check", "--stat", "--numstat", "--summary"});
}

// What git does to the tree where no rule says it: an alias may do anything, and so may some subcommands.
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

// What stands before the subcommand.
struct GitCall {
    std::string folder;      // in which git runs
    std::string workTree;    // the folder, or what --work-tree names
    std::string store;       // that --git-dir names, absolute
    bool namesStore = false; // perhaps by a word that is not known
    bool namesTree = false;
    bool forced = false; // by a setting: git clean needs no -f
    std::size_t subcommand = 0;

    // Whether git finds its store from the folder, and the work tree from that.
    [[nodiscard]] bool isPlain() const { return !namesStore && !namesTree; }
};

// Without "--" git itself decides whether an operand is a branch or a path. One that is on the disk is
// most likely a path, whose changes git then throws away: that much is unknowable here, not harmless.
void examineUnmarkedPaths(std::string_view subcommand, Words arguments, const GitCall& call, Effects& effects) {
    const std::string& workTree = call.workTree;
    const bool discards = subcommand == "switch" && hasAny(arguments, {"--discard-changes"});
    const bool indexOnly = hasAny(arguments, {"--staged", "-S"}) && !hasOption(arguments, "--worktree", 3, 'W');
    const bool hasOptions = std::any_of(arguments.begin(), arguments.end(), isOption);
    if (discards) effects.takeFromTree({workTree, GitTakes::Which::changed, true, {}, call.isPlain()});
    bool mayLoseChanges = discards;
    for (const Word& word : arguments) {
        if (isOption(word) || word.text.empty()) continue;
        const bool restores = subcommand == "restore" && !indexOnly;
        const bool isPath =
            restores || (subcommand == "checkout" && (word.glob || effects.mayExist(word.text, workTree)));
        if (!isPath) continue;
        mayLoseChanges = true;
        const bool certain = !word.glob && (restores || !hasOptions);
        effects.takeFromTree({word.glob ? workTree : absolutePath(word.text, workTree),
                              GitTakes::Which::changed,
                              false,
                              {},
                              call.isPlain(),
                              certain});
    }
    if (mayLoseChanges) effects.opaque(workTree);
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
        return !isDryClean(arguments) &&
               (hasOption(arguments, "--force", 3, 'f') || hasOption(arguments, "--interactive", 3, 'i'));
    return isIn(alwaysChanging, subcommand) && !sparesTree(subcommand, arguments);
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

// -o FILE, -oFILE
void writeTold(Words arguments, const std::string& folder, Effects& effects) {
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        Word file = arguments[index];
        if (!file.text.starts_with("-o")) continue;
        file.text.erase(0, 2);
        if (file.text.empty() && index + 1 < arguments.size()) file = arguments[index + 1];
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

// Whether refs, index, settings and ref logs stay as they are.
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

// The words of "git clean" with which "git clean -n" tells what it takes; none where they say more than is known here.
std::optional<std::vector<std::string>> cleanWords(Words arguments) {
    std::vector<std::string> words;
    std::vector<std::string> operands;
    bool ended = false;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const Word& word = arguments[index];
        const std::string& text = word.text;
        if (word.unknown || word.glob) return std::nullopt;
        if (ended || !isOption(word)) {
            operands.push_back(text);
        } else if (text == "--"sv) {
            ended = true;
        } else if (text.starts_with("--exclude=") || text == "--force"sv) {
            words.push_back(text);
        } else if (text.starts_with("--")) {
            if (text != "--quiet"sv) return std::nullopt;
        } else {
            for (std::size_t at = 1; at < text.size(); ++at) {
                if (text[at] == 'q') continue; // which tells nothing
                if (std::string_view("dfxXe").find(text[at]) == std::string_view::npos) return std::nullopt;
                words.push_back({'-', text[at]});
                if (text[at] != 'e') continue;
                const bool isNext = at + 1 == text.size();
                if (isNext && (++index == arguments.size() || arguments[index].unknown)) return std::nullopt;
                words.push_back(isNext ? arguments[index].text : text.substr(at + 1));
                break;
            }
        }
    }
    words.emplace_back("--");
    words.insert(words.end(), operands.begin(), operands.end());
    return words;
}

// Reads the options before the subcommand. None where there is nothing more to tell.
std::optional<GitCall> readCall(Words arguments, const std::string& cwd, Effects& effects) {
    GitCall call{cwd, {}, {}};
    std::optional<Word> tree;
    std::optional<Word> store;
    std::size_t& index = call.subcommand;
    while (index < arguments.size() && (isOption(arguments[index]) || arguments[index].unknown)) {
        const std::string& option = arguments[index].text;
        const bool hasValue = index + 1 < arguments.size() && (option == "-C" || isIn(valueOptions, option));
        if (hasValue && option == "-C") {
            const Word& folder = arguments[index + 1];
            const Words rest = arguments.subspan(index + 2);
            if (folder.glob && rest.size() <= Budget::wordsBehindPattern) {
                for (const std::string& match : effects.resolve(folder, call.folder))
                    if (!effects.isProtected(match, Links::followed)) examineGit(rest, match, effects);
                return std::nullopt;
            }
            if (folder.glob) effects.opaque(call.folder);
            if (folder.glob) return std::nullopt;
            if (call.folder.size() > Budget::folderLength || effects.skips(folder)) {
                effects.opaque(cwd);
                return std::nullopt;
            }
            call.folder = absolutePath(folder.text, call.folder);
        }
        const bool isForcing =
            option == "-c"sv && hasValue && arguments[index + 1].text == "clean.requireForce=false"sv;
        call.forced = call.forced || isForcing;
        for (auto* named : {&tree, &store}) {
            const std::string_view name = named == &tree ? "--work-tree"sv : "--git-dir"sv;
            if (option == name && hasValue) *named = arguments[index + 1];
            if (!option.starts_with(name) || option.size() <= name.size() || option[name.size()] != '=') continue;
            *named = arguments[index];
            (*named)->text.erase(0, name.size() + 1);
        }
        call.namesStore = call.namesStore || option.starts_with("--git-dir");
        index += hasValue ? 2U : 1U;
    }
    if (index >= arguments.size()) return std::nullopt;
    call.namesTree = tree.has_value();
    if (tree && (tree->unknown || tree->glob)) {
        effects.opaque(call.folder);
        return std::nullopt;
    }
    call.workTree = tree ? absolutePath(tree->text, call.folder) : call.folder;
    if (store && !store->unknown && !store->glob) call.store = absolutePath(store->text, call.folder);
    return call;
}

void noteGitStore(Words arguments, const GitCall& call, Effects& effects) {
    const Word& subcommand = arguments[call.subcommand];
    const Words rest = arguments.subspan(call.subcommand + 1);
    if (leavesStore(subcommand.text, rest) || (call.namesStore && call.store.empty())) return;
    const bool loses = losesObjects(subcommand.text, rest);
    effects.useGitStore({call.folder, call.store, loses, loses || subcommand.text == "worktree"});
}

// Also in a cluster, but not in a branch's name that is joined to an option: -bmine.
bool hasFlag(Words words, std::string_view option, char letter) {
    if (hasOption(words, option, 5)) return true;
    return std::any_of(words.begin(), words.end(), [&](const Word& word) {
        const std::string_view text = word.text;
        return isShortCluster(word) && text.substr(0, text.find_first_of("bBcC", 1)).find(letter, 1) != text.npos;
    });
}

void examineCheckout(std::string_view subcommand, Words arguments, const GitCall& call, Effects& effects) {
    const std::string& workTree = call.workTree;
    const bool indexOnly = hasAny(arguments, {"--staged", "-S"}) && !hasOption(arguments, "--worktree", 3, 'W');
    const auto takeTree = [&](bool whole, bool all) {
        effects.takeFromTree({workTree, GitTakes::Which::changed, whole, {}, call.isPlain(), all && !indexOnly});
        effects.trackedFiles(topOf(workTree, effects));
    };
    const auto marker =
        std::find_if(arguments.begin(), arguments.end(), [](const Word& word) { return word.text == "--"; });
    const bool isForced = hasOption(arguments, "--force", 4, subcommand == "restore" ? '\0' : 'f');
    // Some of the changes go, or are mixed with those of a branch.
    const bool mayMix = !indexOnly && (hasFlag(arguments, "--patch", 'p') || hasFlag(arguments, "--merge", 'm') ||
                                       hasOption(arguments, "--conflict", 5));
    if (marker != arguments.end()) {
        if (marker + 1 == arguments.end()) return takeTree(true, isForced);
        if (std::any_of(marker + 1, arguments.end(), isPathspec)) return takeTree(true, false);
        for (auto path = marker + 1; path != arguments.end(); ++path) {
            if (effects.full()) return effects.opaque(workTree);
            const std::string taken = absolutePath(path->text, workTree);
            const bool certain = !path->glob && !indexOnly;
            effects.takeFromTree({taken, GitTakes::Which::changed, false, {}, call.isPlain(), certain});
            effects.target(taken, workTree);
        }
    } else if (hasAny(arguments, {"."})) {
        takeTree(false, true);
    } else if (hasOption(arguments, "--pathspec-from-file", 5) ||
               std::any_of(arguments.begin(), arguments.end(), isPathspec) || isForced || mayMix) {
        takeTree(true, isForced);
    } else {
        examineUnmarkedPaths(subcommand, arguments, call, effects);
    }
}

// The linked work tree that a word of "git worktree remove" means: its path, or its name.
std::string linkedWorkTree(const std::string& word, const std::string& folder, Effects& effects) {
    std::string path = absolutePath(word, folder);
    const std::string name = std::string(lastComponent(path));
    if (exists(path) || name.empty()) return path;
    std::string known; // the path of its ".git" file
    if (readFile(joined(effects.gitTopLevel(folder), ".git/worktrees/" + name + "/gitdir"), known) != 0) return path;
    return std::string(parentOf(known.substr(0, known.find('\n'))));
}

// Without -f git removes none in which something would be lost but what it ignores.
void removeWorkTrees(Words operands, const std::string& folder, Effects& effects) {
    const bool isForced = hasOption(operands, "--force", 3, 'f');
    FoundFiles all;
    all.certain = true;
    for (const Word& word : operands) {
        if (isOption(word)) continue;
        if (word.unknown || word.glob) return effects.opaque(folder);
        std::string path = linkedWorkTree(word.text, folder, effects);
        if (isForced)
            effects.thin(path, folder, Links::followed, all, true);
        else
            effects.target(std::move(path), folder, Links::followed, Extent::moved);
    }
}

// What a subcommand that changes the work tree takes of it.
void takeFromTree(std::string_view subcommand, Words rest, const GitCall& call, Effects& effects) {
    GitTakes takes{call.workTree, GitTakes::Which::changed, true, {}, call.isPlain()};
    if (subcommand == "clean") {
        auto words = cleanWords(rest);
        takes.which = GitTakes::Which::untracked;
        takes.wholeTree = false;
        takes.canTell = takes.certain = takes.canTell && words;
        takes.words = std::move(words).value_or(std::vector<std::string>());
        effects.takeFromTree(std::move(takes));
    } else if (subcommand == "stash") {
        takes.stays = true;
        effects.takeFromTree(takes);
        if (!takesUntracked(subcommand, rest)) return;
        takes.which = GitTakes::Which::untracked;
        takes.words = {"-d"};
        if (hasOption(rest, "--all", 4, 'a')) takes.words.emplace_back("-x");
        effects.takeFromTree(std::move(takes));
    } else if (subcommand == "reset" || subcommand == "rm") {
        takes.certain = subcommand == "reset" && hasOption(rest, "--hard", 3);
        effects.takeFromTree(std::move(takes));
    }
}

} // namespace

void examineGit(Words arguments, const std::string& cwd, Effects& effects) {
    const auto call = readCall(arguments, cwd, effects);
    if (!call) return;
    const std::string& workTree = call->workTree;
    const std::string_view subcommand = arguments[call->subcommand].text;
    const Words rest = arguments.subspan(call->subcommand + 1);
    noteGitStore(arguments, *call, effects);
    examineOutput(rest, call->folder, effects);
    if (subcommand == "archive") writeTold(rest, call->folder, effects);
    if (subcommand == "bundle" && !rest.empty() && rest.front().text == "create"sv) {
        const auto file = std::find_if_not(rest.begin() + 1, rest.end(), isOption);
        if (file != rest.end()) effects.write(*file, call->folder);
    }
    const bool cleans = subcommand == "clean" && call->forced && mayChangeTree(subcommand, rest);
    const bool changes = cleans || isIn(checkouts, subcommand) || changesWorkTree(subcommand, rest);
    if (changes && call->isPlain() && effects.isProtectedWithoutGit(workTree)) return;
    if (isIn(checkouts, subcommand)) return examineCheckout(subcommand, rest, *call, effects);
    if (subcommand == "init" || subcommand == "clone") effects.noteNewGitStore();
    if (subcommand == "worktree" && !rest.empty() && rest.front().text == "remove"sv)
        removeWorkTrees(rest.subspan(1), workTree, effects);
    if (subcommand == "submodule" && !rest.empty() && rest.front().text == "deinit"sv) {
        if (hasAny(rest, {"--all"})) effects.opaque(workTree);
        removeWorkTrees(rest.subspan(1), workTree, effects);
    }
    if (!changes) {
        if (mayChangeTree(subcommand, rest)) effects.suspect(workTree);
        return;
    }
    takeFromTree(subcommand, rest, *call, effects);
    if (subcommand == "clean")
        effects.target(workTree, workTree, Links::followed, Extent::moved);
    else if (takesUntracked(subcommand, rest))
        effects.target(topOf(workTree, effects), workTree, Links::followed, Extent::moved);
    else
        effects.trackedFiles(topOf(workTree, effects));
}

void examineGitStore(Words arguments, const std::string& cwd, Effects& effects) {
    if (const auto call = readCall(arguments, cwd, effects)) noteGitStore(arguments, *call, effects);
}

bool gitOnlyReads(Words words) {
    const std::size_t index = subcommandAt(words);
    if (index >= words.size() || words[index].unknown) return false;
    const std::string_view subcommand = words[index].text;
    return !isIn(checkouts, subcommand) && !isIn(sometimesChanging, subcommand) && !isIn(alwaysChanging, subcommand) &&
           !mayChangeTree(subcommand, words.subspan(index + 1));
}

} // namespace tidewrack::shell
