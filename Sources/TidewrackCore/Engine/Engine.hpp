#pragma once
// The operations on a tracked project's history.
//
// Operations that change it take the project's lock for their whole duration; those named "...Locked" are given it.
// Work on one path never stops the others: it ends in a warning line. Everything else throws TidewrackError.

#include "Changes/Changes.hpp"
#include "Engine/NotKept.hpp"
#include "Engine/RestorePlan.hpp"
#include "Engine/Temporaries.hpp"
#include "Engine/Warning.hpp"
#include "Platform/Deadline.hpp"
#include "Store/Store.hpp"
#include "Walk/GitIgnore.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct SnapshotRequest {
    std::string kind;
    std::optional<std::string> label;
    std::optional<std::string> agent;
    std::optional<std::string> session;
    std::optional<std::string> turn;
    // After it the lock is not waited for any longer, and contents not kept by then count as unreadable: the snapshot
    // is recorded without them, and the next one tries again.
    Deadline deadline = std::nullopt;
    // All tracked projects, when the caller has just read the registry and keeps them for the call; null: it is read. A
    // project tracked inside this one since then is still listed as a part of it, as in every older snapshot.
    const std::vector<Project>* registry = nullptr;
    bool onlyChanges = false; // where nothing changed no record is written; the result is the newest snapshot's
    std::optional<bool> background = std::nullopt;      // of a prompt, as in SnapshotMeta
    std::optional<TurnEnd> end = std::nullopt;          // of a stop, likewise
    std::optional<std::string> reversal = std::nullopt; // of a safety snapshot: SnapshotMeta::reversal
    GitIgnore::Patience* gitPatience = nullptr;         // for callers that have less of it; null: the engine's
};

struct SnapshotResult {
    SnapshotMeta meta;
    Changes changes; // since the previous snapshot
    std::vector<Warning> warnings;
    std::int64_t late = 0; // contents that were not kept because of the deadline
    // Contents that could not be kept for another reason, such as a full disk. What was gone by then is not among them.
    std::int64_t unsaved = 0;
    std::optional<Warning> firstUnsaved;
    NotKept notKept; // what it lists without its content
};

struct PruneResult {
    std::vector<std::int64_t> removedSnapshots; // or those that would be removed, in a dry run
    std::int64_t removedBlobs = 0;              // kept contents deleted, or that would be
    // Of a dry run: which contents and manifests would go.
    std::vector<std::string> contents;
    std::vector<std::int64_t> manifests;
};

struct RestoreResult {
    SnapshotMeta safety;                 // taken before anything was changed
    std::vector<Warning> safetyWarnings; // of that snapshot: what it could not keep is not replaced either
    std::int64_t target = 0;             // the snapshot gone back to
    std::vector<PathOutcome> outcomes; // in the order of work; where a folder and a file changed places a path has two
    int flushError = 0;                // an errno value: why what was restored may not be on the disk yet
    bool leavesTemporaries = false;    // of its own, for the next restore to clear up

    // Of an undo: whether the turn changed nothing; up to which snapshot it undid, where those in between were pruned.
    bool nothingInScope = false;
    std::optional<std::int64_t> prunedUpTo;

    // Of a dry run: which of the restored paths are there now.
    std::set<std::string, std::less<>> overwritten;
};

// What a restore records of itself.
struct Reversal {
    std::string by = "restore";
    std::vector<Stretch> tookBack;   // recorded only when no path was left alone
    std::optional<std::int64_t> seq; // the number that keepTexts has taken for the record
};

// How far a long operation has come, for a progress line; may be called from several threads.
using Progress = std::function<void(const char* what, std::size_t count)>;

// A snapshot with what the restore that asked for it goes on with.
struct TakenSnapshot {
    SnapshotResult result;
    Manifest manifest;
    Interrupted interrupted;
    std::set<std::string, std::less<>> compared; // the paths that keepUnseen has compared
    std::vector<std::string> omitted;            // folders in no listing, for their names: relative to the root
};

