#include "Agents/SaveBefore.hpp"

#include "Agents/KeptPaths.hpp"
#include "Agents/Replaceable.hpp"
#include "Agents/TakenParts.hpp"
#include "Platform/Deadline.hpp"
#include "Platform/Process.hpp"
#include "Platform/Volumes.hpp"
#include "Store/KeepFailure.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Sorted.hpp"
#include "Timeline/LoggedHook.hpp"
#include "Walk/LeaveOutRules.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <set>
#include <utility>

namespace tidewrack {

namespace {

constexpr std::size_t commandLabelLength = 200;
constexpr auto timeForGuesses = std::chrono::milliseconds(1500); // most of them are about nothing
constexpr std::size_t mostFound = 100;                           // by one test; of more it can't be told whose they are
constexpr const char* noRoom = "there is not enough room for a copy";

bool isIn(const std::vector<std::string>& sorted, const std::string& path) {
    return std::binary_search(sorted.begin(), sorted.end(), path);
}

void add(const Project& project, std::vector<Project>& to) {
    const auto isSame = [&](const Project& other) { return other.id == project.id; };
    if (std::none_of(to.begin(), to.end(), isSame)) to.push_back(project);
}

// Why the vault leaves out what stands there; empty where nothing of worth does.
std::string reasonFor(NotSaved reason, const Vault& vault) {
    switch (reason) {
    case NotSaved::tooManyFiles: return "it has more than " + std::to_string(vault.mostFiles) + " files";
    case NotSaved::tooLarge: return "it is too large for a copy on another volume";
    case NotSaved::noRoom: return noRoom;
    case NotSaved::noTime: return noTimeLeft;
    case NotSaved::unreadable: return "it can't be read";
    case NotSaved::notThere:
    case NotSaved::inStore:
    case NotSaved::special: break;
    }
    return {};
}

// Whether the command takes the target, or the content of the file at `end`, to which it leads.
bool goes(const shell::Decision& decision, const std::string& target, const std::string& end) {
    return isIn(decision.removed, target) || (!isIn(decision.keptWhole, target) && isFile(end));
}

void noteUnsaved(const HookContext& context, const std::string& path, const std::string& reason, SavedBefore& saved) {
    const auto project = Store::projectContaining(path, context.projects());
    const std::string& lasting = project ? project->root : context.handler.home;
    if (reason.empty() || isReplaceable(path, context.handler.environment, lasting)) return;
    if (saved.unsaved)
        ++saved.unsaved->more;
    else
        saved.unsaved = Unsaved{path, reason};
}

class Saving {
  public:
    Saving(HookContext& context, const std::string& command, const shell::Decision& decision,
           const std::vector<std::string>& unkept)
        : context_(context), command_(command), decision_(decision), outside_(unkept), destroyed_(unkept) {}

    SavedBefore run() {
        sortOut();
        const Deadline deadline = context_.share(4, 5); // leaves time for the vault
        for (const Project& project : projects_) snapshot(project, deadline, Certainty::known);
        sortAndDedupe(outside_); // with what the snapshots could not keep
        if (!outside_.empty()) copyOutside(outside_, context_.whole(), Certainty::known);
        saveLeftOut();
        const Deadline guessing = untilGuessed(); // what is known comes first
        saveGitStates(guessing);
        for (const Project& project : guessed_) snapshot(project, guessing, Certainty::guessed);
        if (!guessedOutside_.empty()) copyOutside(guessedOutside_, guessing, Certainty::guessed);
        const bool isEdit = context_.event.kind == HookEvent::Kind::edit; // may make the folder as well
        for (const auto& [path, extent] : named_) // later than the snapshots, which they come after
            if (isEdit || exists(std::string(parentOf(path)))) context_.noteChange(path, extent); // else sed's script
        for (const std::string& path : foundNames_) context_.noteChange(path, Extent::all);
        saved_.notes.insert(saved_.notes.end(), gapNotes_.begin(), gapNotes_.end());
        explainPromise();
        return std::move(saved_);
    }

    SavePlan plan() {
        sortOut();
        sortAndDedupe(outside_);
        return {std::move(projects_), std::move(guessed_), std::move(outside_), std::move(guessedOutside_)};
    }

  private:
    using Extent = HookContext::Extent;
    enum class Certainty { known, guessed };

    [[nodiscard]] Deadline untilGuessed() const {
        return std::min(*context_.whole(), std::chrono::steady_clock::now() + timeForGuesses);
    }

