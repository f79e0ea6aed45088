#include "SnapshotWord.hpp"

#include "Args.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <ctime>
#include <utility>

namespace tidewrack {

namespace {

using std::chrono::seconds;

std::tm localTime(Date date) {
    const std::time_t time = secondsOf(date);
    std::tm parts{};
    ::localtime_r(&time, &parts);
    return parts;
}

// The date of a local clock's time. Fields that no calendar has, such as the 30th of February, give none.
std::optional<Date> dateOf(std::tm parts) {
    parts.tm_isdst = -1; // as the zone has it on that day
    std::tm normal = parts;
    const std::time_t time = std::mktime(&normal);
    const bool same =
        normal.tm_mday == parts.tm_mday && normal.tm_mon == parts.tm_mon && normal.tm_year == parts.tm_year;
    return same ? std::optional(Date(seconds(time))) : std::nullopt;
}

// Takes `length` digits off the front of `text`.
std::optional<int> takeDigits(std::string_view& text, std::size_t length) {
    int number = 0;
    if (text.size() < length) return std::nullopt;
    for (const char c : text.substr(0, length)) {
        if (c < '0' || c > '9') return std::nullopt;
        number = number * 10 + (c - '0');
    }
    text.remove_prefix(length);
    return number;
}

bool takeMark(std::string_view& text, char mark) {
    if (!text.starts_with(mark)) return false;
    text.remove_prefix(1);
    return true;
}

// "14:00" or "14:00:30", all of `text`. A minute is shown for all that happened in it, so it means its last second.
bool readClock(std::string_view text, std::tm& parts) {
    const auto hour = takeDigits(text, 2);
    if (!hour || *hour > 23 || !takeMark(text, ':')) return false;
    const auto minute = takeDigits(text, 2);
    if (!minute || *minute > 59) return false;
    const auto second = takeMark(text, ':') ? takeDigits(text, 2) : std::optional(59);
    if (!second || *second > 59 || !text.empty()) return false;
    parts.tm_hour = *hour;
    parts.tm_min = *minute;
    parts.tm_sec = *second;
    return true;
}

std::optional<Date> dayBefore(std::tm parts, Date otherwise) {
    --parts.tm_mday;
    parts.tm_isdst = -1;
    const std::time_t time = std::mktime(&parts); // also from the first of a month
    return time == -1 ? otherwise : Date(seconds(time));
}

// Whether a clock that shows `clock` has come to `date`: a minute has been when it has begun.
bool hasBeen(Date date, std::string_view clock, Date now) {
    return date - seconds(clock.size() == 5 ? 59 : 0) <= now;
}

std::optional<Date> clockTime(std::string_view word, Date now) {
    std::tm parts = localTime(now);
    if (!readClock(word, parts)) return std::nullopt;
    const auto today = dateOf(parts);
    return today && !hasBeen(*today, word, now) ? dayBefore(parts, *today) : today;
}

// "Thu 13:40", as this program writes it: the latest one that has been.
std::optional<Date> weekdayAndTime(std::string_view word, Date now) {
    constexpr std::array<std::string_view, 7> days = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    const auto day = std::find(days.begin(), days.end(), word.substr(0, 3));
    std::tm parts = localTime(now);
    const int back = (parts.tm_wday - static_cast<int>(day - days.begin()) + 7) % 7;
    if (day == days.end() || word.substr(3, 1) != " " || !readClock(word.substr(4), parts)) return std::nullopt;
    parts.tm_mday -= back;
    parts.tm_isdst = -1;
    const Date date{seconds(std::mktime(&parts))};
    if (hasBeen(date, word.substr(4), now)) return date;
    parts.tm_mday -= 7;
    parts.tm_isdst = -1;
    return Date(seconds(std::mktime(&parts)));
}

std::optional<Date> dayAndTime(std::string_view word) {
    std::tm parts{};
    const auto year = takeDigits(word, 4);
    if (!year || !takeMark(word, '-')) return std::nullopt;
    const auto month = takeDigits(word, 2);
    if (!month || *month < 1 || *month > 12 || !takeMark(word, '-')) return std::nullopt;
    const auto day = takeDigits(word, 2);
    if (!day || (!takeMark(word, 'T') && !takeMark(word, ' ')) || !readClock(word, parts)) return std::nullopt;
    parts.tm_year = *year - 1900;
    parts.tm_mon = *month - 1;
    parts.tm_mday = *day;
    return dateOf(parts);
}

// "today 14:00" and "yesterday 14:00".
std::optional<Date> dayAndClock(std::string_view word, Date now) {
    std::tm parts = localTime(now);
    const std::size_t blank = word.find(' ');
    const std::string_view day = word.substr(0, blank);
    if (blank == std::string_view::npos || !readClock(word.substr(blank + 1), parts)) return std::nullopt;
    if (day == "yesterday") return dayBefore(parts, now);
    return day == "today" ? dateOf(parts) : std::nullopt;
}

std::optional<seconds> unitOf(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, seconds>, 5> units = {{{"second", seconds(1)},
                                                                            {"minute", std::chrono::minutes(1)},
                                                                            {"hour", std::chrono::hours(1)},
                                                                            {"day", std::chrono::hours(24)},
                                                                            {"week", std::chrono::hours(168)}}};
    for (const auto& [whole, length] : units)
        if (name == whole.substr(0, 1) || name == whole ||
            (name.ends_with('s') && name.substr(0, name.size() - 1) == whole))
            return length;
    if (name == "sec" || name == "secs") return units[0].second;
    if (name == "min" || name == "mins") return units[1].second;
    return std::nullopt;
}

// "2h", "2 hours", "2 hours ago".
std::optional<Date> ago(std::string_view word, Date now) {
    constexpr std::chrono::hours most(24 * 36500); // no history is older
    if (word.ends_with(" ago")) word.remove_suffix(4);
    std::int64_t count = 0;
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, count);
    if (error != std::errc() || count < 0 || word.starts_with('-')) return std::nullopt;
    word.remove_prefix(static_cast<std::size_t>(stop - word.data()));
    if (word.starts_with(' ')) word.remove_prefix(1);
    const auto unit = unitOf(word);
    if (!unit) return std::nullopt;
    return now - std::min(count, most / *unit) * *unit;
}

std::optional<Date> timeOf(std::string_view word, Date now) {
    if (word == "yesterday") return dayBefore(localTime(now), now);
    if (const auto date = ago(word, now)) return date;
    if (const auto date = clockTime(word, now)) return date;
    if (const auto date = weekdayAndTime(word, now)) return date;
    if (const auto date = dayAndClock(word, now)) return date;
    return dayAndTime(word);
}

} // namespace

std::optional<SnapshotWord> snapshotWord(std::string_view word, Date now) {
    using Kind = SnapshotWord::Kind;
    if (const auto number = snapshotNumber(word)) return SnapshotWord{Kind::number, *number, {}};
    if (word == "last") return SnapshotWord{Kind::newest, 0, {}};
    if (word == "last-turn") return SnapshotWord{Kind::lastTurn, 0, {}};
    if (const auto time = timeOf(word, now)) return SnapshotWord{Kind::time, 0, *time};
    return std::nullopt;
}

std::string clockText(Date date, Date now) {
    const std::tm parts = localTime(date);
    const bool recent = date <= now && now - date < std::chrono::hours(6 * 24);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), recent ? "%a %H:%M" : "%Y-%m-%d %H:%M", &parts);
    return {text.data(), length};
}

} // namespace tidewrack