class Engine {
  public:
    explicit Engine(Store owner) : store(std::move(owner)) {}
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    const Store store;
    Progress progress;                                                       // may be empty
    mutable GitIgnore::Patience gitPatience = GitIgnore::patienceOfCommands; // left for all walks, one after the other

    // --- Snapshots ---
    // Also prunes when the latest automatic prune is more than an hour old and there is time left.
    SnapshotResult snapshot(const Project& project, const SnapshotRequest& request) const;
    // The same with its listing.
    TakenSnapshot snapshotListed(const Project& project, const SnapshotRequest& request) const;
    enum class Unchanged { soon, waits }; // whether a record without a change waits for the disk
    TakenSnapshot snapshotLocked(const ProjectLock& lock, const Project& project, const SnapshotRequest& request,
                                 Unchanged unchanged = Unchanged::soon) const;
    // What a walk of the project passes over, relative to its root: the roots of other tracked projects inside it.
    [[nodiscard]] std::set<std::string, std::less<>> nestedRoots(const Project& project,
                                                                 const std::vector<Project>& registry) const;
    // Where the content of a file as of a snapshot is kept; `path` is absolute or relative to the root. None for
    // folders, links and paths that the snapshot lacks. The file may be missing: then the content was not kept.
    [[nodiscard]] std::optional<std::string> contentPath(const Project& project, std::int64_t seq,
                                                         const std::string& path) const;
    // Throws TidewrackError refused when the project's root is gone or no folder any more.
    static void checkRoot(const Project& project);
    // A relative path without "./" before it and slashes behind it; empty for ".".
    [[nodiscard]] static std::string clean(std::string_view path);
    // A user's path as a project-relative one. Throws refused "<path> is outside <root>."
    [[nodiscard]] static std::string relative(const Project& project, const std::string& path);

    // --- Retention ---
    // Removes the snapshots that planRetention names, also those that have to go for want of room, and the contents
    // that no remaining one names. A dry run only reads, and waits for nobody; one up to `upTo` takes all that may go.
    PruneResult prune(const Project& project, Date now, bool dryRun) const;
    [[nodiscard]] PruneResult foreseePrune(const Project& project, Date now, std::optional<Date> upTo) const;
    // Which contents are looked at: all, or those alone that the removed snapshots can have been the last to name. That
    // is enough where every earlier prune and snapshot came to its end; where one did not it becomes all.
    enum class Sweep { everything, freed };
    PruneResult pruneLocked(const ProjectLock& lock, const Project& project, Date now, Sweep sweep = Sweep::everything,
                            std::optional<Date> upTo = std::nullopt) const;
    void setPinned(const Project& project, std::int64_t seq, bool pinned) const; // Throws TidewrackError noSnapshot.

    // --- Restore and undo ---
    // A dry run makes the same plan from the folder as it is, and carries out nothing: no lock, no safety snapshot.
    enum class Acting { forReal, dryRun };
    // Puts the project, or these `paths` (absolute or relative), back to snapshot `to`; with `removeNew` what was added
    // since is removed. Throws TidewrackError noSnapshot, refused or corrupt.
    RestoreResult restore(const Project& project, std::int64_t to, const std::optional<std::vector<std::string>>& paths,
                          bool removeNew, Acting acting = Acting::forReal) const;
    // Takes back what changed between snapshot `turn` and the one that follows it; with `paths`, as above, there alone.
    using Paths = std::optional<std::vector<std::string>>;
    RestoreResult undo(const Project& project, std::int64_t turn, const Paths& paths = std::nullopt,
                       Acting acting = Acting::forReal) const;
    // The same for what changed between two snapshots; `to` absent: up to now. `label` is the safety snapshot's.
    RestoreResult undo(const Project& project, std::int64_t from, std::optional<std::int64_t> to,
                       const std::optional<std::string>& label, const Paths& paths = std::nullopt,
                       Acting acting = Acting::forReal) const;

