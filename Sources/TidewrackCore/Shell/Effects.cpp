#include "Shell/Effects.hpp"

#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Sorted.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <utility>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

// What zsh's patterns may hold besides.
constexpr std::string_view extendedSigns = "^#~";

std::string_view withoutTrailingSlash(std::string_view path) {
    if (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
    return path;
}

std::string refusal(std::string_view path) {
    return "Tidewrack blocked this: it would delete or overwrite " + std::string(withoutTrailingSlash(path)) +
           ". If you really mean it, run it yourself.";
}

// Without regard to case: on many volumes ".GIT" is the same folder, and elsewhere asking once too often costs little.
bool isInGitStore(std::string_view path) {
    constexpr std::string_view store = "/.git";
    const auto sameLetter = [](char one, char other) { return (one >= 'A' && one <= 'Z' ? one | 32 : one) == other; };
    while (true) {
        const auto found = std::search(path.begin(), path.end(), store.begin(), store.end(), sameLetter);
        if (found == path.end()) return false;
        path.remove_prefix(static_cast<std::size_t>(found - path.begin()) + store.size());
        if (path.empty() || path.front() == '/') return true;
    }
}

// The nearest folder that a pattern names without glob characters.
std::string_view folderAbovePattern(std::string_view pattern) {
    const std::size_t glob = pattern.find_first_of("*?[");
    return parentOf(pattern.substr(0, std::min(glob, pattern.size())));
}

} // namespace

Effects::Effects(const Context& context) : context_(context), own_(context.protectedPaths) {}

ProtectedFolders& Effects::protectedFolders() {
    if (!protected_) protected_.emplace(context_.home, context_.projectRoots);
    return *protected_;
}

bool Effects::full() const {
    return decision_.targets.size() >= Budget::targets || targetBytes_ >= Budget::targetBytes;
}

std::vector<std::string> Effects::resolve(const Word& word, std::string_view cwd) {
    std::vector<std::string> paths;
    if (word.text.empty()) return paths;
    std::string path = absolutePath(word.text, cwd);
    if (word.glob && path.find("**") != std::string::npos) { // may go deeper
        opaque(folderAbovePattern(path));
        list({std::string(folderAbovePattern(path)), {std::string(lastComponent(path))}, true});
    }
    if (!isPattern(word)) {
        paths.push_back(std::move(path));
        return paths;
    }
    path = throughLinks(std::move(path));
    if (extended_ && word.text.find_first_of(extendedSigns) != std::string::npos) {
        path = parentOf(path.substr(0, path.find_first_of("*?[^#~")));
        if (!isProtected(path, Links::followed))
            paths.push_back(std::move(path));
        else
            loseUnknownWords(path);
        return paths;
    }
    auto matches = glob_.match(path);
    if (!matches)
        paths.emplace_back(folderAbovePattern(path));
    else if (!matches->empty())
        paths = std::move(*matches);
    else if (lastComponent(path).find_first_not_of("*?") == std::string_view::npos)
        paths.emplace_back(parentOf(path)); // whatever will be in it is meant
    else
        suspect(parentOf(path)); // what matches may be made by the line itself
    return paths;
}

bool Effects::isPattern(const Word& word) const {
    return word.glob || (extended_ && word.text.find_first_of(extendedSigns) < word.plain);
}

bool Effects::mayExist(std::string_view path, std::string_view folder) {
    return ++operandsLookedAt_ > Budget::operandsLookedAt || exists(absolutePath(path, folder));
}

void Effects::target(std::string path, std::string_view cwd, Links links, Extent extent) {
    const bool refused = protectedFolders().holdsText(path);
    refused_ = refused_ || refused;
    if (!refused_) own_.look(path, extent, links); // a refusal is stronger than that question
    if (full() && !refused) return opaque(cwd);
    if (!links_.empty()) followLinks(path, links);
    targetBytes_ += path.size();
    if (links == Links::followed) decision_.followed.push_back(path);
    decision_.targets.push_back(std::move(path));
}

void Effects::thin(const std::string& folder, std::string_view cwd, Links links, FoundFiles taken, bool removes) {
    if (!full()) {
        decision_.thinned.push_back(folder);
        taken.folder = folder;
        taken.certain = taken.certain && removes;
        decision_.found.push_back(std::move(taken));
    }
    target(folder, cwd, links, Extent::item);
}

void Effects::list(Listing listing) {
    const bool isKnown = std::find(listings_.begin(), listings_.end(), listing) != listings_.end();
    if (!isKnown && listings_.size() < Budget::listings && protectedFolders().holdsText(listing.folder))
        listings_.push_back(std::move(listing));
}

