#include "Support/Dates.hpp"

#include <charconv>
#include <cstdio>

namespace tidewrack {

namespace {

bool digits(std::string_view text, std::size_t at, std::size_t count, int& out) {
    for (std::size_t i = at; i < at + count; ++i)
        if (text[i] < '0' || text[i] > '9') return false;
    std::from_chars(text.data() + at, text.data() + at + count, out);
    return true;
}

bool validTail(std::string_view tail) {
    if (tail == "Z") return true;
    if (tail.size() < 3 || tail.front() != '.' || tail.back() != 'Z') return false;
    return tail.substr(1, tail.size() - 2).find_first_not_of("0123456789") == std::string_view::npos;
}

} // namespace

Date now() {
    return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

std::string isoText(Date date) {
    const auto day = std::chrono::floor<std::chrono::days>(date);
    const std::chrono::year_month_day calendar(day);
    const std::chrono::hh_mm_ss time(date - day);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(calendar.year()),
                  static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text;
}

std::optional<Date> parseIsoDate(std::string_view text) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (text.size() < 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' || text[16] != ':')
        return std::nullopt;
    if (!digits(text, 0, 4, year) || !digits(text, 5, 2, month) || !digits(text, 8, 2, day) ||
        !digits(text, 11, 2, hour) || !digits(text, 14, 2, minute) || !digits(text, 17, 2, second) ||
        !validTail(text.substr(19)))
        return std::nullopt;
    const std::chrono::year_month_day calendar{std::chrono::year(year),
                                               std::chrono::month(static_cast<unsigned>(month)),
                                               std::chrono::day(static_cast<unsigned>(day))};
    if (!calendar.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    return std::chrono::sys_days(calendar) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
           std::chrono::seconds(second);
}

} // namespace tidewrack
