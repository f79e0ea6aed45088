#pragma once
// What taking back a part of the history means for each path, when others have worked on since. Pure but for the
// contents, which the caller hands out.

#include "Changes/LineDiff.hpp"
#include "Store/Manifest.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Something to be taken back: what happened between two listings.
struct UndoStep {
    Manifest before;
    Manifest after;
    // Who else was at work between the two, in words: what changed here is nobody's for sure. Empty: nobody.
    std::string company;
};

// How contents are looked at. Entries are those of the listings planned from.
struct UndoContents {
    std::function<bool(const Entry&, const Entry&)> same; // two of one kind, mode and size whose blobs differ
    std::function<LineDiff::Content(const Entry&)> read;  // of a kept file
};

struct UndoOptions {
    // Paths that were changed since are put back whole all the same, or are left alone without a word.
    enum class Later { merged, overwritten, kept };
    Later later = Later::merged;
    std::function<bool(std::string_view)> scope; // empty: everything
};

struct UndoAction {
    enum class Kind {
        putBack,   // something that is not there now
        remove,    // what was added
        overwrite, // what is there, with what was there before
        merge,     // the same, with the lines changed since
        leave,     // nothing: `reason` tells why
        keep,      // nothing, as was asked for: it was changed since
    };
    enum class Reason {
        none,
        clash,    // the same lines were changed since
        changed,  // changed since, and no text
        tooLarge, // changed since, and too large to be merged
        deleted,  // deleted since
        madeAnew, // deleted then, and made anew since
        company,  // somebody else was at work at the same time
        notKept,  // what stood there before is not in history
    };
    std::string path;
    Kind kind = Kind::leave;
    Reason reason = Reason::none;
    bool folder = false;
    const Entry* wanted = nullptr; // for putBack and overwrite, in one of the listings
    std::string merged;            // for merge: the content
    std::uint16_t mode = 0;        // and the permission bits
    std::string detail;            // for Reason::company and notKept, in words

    [[nodiscard]] bool isLeft() const { return kind == Kind::leave; }
    [[nodiscard]] bool acts() const { return kind != Kind::leave && kind != Kind::keep; }
};

// What to do at each path that is not as it should be, sorted by path. `steps` newest first; `now` is the folder. Both
// must outlive the actions. By state: a path that was touched, or changed and changed back, was not changed.
[[nodiscard]] std::vector<UndoAction> planUndo(const std::vector<UndoStep>& steps, const Manifest& now,
                                               const UndoOptions& options, const UndoContents& contents);

} // namespace tidewrack