std::string Effects::homePath(std::string_view relative) const {
    return absolutePath(relative, absolutePath(context_.home, "/"));
}

void Effects::link(std::string at, std::string destination) {
    if (takesLinks()) links_.emplace_back(std::move(at), std::move(destination));
}

// A pattern matches nothing behind a link that is not there yet.
std::string Effects::throughLinks(std::string path) const {
    for (const auto& [at, destination] : links_)
        if (path.size() > at.size() && isAtOrBelow(path, at)) path = destination + path.substr(at.size());
    return path;
}

void Effects::followLinks(const std::string& path, Links links) {
    for (const auto& [at, destination] : links_) {
        if (!isAtOrBelow(path, at)) continue;
        Word end;
        end.text = destination + path.substr(at.size());
        write(end, "/");
        if (links == Links::followed || path.size() > at.size())
            if (protectedFolders().holdsText(end.text)) decision_.targets.push_back(end.text);
    }
}

// In a project a snapshot keeps what is written over; elsewhere the vault does, as far as a guess is worth its room.
bool Effects::isKeptSomewhere(const std::string& path) {
    if (context_.isInProject(path)) return true;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > bytesLeft_) return false;
    bytesLeft_ -= status.st_size;
    return true;
}

void Effects::write(const Word& word, const std::string& folder, Extent extent, Certainty certainty) {
    if (word.unknown || skips(word) || operandsLookedAt_ >= Budget::operandsLookedAt) return opaque(folder);
    for (std::string& path : resolve(word, folder)) {
        if (!mayExist(path, folder)) continue;
        own_.look(path, extent, Links::followed);
        const bool isTold = certainty == Certainty::told && extent != Extent::rights;
        if (isTold && decision_.written.size() < Budget::opaqueFolders) decision_.written.push_back(path);
        if (isProtected(path, Links::followed) || !isKeptSomewhere(path))
            suspect(path);
        else if (decision_.mentioned.size() < Budget::opaqueFolders)
            decision_.mentioned.push_back(std::move(path));
        else
            opaque(folder);
    }
}

void Effects::risk(const std::string& path, const std::string& cwd) {
    if (isFolder(path)) return opaque(path);
    Word word;
    word.text = path;
    write(word, cwd, Extent::item, Certainty::guessed);
}

void Effects::make(const Word& word, std::string_view folder) {
    if (!word.unknown && !word.glob && !word.text.empty() && decision_.made.size() < Budget::opaqueFolders)
        decision_.made.push_back(absolutePath(word.text, folder));
}

bool Effects::isMade(const std::string& path) const {
    return std::find(decision_.made.begin(), decision_.made.end(), path) != decision_.made.end();
}

void Effects::takeFromTree(GitTakes takes) {
    if (decision_.gitTakes.size() < Budget::gitCommands) decision_.gitTakes.push_back(std::move(takes));
}

void Effects::useGitStore(GitStoreUse use) {
    auto& uses = decision_.gitStores;
    const bool isKnown = std::find(uses.begin(), uses.end(), use) != uses.end();
    if (!isKnown && uses.size() < Budget::gitCommands) uses.push_back(std::move(use));
}

void Effects::reachGitStores(const std::string& folder, const FoundFiles& taken, bool allGoes) {
    FoundFiles tests = taken;
    tests.folder = folder;
    const auto reach = [&](const std::string& root) {
        const std::string store = joined(root, ".git");
        if (tests.sparesGit || !takesLook() || !isFolder(store)) return;
        const auto takes = [&](std::string_view name) { return tests.mayTake(joined(store, name)); };
        bool isTaken = tests.mayTake(store) || takes("HEAD") || takes("config") || takes("index") ||
                       takes("packed-refs") || takes("logs/HEAD") || takes("refs/heads/main");
        (void)visitNames(joined(store, "refs/heads"), [&](const char* name) {
            isTaken = isTaken || takes(std::string("refs/heads/") + name);
            return !isTaken && takesLook();
        });
        if (isTaken) useGitStore({root, {}, true, true, allGoes});
    };
    reach(folder);
    for (const std::string& root : context_.projectRoots)
        if (root != folder && isAtOrBelow(root, folder)) reach(root);
}