    // Clears up after restores that were cut short, as the next one would, where there will be none: the history goes.
    std::vector<PathOutcome> clearUp(const Project& project, Acting acting) const;
    // The same as it is going to be, for a dry run: all that `remaining` names can be cleared.
    [[nodiscard]] Interrupted foreseeInterrupted(const Project& project) const;
    // What every restore begins with: it clears up after those that were cut short, and takes the safety snapshot.
    [[nodiscard]] TakenSnapshot safetySnapshot(const ProjectLock& lock, const Project& project,
                                               const SnapshotRequest& request) const;
    // A change through a shared mapping leaves the times alone, so a snapshot can't see it. Files about to be replaced
    // or removed are therefore compared, once each, with what is kept; where they differ the content on the disk
    // becomes the safety snapshot's own. Returns whether the listing of `safety` changed.
    using Scope = std::function<bool(std::string_view)>;
    bool keepUnseen(const ProjectLock& lock, const Project& project, const Scope& touched, TakenSnapshot& safety) const;
    // What every restore comes down to: what is in `scope` becomes as `target` lists it, where it is as `safety` has
    // it. `safety` gains what it could not see, and its record with it.
    struct Target {
        // None: put together path by path, so that all that it lacks is known to be superfluous.
        std::optional<std::int64_t> seq;
        Manifest manifest;
    };
    RestoreResult apply(const ProjectLock& lock, const Project& project, const Target& target, const Scope& scope,
                        TakenSnapshot& safety, bool removeNew, const Reversal& reversal) const;
    // What apply would do, from the listings alone.
    [[nodiscard]] RestoreResult aim(const Project& project, const Target& target, const Scope& scope,
                                    const TakenSnapshot& present, bool removeNew) const;
    // Keeps texts that no snapshot has seen as contents of the record to come; returns how a target names them. Where
    // there are any, `reversal.seq` becomes that record's number.
    std::vector<std::string> keepTexts(const ProjectLock& lock, const Project& project,
                                       const std::vector<std::string>& texts, Reversal& reversal) const;

    // --- Differences ---
    // `to` absent: the folder as it is now. What of it could not be seen is as in the newest snapshot, with warnings.
    [[nodiscard]] Changes diff(const Project& project, std::int64_t from, std::optional<std::int64_t> to,
                               std::vector<Warning>* warnings = nullptr) const;
    [[nodiscard]] std::vector<FileChange> fileChanges(const Project& project, std::int64_t from,
                                                      std::optional<std::int64_t> to) const;
    // Both sides' entries for callers that show contents; blobs of the second side may begin with "live:".
    struct Sides {
        Manifest older;
        Manifest newer;
        std::vector<Warning> warnings;
    };
    [[nodiscard]] Sides sides(const Project& project, std::int64_t from, std::optional<std::int64_t> to) const;

  private:
    void pruneIfDue(const ProjectLock& lock, const Project& project, std::int64_t age, SnapshotResult& result) const;
    static std::vector<std::string> relativePaths(const Project& project, const Paths& paths);
    [[nodiscard]] std::set<std::string, std::less<>> notIn(const Manifest& target, const Project& project) const;
    [[nodiscard]] TakenSnapshot presentState(const Project& project) const;
    Interrupted clearInterrupted(const ProjectLock& lock, const Project& project) const;
    [[nodiscard]] std::int64_t nextSeq(const History& history, std::optional<std::int64_t> newest) const;
    friend class RestoreRun;
    void recordAfterRestore(const ProjectLock& lock, const Project& project, const TakenSnapshot& safety,
                            const Manifest& after, SnapshotMeta meta) const;
    enum class Unknown { question, livePath, asKept }; // what stands for a content that no snapshot holds
    [[nodiscard]] Sides sidesNow(const Project& project, std::int64_t from, Unknown unknown) const;
    [[nodiscard]] Sides sidesThen(const Project& project, std::int64_t from, std::int64_t to) const;
};

} // namespace tidewrack
