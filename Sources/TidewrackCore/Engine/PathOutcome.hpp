#pragma once
// What becomes of one path in a restore or undo: facts, of which the reports make sentences.

#include "Store/Manifest.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace tidewrack {

// Why a path is left alone.
struct Obstacle {
    enum class Reason : std::uint8_t {
        none,
        systemError,       // `error`
        notInHistory,      // the safety snapshot does not list what is there
        notSavedFirst,     // it is listed and could not be kept; `detail` is the blob in its place
        changedSince,      // after the safety snapshot; `detail`: the name beside it that this version has now, if any
        folderInTheWay,    // one that can't be removed, because history does not hold all of it
        folderHoldsMore,   // one in the way holds something that was not to be removed
        somethingInTheWay, // of a folder to be made; `detail` is "file", "symlink" or "other"
        notKeptThen,       // by the snapshot gone back to; `detail` is the blob in its place
        damaged,           // what was kept is not as large as it was
        ignoredByGit,      // the content of the folder is not in history
        unreadThen,        // the folder, when the snapshot gone back to was taken
        parentNotMade,     // `parent`, `error`
        parentUnreachable, // `parent`, `error`
        parentIsLink,      // `parent`; `detail` is where it leads
        parentIsFile,      // `parent`
        contentNotBack,    // that of what is there could not be restored as `detail`, and would have no name at all
        notInSnapshot,     // the path was asked for by name, and the snapshot gone back to lacks it
    };

    Reason reason = Reason::none;
    int error = 0; // an errno value
    std::string parent{};
    std::string detail{};

    explicit operator bool() const { return reason != Reason::none; }
    bool operator==(const Obstacle&) const = default;

    static Obstacle system(int error) { return {Reason::systemError, error}; }
};

struct PathOutcome {
    enum class Action : std::uint8_t {
        restored, // written or made
        removed,
        notRestored, // up to `skipped` with an obstacle: what was to be done, and was not
        notRemoved,
        notCreated,
        notReplaced,
        kept,         // a folder on purpose
        keptContents, // what is in a folder
        skipped,
        recovered,        // what a restore that was cut short had left of it is at `found`, and in the safety snapshot
        recoveredUnsaved, // the same where that snapshot could not keep it
        toRecover,        // the same in a dry run: `found` is where it is going to be
        givenBack,        // a restore that was cut short had moved it aside: it has its name again
        toGiveBack,       // the same in a dry run
        leftover,         // a restore that was cut short left it, and it could not be cleared away
        missing,          // there is nothing to be done
    };

    std::string path; // project-relative
    Action action = Action::restored;
    EntryKind kind = EntryKind::file; // of what was restored or removed
    Obstacle obstacle{};
    std::string found{}; // project-relative: where something that was recovered is

    bool operator==(const PathOutcome&) const = default;
};

// The paths with that action, sorted.
[[nodiscard]] std::vector<std::string> pathsOf(const std::vector<PathOutcome>& outcomes, PathOutcome::Action action);
// How many files and links have it.
[[nodiscard]] std::size_t filesAmong(const std::vector<PathOutcome>& outcomes, PathOutcome::Action action);
// Why the recorded item can't be replaced or removed without loss, as far as the listing tells; none when it can.
[[nodiscard]] Obstacle obstacleIn(const Entry& recorded);

} // namespace tidewrack
