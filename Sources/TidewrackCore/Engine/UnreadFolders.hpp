#pragma once
// What becomes of places that a walk could not read: the listing keeps what an earlier one knows of them, for a folder
// that can't be opened for a moment must not be recorded as empty.

#include "Engine/Warning.hpp"
#include "Store/History.hpp"
#include "Store/Manifest.hpp"
#include "Walk/Walker.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

// Adds to the listing what `earlier` has at and below the unread places, as far as the walk has not found it. What may
// not be read is passed over: whoever has no right to a folder has nothing of it kept. Tells of each place.
[[nodiscard]] std::vector<Kept> keepUnread(const std::vector<Walker::Unread>& unread, const Manifest& earlier,
                                           Manifest& listing);

// The newest listing that can be read. It is looked for when it is first asked for, since it seldom is.
class NewestListing {
  public:
    // `known` is that of snapshot `seq`; 0: of none. All arguments must outlive this.
    NewestListing(const History& history, std::int64_t seq, const Manifest& known)
        : history_(history), seq_(seq), known_(known) {}

    [[nodiscard]] const Manifest& get();
    [[nodiscard]] std::int64_t seq() const { return seq_; } // whose that is

  private:
    const History& history_;
    std::int64_t seq_;
    const Manifest& known_;
    bool looked_ = false;
    std::optional<Manifest> newer_;
};

// What a walk could not see.
struct Unseen {
    std::vector<Walker::Unread> places;
    GitOutcome git;

    explicit Unseen(const Walker& walker) : places(walker.unread()), git(walker.gitOutcome()) {}
};

// Who walked: a snapshot, or a comparison with the folder as it is.
struct UnseenBy {
    bool isSnapshot = false;
    std::int64_t previous = 0; // the snapshot before it, if any
};

// Completes the listing with what the newest one has instead. One warning for each place, and one where git gave
// no answer.
[[nodiscard]] std::vector<Warning> addUnseen(const Unseen& unseen, NewestListing& newest, const UnseenBy& by,
                                             Manifest& listing);

} // namespace tidewrack
