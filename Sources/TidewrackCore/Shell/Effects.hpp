#pragma once
// What the commands of one line may do, gathered while they are examined one after the other.

#include "Shell/Budget.hpp"
#include "Shell/Decision.hpp"
#include "Shell/OwnPaths.hpp"
#include "Shell/Program.hpp"
#include "Shell/ProtectedFolders.hpp"
#include "Shell/WordPaths.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewrack::shell {

// The text of the refusal when `path` is a folder that must never be lost: the system's, the home folder, or one of the
// home's well-known ones. What lies below them does not count. Judged by the text alone.
[[nodiscard]] std::optional<std::string> catastrophic(std::string_view path, std::string_view home);

// Turns an allow into an ask when a tracked project is at or below `path`.
void askIfContainsProject(std::string_view path, const std::vector<std::string>& projectRoots, Verdict& verdict,
                          std::string_view verb = "deletes");

// Whether a command takes a link that the word names, or goes through it, which a trailing slash makes it do.
[[nodiscard]] Links linksOf(const Word& word);

class Effects {
  public:
    // `context` must outlive this.
    explicit Effects(const Context& context);
    Effects(const Effects&) = delete;
    Effects& operator=(const Effects&) = delete;

    // The paths that a word names: none for an empty one, its matches when it is a pattern, and the
    // pattern's parent folder when nothing matches or too much would.
    [[nodiscard]] std::vector<std::string> resolve(const Word& word, std::string_view cwd);

    // How patterns are matched from now on.
    void matchHidden() { glob_.matchHidden(); }
    void ignoreCase() { glob_.ignoreCase(); }
    void matchExtended() { extended_ = true; }

    // The names that the line itself has made in a folder, as far as they were the last ones.
    [[nodiscard]] std::vector<std::string> namesMadeIn(std::string_view folder) const;

    // The names in a folder, for commands that copy its contents; none when they are too many.
    [[nodiscard]] std::optional<std::vector<std::string>> namesIn(const std::string& folder) {
        return glob_.namesIn(folder);
    }

    // Whether something stands at a path below the folder, which is no longer looked at once many were.
    [[nodiscard]] bool mayExist(std::string_view path, std::string_view folder);

    // Whether there is room for one more of those looks.
    [[nodiscard]] bool takesLook() { return ++operandsLookedAt_ <= Budget::operandsLookedAt; }

    // True for a word that is no longer worth a look: there are too many targets, and it names nothing outside the
    // folder where it stands.
    [[nodiscard]] bool skips(const Word& word) const {
        return full() && !word.text.starts_with('/') && word.text.find("..") == std::string::npos;
    }

    // Adds an absolute path to the targets.
    void target(std::string path, std::string_view cwd, Links links = Links::itself, Extent extent = Extent::item);

    // Adds a folder of whose contents a command takes some: `taken`, whatever its folder is. `removes`: what passes
    // goes.
    void thin(const std::string& folder, std::string_view cwd, Links links, FoundFiles taken = {},
              bool removes = false);

    // Asks when that would take Tidewrack's own history or hooks.
    void lookAtOwn(const std::string& target, Extent extent, Links links) { own_.look(target, extent, links); }

    // A command takes those files in a folder of which `takes` is true; that folder may be protected.
    void takeBelow(const std::string& folder, const std::function<bool(std::string_view)>& takes) {
        own_.lookBelow(folder, takes);
    }

    // The same for protected folders below it, which go with what they hold.
    void takeProtected(const std::string& folder, const std::function<bool(std::string_view)>& takes);

    // What the word names is overwritten or replaced, if it is there. That is saved; nobody is asked or refused
    // anything for it.
    void write(const Word& word, const std::string& folder, Extent extent = Extent::item) {
        write(word, folder, extent, Certainty::told);
    }

    // What is at an absolute path may go, by a list that says so: saved like that, a folder as far as it is small.
    void risk(const std::string& path, const std::string& cwd);

    // What the word names is made, or only its times or rights change: that tells whose it is.
    void make(const Word& word, std::string_view folder);
    [[nodiscard]] bool isMade(const std::string& path) const;

    // A path below the home folder.
    [[nodiscard]] std::string homePath(std::string_view relative) const;

    // A symbolic link that the line makes: what happens behind it happens elsewhere.
    void link(std::string at, std::string destination);
    [[nodiscard]] bool takesLinks() const { return links_.size() < Budget::links; }
    // The folders outside of a folder that links in it lead to, made by the line or there before.
    [[nodiscard]] std::vector<std::string> linkedFrom(const std::string& folder);

    // A command lists what may be meant by others of the line. Only well-known folders count: others are saved whole.
    void list(Listing listing);
    // Whether there is room for another look at one.
    [[nodiscard]] bool takesListing() { return ++listingsLookedAt_ <= Budget::listingsLookedAt; }
    [[nodiscard]] const std::vector<Listing>& listings() const { return listings_; }

    [[nodiscard]] bool isInProject(std::string_view path) const { return context_.isInProject(path); }

