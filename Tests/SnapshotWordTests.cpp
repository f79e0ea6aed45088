#include "SnapshotWord.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

using namespace tidewrack;
using Kind = SnapshotWord::Kind;

namespace {

// Until its end the process lives in this time zone.
class Zone {
  public:
    explicit Zone(const char* name) {
        if (const char* old = std::getenv("TZ")) before_ = old;
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    ~Zone() {
        before_ ? ::setenv("TZ", before_->c_str(), 1) : ::unsetenv("TZ");
        ::tzset();
    }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;

  private:
    std::optional<std::string> before_;
};

} // namespace

TEST(SnapshotWord, readsNumbersNamesAndTimes) {
    const Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
    const Date now = *parseIsoDate("2026-11-20T12:00:30Z"); // 13:00:30 there, a Friday
    const struct {
        const char* word;
        const char* time;
    } times[] = {
        {"45s", "2026-11-20T11:59:45Z"},
        {"30m", "2026-11-20T11:30:30Z"},
        {"2h", "2026-11-20T10:00:30Z"},
        {"3d", "2026-11-17T12:00:30Z"},
        {"1w", "2026-11-13T12:00:30Z"},
        {"1 minute", "2026-11-20T11:59:30Z"},
        {"10 minutes ago", "2026-11-20T11:50:30Z"},
        {"2h ago", "2026-11-20T10:00:30Z"},
        {"3 days ago", "2026-11-17T12:00:30Z"},
        {"yesterday", "2026-11-19T12:00:30Z"},
        {"yesterday 14:00", "2026-11-19T13:00:59Z"},
        {"today 09:05:30", "2026-11-20T08:05:30Z"},
        {"13:00", "2026-11-20T12:00:59Z"},     // all of the minute, which goes on
        {"13:01", "2026-11-19T12:01:59Z"},     // today's is yet to come
        {"Fri 13:00", "2026-11-20T12:00:59Z"}, // as it is shown
        {"Fri 13:01", "2026-11-13T12:01:59Z"},
        {"Thu 13:40", "2026-11-19T12:40:59Z"},
        {"Sat 13:40:05", "2026-11-14T12:40:05Z"},
        {"2026-11-12 13:40", "2026-11-12T12:40:59Z"},
        {"13:00:31", "2026-11-19T12:00:31Z"},
        {"2026-11-19T13:40", "2026-11-19T12:40:59Z"},
        {"2026-07-01T13:40:05", "2026-07-01T11:40:05Z"}, // summer time
    };
    for (const auto& row : times)
        EXPECT_EQ(snapshotWord(row.word, now), (SnapshotWord{Kind::time, 0, *parseIsoDate(row.time)})) << row.word;
    EXPECT_EQ(snapshotWord("#12", now), (SnapshotWord{Kind::number, 12, {}}));
    EXPECT_EQ(snapshotWord("last", now), (SnapshotWord{Kind::newest, 0, {}}));
    EXPECT_EQ(snapshotWord("last-turn", now), (SnapshotWord{Kind::lastTurn, 0, {}}));
    for (const char* none : {"",
                             "x",
                             "1x",
                             "h",
                             "-2h",
                             "24:00",
                             "13:60",
                             "1:00",
                             "13:00x",
                             "2026-02-30T13:40",
                             "2026-13-01T13:40",
                             "2026-11-19",
                             "Yesterday",
                             "99999999999999999999h",
                             "1.5h",
                             "10 minutes later",
                             "10  minutes",
                             "minutes ago",
                             "3 moons ago",
                             "tomorrow 14:00",
                             "yesterday at noon",
                             "Thu",
                             "Thu ",
                             "Thu13:40",
                             "thu 13:40"})
        EXPECT_EQ(snapshotWord(none, now), std::nullopt) << none;
    // The day before a night that lacks an hour began as many wall-clock hours ago, not as many real ones.
    EXPECT_EQ(snapshotWord("yesterday", *parseIsoDate("2026-03-29T10:00:00Z"))->time,
              *parseIsoDate("2026-03-28T11:00:00Z"));
    EXPECT_EQ(clockText(now - std::chrono::hours(24), now), "Thu 13:00");
    EXPECT_EQ(clockText(now - std::chrono::hours(24 * 7), now), "2026-11-13 13:00");
}
