#pragma once
// Points in time and their ISO 8601 text.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

// Whole seconds since the epoch, UTC.
using Date = std::chrono::sys_seconds;

[[nodiscard]] constexpr std::int64_t secondsOf(Date date) {
    return date.time_since_epoch().count();
}

// The current time, without its fraction of a second.
[[nodiscard]] Date now();

// "2025-01-02T03:04:05Z"
[[nodiscard]] std::string isoText(Date date);

// Reads exactly that form; a fraction of a second is accepted and dropped. None for anything else, and for dates
// that no calendar has.
[[nodiscard]] std::optional<Date> parseIsoDate(std::string_view text);

} // namespace tidewrack