const std::string& Effects::gitTopLevel(const std::string& folder) {
    if (folder == topLevelOf_) return topLevel_;
    topLevelOf_ = topLevel_ = folder;
    while (!exists(joined(topLevel_, ".git"))) {
        if (topLevel_ == "/" || ++topLevels_ > Budget::topLevels) {
            topLevel_.clear();
            break;
        }
        topLevel_ = std::string(parentOf(topLevel_));
    }
    return topLevel_;
}

bool Effects::isProtectedWithoutGit(const std::string& folder) {
    if (makesGitStore_ || !isProtected(folder, Links::followed)) return false;
    const std::string real = realPath(folder);
    std::string_view above = real.empty() ? std::string_view(folder) : std::string_view(real);
    while (above.size() > 1 && !exists(joined(above, ".git"))) above = parentOf(above);
    return above.size() <= 1 && !exists("/.git");
}

void Effects::trackedFiles(const std::string& workTree) {
    if (protectedFolders().onlyHoldsHome(workTree) && !full())
        aroundHome_.push_back(workTree);
    else
        target(workTree, workTree, Links::followed);
}

void Effects::targetWord(const Word& word, std::string_view cwd, Links links, Extent extent) {
    if (skips(word)) return opaque(cwd);
    const auto add = [&](std::string path) {
        if (extent == Extent::removed) askIfProjectInside(path, links);
        if (extent == Extent::moved) askIfProjectInside(path, links, "moves");
        if (extent == Extent::removed && !full()) decision_.removed.push_back(path);
        if (extent == Extent::moved && !full()) decision_.moved.push_back(path);
        const bool stays = extent == Extent::moved || extent == Extent::kept;
        if (!full() && stays) decision_.keptWhole.push_back(path);
        if (!full() && !stays) destroyed_.push_back(decision_.targets.size());
        if (word.appends && onlyAppended_.size() < Budget::appendedInGit && isInGitStore(path))
            onlyAppended_.push_back(path);
        target(std::move(path), cwd, links, extent);
    };
    if (word.glob && extent == Extent::removed) takeEmptied(throughLinks(absolutePath(word.text, cwd)), cwd);
    if (isPattern(word))
        for (std::string& path : resolve(word, cwd)) add(std::move(path));
    else if (!word.text.empty()) {
        std::string path = absolutePath(word.text, cwd);
        if (word.text.find("..") != std::string::npos)
            if (std::string other = kernelPath(word.text, cwd); other != path) add(std::move(other));
        add(std::move(path));
    }
}

// Behind a link, on the disk or made by the line, ".." is where the link leads to.
std::string Effects::kernelPath(std::string_view text, std::string_view cwd) {
    std::string path = text.starts_with('/') ? "/" : std::string(cwd);
    while (!text.empty()) {
        const std::string_view name = text.substr(0, text.find('/'));
        text.remove_prefix(std::min(name.size() + 1, text.size()));
        if (name == "..") {
            const auto made =
                std::find_if(links_.begin(), links_.end(), [&](const auto& link) { return link.first == path; });
            struct stat status {};
            if (made != links_.end())
                path = made->second;
            else if (takesLook() && lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode))
                if (std::string real = realPath(path); !real.empty()) path = std::move(real);
        }
        path = absolutePath(name, path);
    }
    return path;
}

std::vector<std::string> Effects::namesMadeIn(std::string_view folder) const {
    std::vector<std::string> names;
    const auto& targets = decision_.targets;
    for (std::size_t index = targets.size() - std::min(targets.size(), Budget::namesMade); index < targets.size();
         ++index)
        if (parentOf(targets[index]) == folder) names.emplace_back(lastComponent(targets[index]));
    return names;
}

void Effects::askIfProjectInside(const std::string& path, Links links, std::string_view verb) {
    if (refused_ || decision_.verdict.kind != Verdict::Kind::allow || context_.projectRoots.empty()) return;
    askIfContainsProject(path, context_.projectRoots, decision_.verdict, verb);
    if (decision_.verdict.kind != Verdict::Kind::allow || path.find('\0') != std::string::npos) return;
    if (++pathsMadeReal_ > Budget::pathsMadeReal) return;
    // A file holds no project, and what is not there neither.
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) {
        noFolders_.push_back(path);
        return;
    }
    const std::string real = links == Links::followed ? realPath(path) : realPlace(path);
    if (!real.empty() && real != path) askIfContainsProject(real, context_.projectRoots, decision_.verdict, verb);
}