    void snapshot(const Project& project, const Deadline& deadline, Certainty certainty) {
        try {
            if (passed(deadline)) return skip(project, certainty);
            const std::string label = "Before: " + oneLine(command_, commandLabelLength);
            SnapshotRequest request = context_.request(context_.agent ? "tool" : "manual", label, deadline);
            request.onlyChanges = certainty == Certainty::guessed;
            const TakenSnapshot taken = context_.handler.engine.snapshotListed(project, request);
            saved_.notes.push_back(HookContext::noteOn(taken.result, project));
            saved_.snapshotted.push_back(project.root);
            noteGaps(taken.result, project);
            nameFound(project, taken.manifest);
            saveUnkept(project, taken);
            leaveOutFound(project, taken);
            const NotKept& notKept = taken.result.notKept;
            const bool leavesOut = notKept.ignoredFiles + notKept.ignoredFolders > 0 && !rules(project).empty();
            if (taken.result.meta.notKept > 0 || leavesOut) saveParts(project, taken.manifest);
        } catch (const std::exception& error) {
            if (passed(deadline)) return skip(project, certainty); // its lock was held all the time
            saved_.failures.emplace_back(error.what());
            if (certainty == Certainty::guessed) return;
            if (isTakenWhole(project)) return notSnapshotted(error.what());
            const auto* const known = dynamic_cast<const TidewrackError*>(&error);
            if (known != nullptr && known->isForWantOfRoom()) lose(project, noRoom);
            if (known != nullptr && known->systemError() == EIO) lose(project, errorText(EIO));
        }
    }

    // What a test on names takes of a folder is the turn's, and not all that is in there.
    void nameFound(const Project& project, const Manifest& manifest) {
        for (shell::FoundFiles found : decision_.found) {
            if (!found.certain) continue;
            found.folder = Store::canonical(found.folder);
            const bool isAround = isAtOrBelow(project.root, found.folder);
            if (!isAround && !isAtOrBelow(found.folder, project.root)) continue;
            std::vector<std::string> names;
            for (const Manifest::Item& item :
                 manifest.beginningWith(isAround ? "" : pathBelow(found.folder, project.root))) {
                if (item.entry.kind == EntryKind::dir) continue;
                std::string path = joined(project.root, item.path);
                if (isAtOrBelow(path, found.folder) && found.mayTake(path)) names.push_back(std::move(path));
                if (names.size() > mostFound) break;
            }
            if (names.size() <= mostFound) foundNames_.insert(foundNames_.end(), names.begin(), names.end());
        }
    }

    // The guard's reason may promise a snapshot of a project that was none to take one of.
    void explainPromise() {
        const std::string& root = decision_.verdict.promised;
        const auto& has = saved_.snapshotted;
        if (root.empty() || saved_.notSnapshotted || std::find(has.begin(), has.end(), root) != has.end()) return;
        if (!context_.noSaving().empty()) return notSnapshotted(context_.noSaving());
        notSnapshotted(context_.hasUnreadableRecord(root) ? "its record can't be read" : "it can't be found");
    }

    void noteGaps(const SnapshotResult& result, const Project& project) {
        const Gaps gaps = HookContext::gapsIn(result);
        for (std::string& note : HookContext::notesOnGaps(result)) gapNotes_.push_back(std::move(note));
        if (!isTakenWhole(project)) return;
        const auto late = static_cast<std::size_t>(result.late);
        if (saved_.gaps.count == 0) saved_.gaps.reason = gaps.count > 0 ? gaps.reason : noTimeLeft;
        saved_.gaps.count += gaps.count + late;
    }

    void skip(const Project& project, Certainty certainty) {
        saved_.notes.push_back("skipped " + loggedText(project.root));
        if (certainty == Certainty::guessed) return;
        if (isTakenWhole(project)) return notSnapshotted(noTimeLeft);
        lose(project, noTimeLeft);
    }

    // The project has no snapshot of what the command destroys.
    void lose(const Project& project, const std::string& reason) {
        KeptPaths kept(context_.handler.store.history(project), project);
        for (const std::string& path : destroyed_) {
            const auto holder = Store::projectContaining(path, context_.projects()); // not one around it
            if (holder && holder->id == project.id && exists(path) && !kept.leavesOut(path)) unsaved(path, reason);
        }
    }

    [[nodiscard]] bool isTakenWhole(const Project& project) const {
        return whole_.contains(project.id) || project.root == decision_.verdict.promised;
    }

    void notSnapshotted(std::string reason) {
        if (!saved_.notSnapshotted) saved_.notSnapshotted = std::move(reason);
    }

