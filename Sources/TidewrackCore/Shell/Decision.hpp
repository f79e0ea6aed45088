#pragma once
// What the guard is asked with, and what it answers.

#include "Shell/FoundFiles.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

using Environment = std::map<std::string, std::string, std::less<>>;

// A path whose loss would end what Tidewrack keeps or does.
struct OwnPath {
    // The store's folder; an agent's configuration that holds our hooks; a file of this name in any folder, which says
    // what histories leave out.
    enum class Role { history, hooks, rules };

    std::string path; // absolute, canonical; of rules the name alone
    Role role = Role::history;

    bool operator==(const OwnPath&) const = default;
};

struct Command;
struct Decision;
struct Word;

// What a command line is judged against.
struct Context {
    std::string cwd;  // the agent's working folder: canonical, absolute
    std::string home; // the user's home folder
    Environment env;
    std::vector<std::string> projectRoots; // of all tracked projects
    // Commands that delete or overwrite these are asked about. Called once at most, and only when there is a target;
    // empty: none.
    std::function<std::vector<OwnPath>()> protectedPaths = {};
    // Whether the user says that a program only reads. Asked about programs that nothing else is known of; empty: none.
    std::function<bool(std::string_view)> isReader = {};
    // Told of each command as it is going to run, also behind wrappers and in texts, unless it only looks. May be
    // empty.
    std::function<void(std::span<const Word>)> command = {};
    // Told of each command of the line, and of what was found up to then: not sorted, and not judged yet. May be empty.
    std::function<void(const Command&, const Decision&)> watch = {};

    // Whether the path lies in a tracked project, or is its root.
    [[nodiscard]] bool isInProject(std::string_view path) const {
        return std::any_of(projectRoots.begin(), projectRoots.end(),
                           [&](const std::string& root) { return isAtOrBelow(path, root); });
    }
};

// The end of the question that is asked before a tracked project is removed. The caller has taken the snapshot, or says
// why there is none.
inline constexpr std::string_view snapshotPromise = " Tidewrack snapshotted it first; allow?";

// What a tool of an agent does with the paths that it names.
enum class FileAct : std::uint8_t { writes, moves, removes };

// What to tell the agent. A deny is stronger than an ask, an ask than an allow; of two equals the first stays.
struct Verdict {
    enum class Kind { ask, deny, allow };

    Kind kind = Kind::allow;
    std::string reason; // empty for allow
    // The root of the tracked project of which the reason, which ends with snapshotPromise, promises a snapshot.
    std::string promised = {};

    // Takes `other` when that is the stronger one.
    void raiseTo(Verdict other);

    bool operator==(const Verdict&) const = default;
};

// What a git command takes of the files in a folder. Only git can tell which they are.
struct GitTakes {
    enum class Which { untracked, changed };

    std::string folder; // in which git runs
    Which which = Which::changed;
    bool wholeTree = false;         // of the work tree, not only of the folder
    std::vector<std::string> words; // of "git clean" that say which untracked files
    bool canTell = true;            // git can be asked which they are
    bool certain = true;            // false: it may take fewer
    bool stays = false;             // git's own store holds it afterwards

    bool operator==(const GitTakes&) const = default;
};

// A git command that changes git's own store.
struct GitStoreUse {
    std::string folder;         // in which git runs
    std::string named;          // the store that it is told, absolute; empty: the one around the folder
    bool losesObjects = false;  // it removes what nothing refers to
    bool reachesOthers = false; // it changes also what belongs to other work trees of the repository
    bool goes = false;          // the store goes with all it holds, as far as can be told

    bool operator==(const GitStoreUse&) const = default;
};

struct Decision {
    Verdict verdict;
    std::vector<std::string> targets;    // absolute paths that may be deleted or overwritten: sorted, each once
    std::vector<std::string> followed;   // those of them that, where they are links, are not meant themselves: what
                                         // they lead to is; sorted, each once
    std::vector<std::string> removed;    // those of them that go with all they hold; sorted, each once
    std::vector<std::string> thinned;    // those of them that are folders of whose contents some go; sorted, each once
    std::vector<FoundFiles> found;       // what tests on names let commands take of folders that are targets
    std::vector<GitTakes> gitTakes;      // what git takes of such folders
    std::vector<GitStoreUse> gitStores;  // whose state is worth a copy; nothing else is saved for these
    std::vector<std::string> keptWhole;  // those of them whose content is there afterwards, because they are moved or
                                         // added to; sorted, each once
    std::vector<std::string> moved;      // those of them that a command takes elsewhere with all they hold
    bool opaque = false;                 // part of the effect cannot be known without running the command
    std::vector<std::string> opaqueDirs; // the folders in which such parts run: sorted, each once
    std::vector<std::string> mentioned; // paths that may change, by a guess, and are small enough to be kept where they
                                        // lie in no project; sorted, each once
    std::vector<std::string> written;   // those of them, and of what is too large for that, that a program is told to
                                        // write over or replace: no guess
    std::vector<std::string> made;      // paths that commands make, or of which they change the times or the rights:
                                        // nothing of them has to be saved, but they tell whose they are
    std::vector<std::string> suspected; // folders where something may change, by a guess: of the projects that they
                                        // lie in a snapshot is taken, of nothing else; sorted, each once

    bool operator==(const Decision&) const = default;
};

} // namespace tidewrack::shell