    // git takes some of the files of a work tree, which is a target.
    void takeFromTree(GitTakes takes);
    // git changes its own store.
    void useGitStore(GitStoreUse use);
    // A command goes through a folder and takes what passes, in git's stores too, which are lost where `allGoes`.
    void reachGitStores(const std::string& folder, const FoundFiles& taken, bool allGoes = false);

    // The folder with git's store at or above this one; empty where there is none, and once many were looked for.
    [[nodiscard]] const std::string& gitTopLevel(const std::string& folder);

    // Whether git would find no work tree in this protected folder, and so fail in it.
    [[nodiscard]] bool isProtectedWithoutGit(const std::string& folder);
    // The line makes one somewhere.
    void noteNewGitStore() { makesGitStore_ = true; }

    // Adds a git work tree of which only what git tracks may change: that the home folder lies in it is no reason to
    // refuse.
    void trackedFiles(const std::string& workTree);

    // Adds whatever the word names. Asks when a project is removed.
    void targetWord(const Word& word, std::string_view cwd, Links links = Links::itself, Extent extent = Extent::item);

    // Asks when a tracked project is at or below the path, also where the path is spelled through a link.
    void askIfProjectInside(const std::string& path, Links links = Links::itself, std::string_view verb = "deletes");

    // A command of Tidewrack's own, whose arguments these are.
    void ownCommand(std::span<const Word> arguments) { own_.lookAtCommand(arguments); }

    // Something whose effect cannot be known runs in `folder`.
    void opaque(std::string_view folder);
    [[nodiscard]] bool isOpaque() const { return decision_.opaque; }

    // A word of the command that is read now is not known, but lies in this folder.
    void noteUnknownIn(std::string folder) {
        if (unknownIn_.size() < Budget::unknownWords) unknownIn_.push_back(std::move(folder));
    }
    void beginCommand() { unknownIn_.clear(); }
    // The command changes what its unknown words stand for, in `folder` or where they lie.
    void opaqueWords(std::string_view folder);
    // ... and all go or are written: asks when they lie in Tidewrack's own, and lists files of well-known folders.
    void loseUnknownWords(const std::string& folder);
    [[nodiscard]] bool losesUnknown() const { return losesUnknown_; }

    // Something may change in `folder`, by a guess. Nobody is asked or refused anything for that.
    void suspect(std::string_view folder);
    // The same for all projects in it.
    void suspectProjectsIn(const std::string& folder);

    // Whether a protected folder is at the path.
    [[nodiscard]] bool isProtected(const std::string& path, Links links);
    [[nodiscard]] ProtectedFolders& protectedFolders();
    // Whether something is only guessed at.
    [[nodiscard]] bool isGuess() const { return decision_.opaque || !decision_.suspected.empty(); }

    // What was found up to now.
    [[nodiscard]] const Decision& soFar() const { return decision_; }
    // Judges all targets and hands out the decision, once.
    [[nodiscard]] Decision decide();

    // True once there are so many targets that further ones only make the decision opaque.
    [[nodiscard]] bool full() const;

  private:
    [[nodiscard]] bool isPattern(const Word& word) const;
    void takeEmptied(std::string folder, std::string_view cwd);
    void askIfProjectRoot(const std::string& folder);
    void followLinks(const std::string& path, Links links);
    [[nodiscard]] std::string throughLinks(std::string path) const;
    [[nodiscard]] std::string kernelPath(std::string_view text, std::string_view cwd);
    bool isKeptSomewhere(const std::string& path);
    [[nodiscard]] bool mayLoseGitsHistory(const std::string& path);
    void keepOnlyAppended();
    enum class Certainty { told, guessed };
    void write(const Word& word, const std::string& folder, Extent extent, Certainty certainty);
    void judgeTargets();
    void denyCatastrophes();

    const Context& context_;
    std::optional<ProtectedFolders> protected_; // made when first asked
    OwnPaths own_;
    GlobMatcher glob_;
    Decision decision_;
    std::int64_t bytesLeft_ = Budget::bytesWrittenOver;      // that may be written over outside of projects
    std::vector<std::size_t> destroyed_;                     // places of targets that are neither moved nor added to
    std::vector<std::pair<std::string, std::string>> links_; // that the line makes, and where they lead
    std::vector<std::string> onlyAppended_;                  // targets in git's store, by redirections
    std::vector<Listing> listings_;
    std::vector<std::string> unknownIn_;
    std::vector<std::string> noFolders_;  // targets that were looked at, and are none
    std::vector<std::string> aroundHome_; // targets that are not refused for the home folder in them
    bool extended_ = false;               // ^x, x#, *~x are patterns
    bool losesUnknown_ = false;
    bool makesGitStore_ = false;
    bool refused_ = false; // whatever else is found
    std::size_t targetBytes_ = 0;
    int pathsMadeReal_ = 0;
    std::size_t operandsLookedAt_ = 0;
    std::size_t topLevels_ = 0;         // looked for
    std::string topLevelOf_, topLevel_; // the last folder for which one was, and what was found
    std::size_t listingsLookedAt_ = 0;
};

} // namespace tidewrack::shell