// FOLDER/*, FOLDER/*/*: with all its names the folder is as good as gone. Only what lies in /tmp is made to go.
void Effects::takeEmptied(std::string folder, std::string_view cwd) {
    const auto endsInWildcards = [&] { return lastComponent(folder).find_first_not_of("*?") == std::string::npos; };
    if (folder.find('*') == folder.npos || !endsInWildcards()) return;
    while (folder.size() > 1 && endsInWildcards()) folder.resize(parentOf(folder).size());
    askIfProjectRoot(folder);
    if (folder.find_first_of("*?[") != folder.npos || !isProtected(folder, Links::followed)) return;
    const std::string real = realPath(folder);
    for (const std::string_view shared : {"/tmp"sv, "/private/tmp"sv})
        if (folder == shared || real == shared) return;
    target(std::move(folder), cwd, Links::followed, Extent::removed);
}

// A project whose root's names are removed is lost as a whole.
void Effects::askIfProjectRoot(const std::string& folder) {
    const auto& roots = context_.projectRoots;
    if (std::find(roots.begin(), roots.end(), folder) != roots.end()) askIfProjectInside(folder);
}

void Effects::opaque(std::string_view folder) {
    decision_.opaque = true;
    auto& folders = decision_.opaqueDirs;
    if ((folders.empty() || folders.back() != folder) && folders.size() < Budget::opaqueFolders)
        folders.emplace_back(folder);
}

void Effects::opaqueWords(std::string_view folder) {
    opaque(folder);
    for (const std::string& known : unknownIn_)
        if (!protectedFolders().holdsText(known)) opaque(known);
}

void Effects::loseUnknownWords(const std::string& folder) {
    losesUnknown_ = true;
    const auto listIn = [&](const std::string& known) {
        if (known != homePath("")) list({known, {}, true}); // the home folder holds too much for a guess
    };
    listIn(folder);
    for (const std::string& known : unknownIn_) {
        own_.look(known, Extent::item, Links::followed);
        listIn(known);
    }
}

void Effects::suspect(std::string_view folder) {
    auto& folders = decision_.suspected;
    if ((folders.empty() || folders.back() != folder) && folders.size() < Budget::opaqueFolders)
        folders.emplace_back(folder);
}

void Effects::suspectProjectsIn(const std::string& folder) {
    for (const std::string& root : context_.projectRoots)
        if (isAtOrBelow(root, folder)) suspect(root);
    suspect(folder);
}

bool Effects::isProtected(const std::string& path, Links links) {
    return protectedFolders().holdsText(path) || protectedFolders().holdsFolder(path, links == Links::followed);
}

void Effects::takeProtected(const std::string& folder, const std::function<bool(std::string_view)>& takes) {
    for (std::string& path : protectedFolders().inHome())
        if (path.size() > folder.size() && isAtOrBelow(path, folder) && takes(path))
            target(std::move(path), folder, Links::itself, Extent::removed);
}

void Effects::denyCatastrophes() {
    for (const std::string& path : decision_.targets)
        if (protectedFolders().holdsText(path)) return decision_.verdict.raiseTo({Verdict::Kind::deny, refusal(path)});
    for (const std::string& path : decision_.targets) {
        const auto& followed = decision_.followed;
        const bool followLink = std::binary_search(followed.begin(), followed.end(), path);
        if (std::find(noFolders_.begin(), noFolders_.end(), path) != noFolders_.end()) continue;
        if (protectedFolders().holdsFolder(path, followLink))
            return decision_.verdict.raiseTo({Verdict::Kind::deny, refusal(path)});
    }
}

// Nothing goes with a lock, with what is only added to, and where there is no store: behind nothing that the line may
// have put there, and where the line is sure to be where it seems to be.
bool Effects::mayLoseGitsHistory(const std::string& path) {
    if (!isInGitStore(path)) return false;
    if (std::binary_search(onlyAppended_.begin(), onlyAppended_.end(), path)) return false;
    if (path.ends_with(".lock") && takesLook() && !isFolder(path)) return false;
    const bool isStore = !isInGitStore(parentOf(path));
    if (!isStore || decision_.opaque || !links_.empty() || mayExist(path, "/")) return true;
    const auto& targets = decision_.targets;
    for (std::string_view above = parentOf(path); above.size() > 1; above = parentOf(above))
        if (std::binary_search(targets.begin(), targets.end(), above)) return true;
    return false;
}