    void unsaved(const std::string& path, const std::string& reason) { noteUnsaved(context_, path, reason, saved_); }

    // What the command destroys of a project although its snapshot lists it alone, because it was too large or could
    // not be read, is left to the vault.
    void saveUnkept(const Project& project, const TakenSnapshot& taken) {
        for (const std::string& gone : destroyed_) {
            if (isAtOrBelow(project.root, gone)) return saveUnkept(project, taken, "");
            if (!isAtOrBelow(gone, project.root)) continue;
            const std::string_view relative = pathBelow(gone, project.root);
            saveUnkept(project, taken, relative);
            if (taken.manifest.lists(relative) || !exists(gone)) continue;
            if (rules(project).leavesOut(relative, isFolder(gone)))
                outside_.push_back(gone);
            else
                keepLeftOut(gone);
        }
    }

    const LeaveOutRules& rules(const Project& project) {
        const auto known = rules_.find(project.id);
        return known != rules_.end() ? known->second
                                     : rules_.emplace(project.id, LeaveOutRules::of(project)).first->second;
    }

    // What only its owner leaves out of the history is as worthy as what lies outside of it.
    bool isOwners(const Project& project, const Manifest::Item& item) {
        return item.entry.isIgnored() &&
               (item.entry.kind != EntryKind::dir || rules(project).leavesOut(item.path, true));
    }

    // Snapshots leave out what is made anew by a build or a download. A copy is worth no room, but where it takes none
    // it spares the wait.
    void keepLeftOut(const std::string& path) {
        if (lastComponent(path) == ".git") loseGitStore(std::string(parentOf(path)));
        leftOut_.push_back(path);
    }

    // A folder may hold many.
    void saveLeftOut() {
        sortAndDedupe(leftOut_);
        if (leftOut_.empty()) return;
        const std::string& store = context_.handler.store.home;
        const bool clones = volumeClones(store);
        const auto unshared = [&](const std::string& path) { return !clones || !sameVolume(path, store); };
        const auto end = std::stable_partition(leftOut_.begin(), leftOut_.end(), unshared);
        if (const auto count = end - leftOut_.begin(); count > 0)
            saved_.notes.push_back("not kept: " + loggedText(leftOut_.front()) +
                                   (count > 1 ? " and " + std::to_string(count - 1) + " more" : ""));
        guessedOutside_.insert(guessedOutside_.end(), end, leftOut_.end());
    }

    // No snapshot has git's own store, which goes with the folder. That of a linked work tree stays where it is.
    void loseGitStore(const std::string& folder) {
        attempt([&] {
            const auto git = gitStoreFor(folder);
            if (git && isAtOrBelow(git->common, folder)) loseGitStore(*git);
        });
    }

    void loseGitStore(const GitStore& git) {
        const auto isSame = [&](const GitStore& other) { return other.common == git.common; };
        if (std::none_of(lostStores_.begin(), lostStores_.end(), isSame)) lostStores_.push_back(git);
    }

    // What goes with a folder of the project, or with all of it.
    void saveUnkept(const Project& project, const TakenSnapshot& taken, std::string_view gone) {
        for (const Manifest::Item& item : taken.manifest.beginningWith(gone)) {
            if (!isAtOrBelow(item.path, gone)) continue;
            if (item.entry.notKept() || isOwners(project, item))
                saveUnkept(project, item);
            else if (item.entry.isIgnored())
                keepLeftOut(joined(project.root, item.path));
        }
        for (const std::string& folder : taken.omitted)
            if (isAtOrBelow(folder, gone) && folder != ".git") keepLeftOut(joined(project.root, folder));
        if (gone.empty()) loseGitStore(project.root);
    }

    void saveUnkept(const Project& project, const Manifest::Item& item) {
        std::string path = joined(project.root, item.path);
        switch (KeepFailure::fromBlob(item.entry.blob).why) {
        case KeepFailure::Why::late: return unsaved(path, noTimeLeft);
        case KeepFailure::Why::noRoom: return unsaved(path, noRoom);
        case KeepFailure::Why::none:
        case KeepFailure::Why::system:
        case KeepFailure::Why::changing: break;
        }
        outside_.push_back(std::move(path));
    }

