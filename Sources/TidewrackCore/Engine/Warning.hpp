#pragma once
// What a snapshot or a comparison could not do, or did in another way. The words for it are made where it is shown.

#include "Store/KeepFailure.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace tidewrack {

// How much of an unread place the earlier listing knows, and the new one therefore keeps.
enum class Kept : std::uint8_t { nothing, partly, all };

struct Warning {
    enum class Kind : std::uint8_t {
        notSaved,           // the content at `path`, for `failure`
        savedInPart,        // the file at `path` was being written to
        previousUnreadable, // the listing of snapshot `source`, as `detail` says: everything was kept anew
        gitLate,            // git did not say in time what it ignores; the listing of snapshot `source` does
        gitFailed,          // git could not say it at all; the same
        unread,             // the folder at `path`, or these `entries` of it, for `failure`; `kept` as in `source`
        unseenYet,          // of a dry run: what is in the folder at `path`, before that is opened
        leftOutNow,         // these `entries` by the project's own rules; snapshot `source` still has them
        noRoom,             // for the contents of `source` files, `path` one of them: the volume is almost full
        pruneFailed,        // as `detail` says
        listingUnread,      // that of snapshot `source`, as `detail` says: what it holds can't be told
        notCompared,        // the folder with snapshot `source`, as `detail` says
    };

    Kind kind = Kind::notSaved;
    std::string path{}; // project-relative; empty: the project folder
    KeepFailure failure{};
    std::vector<std::string> entries{};
    Kept kept = Kept::nothing;
    std::int64_t source = 0;  // 0: there is no such snapshot
    bool isPrevious = false;  // whether `source` is the one before
    bool isOfSnapshot = true; // which records what it sees; a comparison takes it
    std::string detail{};

    bool operator==(const Warning&) const = default;
};

} // namespace tidewrack
