#pragma once
// What taking back a part of the history means for each path, when others have worked on since. Pure except for the
// contents, which the caller hands out.

#include "Changes/LineDiff.hpp"
#include "Store/Manifest.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Something to be taken back: what happened between two listings.
struct UndoStep {
    using Paths = std::set<std::string, std::less<>>;

    Manifest before;
    Manifest after;
    // Why it can't be told whose changes these are, in words; empty where it can.
    std::string doubt;
    // What this work and what other people named in that time before they changed it, and what they had named since
    // this work began. With a folder all that is in it is named, unless folderAlone stands behind it.
    struct Named {
        Paths then;
        Paths ever;
    };
    Named own;
    Named others;
    // Of a restore or undo: what was in folders before that could not be read then, and is listed since it opened them.
    // None: that is not known.
    std::optional<Paths> found;

    // Named in that time by one alone, and never by the other.
    [[nodiscard]] bool isOwn(const std::string& path, bool folder) const;
    [[nodiscard]] bool isOthers(const std::string& path, bool folder) const;
};

// How contents are looked at. Entries are those of the listings planned from.
struct UndoContents {
    std::function<bool(const Entry&, const Entry&)> same; // two of one kind, mode and size whose blobs differ
    std::function<LineDiff::Content(const Entry&)> read;  // of a kept file
    std::function<bool(const Entry&)> isWhole;            // whether what was kept is there and as large as it was
    // A name in a folder of the project that no listing has because history passes over it; empty: none.
    std::function<std::string(const std::string&)> unlisted;
    // What stands on the disk at a path that no listing has because git ignores a folder around it; none: nothing does.
    std::function<std::optional<Entry>(const std::string&)> unseen;
};

struct UndoOptions {
    // Paths that were changed since are put back whole all the same, or are left alone without a word.
    enum class Later { merged, overwritten, kept };
    Later later = Later::merged;
    std::function<bool(std::string_view)> scope;       // empty: everything
    std::set<std::string, std::less<>> nestedRoots{};  // other projects inside this one, relative
    std::function<bool(std::string_view)> leavesOut{}; // whether the owner's rules leave out the path; empty: none
    // Of the one file in scope, which one step alone changed, only these hunks; empty: all of it.
    LineDiff::ChosenHunks hunks{};
    bool readsEverything = false; // the user reads folders whatever their mode, as root does
};

struct UndoAction {
    enum class Kind {
        putBack,   // something that is not there now
        remove,    // what was added
        overwrite, // what is there, with what was there before
        merge,     // the same, with the lines changed since
        leave,     // nothing: `reason` tells why
        keep,      // nothing, and nothing is amiss: as was asked for, or what history passes over is in the way
    };
    enum class Reason {
        none,
        clash,    // the same lines were changed since
        changed,  // changed since, and no text
        tooLarge, // changed since, and too large to be merged
        deleted,  // deleted since
        madeAnew, // deleted then, and made anew since
        doubt,    // it can't be told whose change it was
        notKept,  // what stood there before is not in history
        damaged,  // what was kept of it is gone or cut short
        hidden,   // it lies in a folder that history does not look into any more
        ignored,  // a folder that git ignores
        unlisted, // a folder with something in it that history passes over
        blocked,  // a folder that it lay in is none any more, or it holds what can't be put back where it lay
        obstacle, // the restore of it was refused
    };
    std::string path;
    Kind kind = Kind::leave;
    Reason reason = Reason::none;
    bool folder = false;
    std::optional<Entry> wanted; // for putBack and overwrite; its blob is one of the listings'
    std::string merged;          // for merge: the content
    std::uint16_t mode = 0;      // and the permission bits
    std::string detail;          // for Reason::doubt, notKept, hidden, unlisted and blocked: in words
    bool forcible = false;       // left alone, and Later::overwritten would not leave it

    [[nodiscard]] bool isLeft() const { return kind == Kind::leave; }
    [[nodiscard]] bool acts() const { return kind != Kind::leave && kind != Kind::keep; }
    // Left alone, or kept as was asked for, for the sake of others' work.
    [[nodiscard]] bool isForOthers() const {
        return !acts() && (isLater(reason) || reason == Reason::doubt || reason == Reason::blocked);
    }
    // The reason is a change that came later.
    [[nodiscard]] static bool isLater(Reason reason);
};

// What to do at each path that is not as it should be, sorted by path. `steps` newest first; `now` is the folder. Both
// must outlive the actions. A step's listings need no more than what differs, and the folders that git ignores. By
// state: a path that was touched, or changed and changed back, was not changed.
[[nodiscard]] std::vector<UndoAction> planUndo(const std::vector<UndoStep>& steps, const Manifest& now,
                                               const UndoOptions& options, const UndoContents& contents);

// After some of the actions, sorted by path, turned out to leave what is there: folders around it stay as well.
void keepFoldersOfLeft(std::vector<UndoAction>& actions);

} // namespace tidewrack