    // A test on names may take such folders too.
    void leaveOutFound(const Project& project, const TakenSnapshot& taken) {
        for (shell::FoundFiles found : decision_.found) {
            if (!found.takesFolders) continue;
            found.folder = Store::canonical(found.folder);
            const auto look = [&](std::string_view relative) {
                const std::string path = joined(project.root, relative);
                if (isAtOrBelow(path, found.folder) && found.mayTake(path)) keepLeftOut(path);
            };
            for (const std::string& folder : taken.omitted) look(folder);
            for (const Manifest::Item& item : taken.manifest.items())
                if (item.entry.isIgnoredFolder() && !isOwners(project, item)) look(item.path);
        }
    }

    // The same where the command takes a part of a folder.
    void saveParts(const Project& project, const Manifest& manifest) {
        if (decision_.found.empty() && decision_.gitTakes.empty()) return;
        std::map<std::string, const Manifest::Item*> unkept;
        std::vector<std::string> paths;
        for (const Manifest::Item& item : manifest.items())
            if (item.entry.notKept() || isOwners(project, item))
                unkept.emplace(paths.emplace_back(joined(project.root, item.path)), &item);
        TakenParts parts = takenParts(paths, decision_, context_.gitPatience());
        for (std::string& path : parts.known) {
            if (isDestroyed(path)) continue; // and so is saved already
            saveUnkept(project, *unkept.at(path));
            destroyed_.push_back(std::move(path));
        }
        for (std::string& path : parts.guessed)
            if (!isDestroyed(path)) guessedOutside_.push_back(std::move(path));
    }

    // git's own state is worth a copy before git changes it, and never a question.
    void saveGitStates(const Deadline& deadline) {
        using WorkTrees = GitStore::WorkTrees;
        using Objects = Vault::Objects;
        std::map<std::string, std::pair<GitStore, shell::GitStoreUse>> stores;
        for (const shell::GitStoreUse& use : decision_.gitStores)
            attempt([&] {
                const auto git = gitStoreFor(use.folder, use.named);
                if (!git) return;
                if (use.goes && isAtOrBelow(git->common, use.folder)) return loseGitStore(*git);
                auto& all = stores.try_emplace(git->folder, *git, use).first->second.second;
                all.losesObjects = all.losesObjects || use.losesObjects;
                all.reachesOthers = all.reachesOthers || use.reachesOthers;
            });
        const auto save = [&](const GitStore& git, WorkTrees workTrees, Objects objects) {
            const auto entry = context_.handler.vault.saveGitState(git, workTrees, objects,
                                                                   vaultRequest(deadline, Certainty::guessed));
            if (entry) saved_.notes.push_back("git state of " + loggedText(git.root) + ": " + entry->id);
        };
        for (const auto& each : stores)
            attempt([&] {
                const auto& [git, use] = each.second;
                save(git, use.reachesOthers ? WorkTrees::all : WorkTrees::own,
                     use.losesObjects ? Objects::saved : Objects::left);
            });
        for (const GitStore& git : lostStores_) {
            attempt([&] { save(git, WorkTrees::all, Objects::saved); });
            bool isHeld = false;
            attempt([&] { isHeld = context_.handler.vault.holdsObjects(git); });
            saved_.losesGitHistory = saved_.losesGitHistory || !isHeld;
        }
    }

    [[nodiscard]] VaultRequest vaultRequest(const Deadline& deadline, Certainty certainty) const {
        return {.paths = {},
                .command = command_,
                .agent = std::string(context_.caller()),
                .cwd = context_.event.cwd,
                .session = context_.event.session,
                .turn = context_.event.turn,
                .deadline = deadline,
                .isGuess = certainty == Certainty::guessed};
    }

    void copyOutside(const std::vector<std::string>& paths, const Deadline& deadline, Certainty certainty) {
        try {
            const Vault& vault = context_.handler.vault;
            VaultRequest request = vaultRequest(deadline, certainty);
            request.paths = paths;
            const VaultSaved saved = vault.save(request);
            if (saved.entry) saved_.notes.push_back(noteOn(*saved.entry));
            if (certainty == Certainty::guessed) return;
            for (const VaultSaved::Path& path : saved.unsaved)
                if (isDestroyed(path.path)) unsaved(path.path, reasonFor(path.reason, vault));
        } catch (const std::exception& error) {
            saved_.failures.emplace_back(error.what());
        }
    }

    // Whether it is known that the command takes what stands at the path: a file that it names and neither moves nor
    // adds to, or what is in a folder that goes with all it holds.
    [[nodiscard]] bool isDestroyed(const std::string& path) const {
        const auto holds = [&](const std::string& gone) { return isAtOrBelow(path, gone); };
        return std::any_of(destroyed_.begin(), destroyed_.end(), holds);
    }

    // --- What the command may touch, by where it is kept safe ---