Decision Effects::decide() {
    keepOnlyAppended();
    sortAndDedupe(decision_.opaqueDirs);
    sortAndDedupe(decision_.suspected);
    if (!decision_.targets.empty() || !aroundHome_.empty()) judgeTargets();
    // Stronger than any other question: what that says of snapshots would not hold.
    if (own_.question() && decision_.verdict.kind != Verdict::Kind::deny)
        decision_.verdict = {Verdict::Kind::ask, *own_.question()};
    const auto inGitStore = std::find_if(decision_.targets.begin(), decision_.targets.end(),
                                         [&](const std::string& path) { return mayLoseGitsHistory(path); });
    if (inGitStore != decision_.targets.end())
        decision_.verdict.raiseTo(
            {Verdict::Kind::ask, "This changes " + *inGitStore +
                                     ". Tidewrack doesn't keep git's own history, so it can't undo "
                                     "this. Allow?"});
    return std::move(decision_);
}

std::vector<std::string> Effects::linkedFrom(const std::string& folder) {
    std::vector<std::string> linked;
    const auto add = [&](const std::string& destination) {
        const bool isNew = std::find(linked.begin(), linked.end(), destination) == linked.end();
        if (isNew && !destination.empty() && !isAtOrBelow(destination, folder) && isFolder(destination) &&
            linked.size() < Budget::links)
            linked.push_back(destination);
    };
    for (const auto& [at, destination] : links_)
        if (isAtOrBelow(at, folder)) add(destination);
    (void)visitNames(folder, [&](const char* name) {
        const std::string path = joined(folder, name);
        struct stat status {};
        if (!takesLook()) return false;
        if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) add(realPath(path));
        return true;
    });
    return linked;
}

// Drops what other commands of the line change in another way.
void Effects::keepOnlyAppended() {
    const auto all = std::exchange(onlyAppended_, {});
    const auto& targets = decision_.targets;
    for (const std::string& path : all)
        if (std::count(targets.begin(), targets.end(), path) == std::count(all.begin(), all.end(), path))
            onlyAppended_.push_back(path);
    sortAndDedupe(onlyAppended_);
}

void Effects::judgeTargets() {
    auto& targets = decision_.targets;
    auto& keptWhole = decision_.keptWhole;
    // What one command of the line leaves whole another one may take.
    std::vector<std::string> destroyed;
    if (!keptWhole.empty())
        for (const std::size_t place : destroyed_) destroyed.push_back(targets[place]);
    sortAndDedupe(destroyed);
    std::erase_if(keptWhole, [&](const std::string& path) {
        return std::binary_search(destroyed.begin(), destroyed.end(), path);
    });
    for (auto* paths : {&targets, &decision_.followed, &decision_.removed, &decision_.thinned, &decision_.keptWhole}) {
        const auto isDevice = [](const std::string& path) {
            return path.starts_with("/dev/") && !isAtOrBelow(path, "/dev/shm"); // which is a disk in memory
        };
        paths->erase(std::remove_if(paths->begin(), paths->end(), isDevice), paths->end());
        sortAndDedupe(*paths);
    }
    denyCatastrophes();
    for (auto* paths : {&targets, &decision_.followed}) {
        paths->insert(paths->end(), aroundHome_.begin(), aroundHome_.end());
        sortAndDedupe(*paths);
    }
}

Links linksOf(const Word& word) {
    return word.text.ends_with('/') || word.text.ends_with("/.") ? Links::followed : Links::itself;
}

void Verdict::raiseTo(Verdict other) {
    const auto strength = [](Kind which) { return which == Kind::deny ? 2 : which == Kind::ask ? 1 : 0; };
    if (strength(other.kind) > strength(kind)) *this = std::move(other);
}

std::optional<std::string> catastrophic(std::string_view path, std::string_view home) {
    const std::string_view plain = withoutTrailingSlash(path);
    if (!ProtectedFolders(home, {}).holdsText(plain)) return std::nullopt;
    return refusal(plain);
}

void askIfContainsProject(std::string_view path, const std::vector<std::string>& projectRoots, Verdict& verdict,
                          std::string_view verb) {
    if (verdict.kind != Verdict::Kind::allow || path.empty()) return;
    const std::string_view folder = withoutTrailingSlash(path);
    for (const std::string& root : projectRoots) {
        const bool below = root.starts_with(folder) && (root.size() == folder.size() || root[folder.size()] == '/');
        if (folder != "/" && !below) continue;
        std::string reason = "This ";
        reason.append(verb)
            .append(" ")
            .append(folder)
            .append(", which contains the tracked project ")
            .append(root)
            .append(".")
            .append(snapshotPromise);
        verdict = {Verdict::Kind::ask, std::move(reason), root};
        return;
    }
}

} // namespace tidewrack::shell
