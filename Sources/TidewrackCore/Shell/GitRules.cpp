#include "Shell/GitRules.hpp"

#include "Shell/Budget.hpp"
#include "Shell/GitSubcommands.hpp"
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
    const bool changes = cleans || isCheckout(subcommand) || changesWorkTree(subcommand, rest);
    if (changes && call->isPlain() && effects.isProtectedWithoutGit(workTree)) return;
    if (isCheckout(subcommand)) return examineCheckout(subcommand, rest, *call, effects);
    if (subcommand == "init" || subcommand == "clone") effects.noteNewGitStore();
    if (subcommand == "worktree" && !rest.empty() && rest.front().text == "remove"sv)
        removeWorkTrees(rest.subspan(1), workTree, effects);
    if (subcommand == "submodule" && !rest.empty() && rest.front().text == "deinit"sv) {
        if (hasAny(rest, {"--all"})) effects.opaque(workTree);
        removeWorkTrees(rest.subspan(1), workTree, effects);
    }
    if (!changes) {
        const bool mayChange = mayChangeTree(subcommand, rest);
        if (mayChange && subcommand == "difftool") return effects.opaque(workTree); // its tool opens the tree's files
        if (mayChange) effects.suspect(workTree);
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
    return onlyReadsTree(words[index].text, words.subspan(index + 1));
}

} // namespace tidewrack::shell
