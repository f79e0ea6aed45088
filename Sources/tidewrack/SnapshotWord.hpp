#pragma once
// What a user may write in place of a snapshot's number.

#include "Support/Dates.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

struct SnapshotWord {
    enum class Kind {
        number,   // "12", "#12"
        newest,   // "last"
        lastTurn, // "last-turn": before the newest turn
        time,     // the newest snapshot at or before it
    };
    Kind kind = Kind::number;
    std::int64_t number = 0;
    Date time{};

    bool operator==(const SnapshotWord&) const = default;
};

// Reads such a word. Times are "45s", "30m", "2h", "3d" and "1w", or "10 minutes ago" (so long ago), "yesterday" (at
// this time of day), "yesterday 14:00", "14:00" and "Thu 14:00" (the latest one that has been) and "2026-11-19T13:40",
// or a space for the T. Clock times are local ones, with seconds where wanted; without them the end of the minute is
// meant.
[[nodiscard]] std::optional<SnapshotWord> snapshotWord(std::string_view word, Date now);

// "Thu 13:40", or "2026-11-19 13:40" from six days on; local time.
[[nodiscard]] std::string clockText(Date date, Date now);

} // namespace tidewrack