    void sortOut() {
        for (const std::string& target : decision_.targets)
            attempt([&] { sortOut(target); }, isIn(decision_.removed, target));
        sortAndDedupe(destroyed_);
        for (const std::string& folder : decision_.opaqueDirs) attempt([&] { addHolder(folder); });
        for (const std::string& folder : decision_.suspected)
            attempt([&] {
                if (const auto holder = context_.projectFor(folder)) guess(*holder);
            });
        for (const std::string& path : decision_.mentioned) attempt([&] { sortOutMentioned(path); });
    }

    template <typename Action>
    void attempt(Action action, bool mayHoldProjects = false) {
        try {
            action();
        } catch (const std::exception& error) {
            saved_.failures.emplace_back(error.what());
            if (mayHoldProjects) notSnapshotted(error.what());
        }
    }

    void sortOut(const std::string& target) {
        const std::string place = Store::canonicalPlace(target);
        const std::string end = Store::canonical(target);
        const bool isLink = end != place;
        const auto extent = isIn(decision_.removed, target) ? Extent::all : Extent::alone;
        named_.emplace_back(place, extent);
        if (isLink) named_.emplace_back(end, extent);
        if (goes(decision_, target, end)) destroyed_.insert(destroyed_.end(), {target, end});
        if (!addHolder(isLink ? std::string(parentOf(place)) : place)) {
            outside_.push_back(target);
            if (isIn(decision_.thinned, target)) destroyed_.insert(destroyed_.end(), {target, end});
        }
        // A link may be removed, or written through.
        const bool follows = !isLink || isFile(end) || isIn(decision_.followed, target);
        if (isLink && !addHolder(end) && follows) outside_.push_back(end);
        for (const Project& project : context_.projects()) {
            if (!isAtOrBelow(project.root, end) || !isFolder(project.root)) continue;
            add(project, projects_);
            whole_.insert(project.id);
            // Nobody was asked about a project unknown when the guard judged, and its snapshot lacks git's store.
            if (follows && context_.isUnjudged(project) && isIn(decision_.removed, target))
                outside_.push_back(isLink ? end : target);
        }
    }

    // That a path is mentioned is no reason to begin to track the repository that it lies in.
    void sortOutMentioned(const std::string& path) {
        if (const auto holder = Store::projectContaining(path, context_.projects()))
            guess(*holder);
        else if (!isIn(decision_.targets, path))
            guessedOutside_.push_back(path);
    }

    // A guess is worth a snapshot only where something changed since the last one.
    void guess(const Project& holder) {
        const auto isHolder = [&](const Project& project) { return project.id == holder.id; };
        if (std::none_of(projects_.begin(), projects_.end(), isHolder)) add(holder, guessed_);
    }

    // Adds the project that `path` lies in. False when there is none.
    bool addHolder(const std::string& path) {
        const auto holder = context_.projectFor(path);
        if (holder) add(*holder, projects_);
        return holder.has_value();
    }

    HookContext& context_;
    const std::string& command_;
    const shell::Decision& decision_;
    std::vector<Project> projects_;
    std::set<std::string> whole_;                       // ids of those of them that lie at or below a target
    std::vector<Project> guessed_;                      // in which something may change, by a guess
    std::vector<std::pair<std::string, Extent>> named_; // targets, to be noted as the turn's
    std::vector<std::string> foundNames_;               // what tests on names take of them
    std::vector<std::string> outside_;
    std::vector<std::string> guessedOutside_;
    std::vector<std::string> destroyed_; // sorted, each once
    std::vector<std::string> leftOut_;   // of that, what can be made anew
    std::vector<GitStore> lostStores_;   // that go with what the command destroys
    std::vector<std::string> gapNotes_;
    std::map<std::string, LeaveOutRules> rules_; // of projects, by id
    SavedBefore saved_;
};

} // namespace

SavePlan planSaving(HookContext& context, const shell::Decision& decision) {
    return Saving(context, "", decision, {}).plan();
}

SavedBefore saveBefore(HookContext& context, const std::string& command, const shell::Decision& decision,
                       const std::vector<std::string>& unkept) {
    return Saving(context, command, decision, unkept).run();
}

SavedBefore nothingSaved(const HookContext& context, const shell::Decision& decision, const std::string& why) {
    SavedBefore saved;
    saved.notSnapshotted = why;
    for (const std::string& target : decision.targets) {
        if (goes(decision, target, target) && exists(target)) noteUnsaved(context, target, why, saved);
    }
    return saved;
}

} // namespace tidewrack
