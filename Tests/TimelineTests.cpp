#include "Support/TestFolders.hpp"

#include "Timeline/Timeline.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

using namespace tidewrack;
using tidewrack::testing::testData;

namespace {

std::optional<std::string> optional(const std::string& word) {
    return word == "-" ? std::nullopt : std::optional(word);
}

// Words: number, kind, agent, session, turn, files modified since, label. "#7=undo:2-5" behind a restored snapshot
// tells what it took back. Dates are a second apart; "+2h " before a number makes all from there on so much later.
std::vector<SnapshotMeta> recordsOf(const std::string& text) {
    std::vector<SnapshotMeta> records;
    std::istringstream lines(text);
    std::chrono::hours later{0};
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('+')) later += std::chrono::hours(line[1] - '0');
        std::istringstream words(line.starts_with('+') ? line.substr(4) : line);
        std::string agent, session, turn, label;
        SnapshotMeta meta;
        words >> meta.seq >> meta.kind >> agent >> session >> turn >> meta.modified >> std::ws;
        std::getline(words, label);
        meta.agent = optional(agent);
        meta.session = optional(session);
        meta.turn = optional(turn);
        if (!label.empty()) meta.label = label;
        if (meta.kind == "restored") {
            std::istringstream taken(label);
            taken >> meta.reversal.emplace();
            for (Stretch stretch; taken >> stretch.from >> stretch.to;) meta.tookBack.push_back(stretch);
        }
        meta.created = Date(std::chrono::seconds(1000 + meta.seq)) + later;
        meta.manifestOf = meta.modified == 0 && !records.empty() ? records.back().manifestOf : meta.seq;
        records.push_back(meta);
    }
    return records;
}

std::string shown(const TimelineRow& row) {
    static const char* const types[] = {"turn", "outside", "manual", "restore", "undo"};
    static const char* const ends[] = {"", " interrupted", " running", " unknown"};
    std::string text = std::to_string(row.first) + "-" + std::to_string(row.last) + " ";
    text += types[static_cast<int>(row.type)];
    if (row.session) text += " " + *row.session;
    if (row.type == TimelineRow::Type::turn) text += " '" + row.title + "'";
    text += ends[static_cast<int>(row.end)];
    text += row.counts ? " ~" + std::to_string(row.counts->modified) : " ?";
    if (row.stretches.size() > 1)
        for (const Stretch& each : row.stretches)
            text += " " + std::to_string(each.from) + ".." + std::to_string(each.to);
    for (const auto& each : row.commands) text += " " + std::to_string(each.seq) + ":" + each.command;
    for (const Stretch& each : row.waits)
        text += " waits " + std::to_string(each.from) + ".." + std::to_string(each.to);
    for (const auto& each : row.company)
        text += (each.seen ? " with " : " maybe ") + each.session + " " + std::to_string(each.during.from) + ".." +
                (each.during.to == untilNow ? "" : std::to_string(each.during.to));
    return text + (row.undone ? " undone" : "") + "\n";
}

std::string rowsOf(const std::string& records, const std::vector<NotedEdit>& edits = {}) {
    std::string text;
    for (const TimelineRow& row : Timeline::of("/p", recordsOf(records), {}, edits).rows) text += shown(row);
    return text;
}

struct Case {
    std::string what;
    std::string records;
    std::string rows;
};

std::vector<Case> casesIn(const std::string& text) {
    std::vector<Case> cases;
    std::string preface, *part = &preface;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("# "))
            part = &cases.emplace_back(Case{line.substr(2), "", ""}).records;
        else if (line == "becomes")
            part = &cases.back().rows;
        else if (!line.empty())
            *part += line + "\n";
    }
    return cases;
}

} // namespace

TEST(Timeline, groupsRecordsIntoRows) {
    const auto cases = casesIn(testData("timeline.txt"));
    EXPECT_EQ(cases.size(), 13U);
    for (const Case& each : cases) EXPECT_EQ(rowsOf(each.records), each.rows) << each.what;
}

TEST(Timeline, anEndTellsOfTheTurnWhenTheRestIsPruned) {
    auto records = recordsOf("1 manual - - - 9\n3 manual - - - 1\n6 stop claude s t1 3 End of turn\n");
    const auto newest = [&](const TurnEnd& end) {
        records.back().end = end;
        return shown(Timeline::of("/p", records).rows.front());
    };
    EXPECT_EQ(newest({true, 5, "the title"}), "3-6 turn s 'the title' interrupted ?\n");
    EXPECT_EQ(newest({false, 2, "the title"}), "1-6 turn s 'the title' ?\n") << "somebody recorded in between";
    EXPECT_EQ(newest({false, {}, {}}), "3-6 outside ?\n") << "the turn did nothing here";
}

TEST(Timeline, findsTheTurnOfASnapshotAndItsLikeElsewhere) {
    const Timeline timeline = Timeline::of("/p", recordsOf("1 prompt claude a - 0 one\n"
                                                           "2 prompt codex b c1 1 two\n"
                                                           "3 manual - - - 0\n"
                                                           "4 stop codex b c1 1 End of turn\n"
                                                           "5 stop claude a - 1 End of turn\n"
                                                           "6 manual - - - 0\n"));
    const auto sessionAt = [&](std::int64_t seq) {
        const TimelineRow* row = timeline.turnAt(seq);
        return row == nullptr ? "none" : row->session.value_or("-");
    };
    EXPECT_EQ(sessionAt(4) + sessionAt(5) + sessionAt(3) + sessionAt(6), "baanone");
    TimelineRow one = *timeline.turnAt(5); // from its prompt, second 1001, to its end, 1005
    TimelineRow other = one;
    EXPECT_FALSE(isSameTurn(one, other)); // no identifiers: a prompt begins one turn
    other.prompted = false;
    const auto at = [&](int second) {
        other.began = other.seen = Date(std::chrono::seconds(second));
        return isSameTurn(one, other) && isSameTurn(other, one);
    };
    EXPECT_TRUE(at(1001) && at(1005));
    EXPECT_FALSE(at(1000) || at(1006));
    one.ended.reset();
    EXPECT_TRUE(at(1006)); // cut off: it may have gone on, but for the session's next prompt
    one.next = Date(std::chrono::seconds(1006));
    EXPECT_FALSE(at(1006));
    other.ended.reset(); // what was left open long ago is over with its last sign
    EXPECT_FALSE(at(900));
    one.prompted = false;
    EXPECT_FALSE(at(900));
    EXPECT_TRUE(at(1001));
    one.turn = other.turn = "t";
    EXPECT_TRUE(at(900));
    other.agent = "codex";
    EXPECT_FALSE(at(1001));
}

TEST(Timeline, takesATurnForLiveAsLongAsItGivesSigns) {
    const std::string records = "1 prompt claude a t1 0 one\n"
                                "+2h 2 prompt codex b c1 1 two\n"
                                "3 stop codex b c1 1 End of turn\n";
    EXPECT_EQ(rowsOf(records), "2-3 turn b 'two' ~1\n1-2 turn a 'one' unknown ~1\n");
    const Date soonBefore = recordsOf(records)[1].created - std::chrono::minutes(5);
    EXPECT_EQ(rowsOf(records, {{soonBefore, "claude", "a", "t1", "src/a"}}),
              "2-3 turn b 'two' ~1 maybe a 2..3\n1-2 turn a 'one' unknown ~1\n");
}

TEST(Timeline, tellsVerdictsAndVaultEntriesByTheLog) {
    const auto hooks = loggedHooks("2026-03-14T09:30:05Z claude UserPromptSubmit 3ms #1 /p\n"
                                   "2026-03-14T09:30:05Z claude PreToolUse 12ms ask rm a → #2 /q; #2 /p, 3 skipped; "
                                   "vault 20260314-093005-1F3A9C: 1 saved, 0 skipped\n"
                                   "2026-03-14T09:30:06Z claude PreToolUse 1ms allow make → #2 /p\n"
                                   "2026-03-14T09:30:06Z claude PreToolUse 1ms deny rm -rf /\n"
                                   "2026-03-14T09:30:06Z claude PreToolUse 1ms allow cut o");
    ASSERT_EQ(hooks.size(), 3u);
    EXPECT_EQ(hooks[2].verdict + " " + hooks[2].command, "deny rm -rf /");
    auto records = recordsOf("1 prompt claude s t 0 go\n2 tool claude s t 0 Before: rm a\n");
    TimelineRow row = Timeline::of("/p", records, hooks).rows.at(0);
    ASSERT_EQ(row.commands.size(), 2u);
    EXPECT_EQ(row.commands[0].verdict + " " + row.commands[0].command, "ask rm a");
    EXPECT_EQ(row.commands[1].verdict + " " + row.commands[1].command, "allow make"); // nothing had changed
    EXPECT_EQ(row.vault, std::vector<std::string>{"20260314-093005-1F3A9C"});
    for (SnapshotMeta& each : records) each.created = hooks[1].time + std::chrono::hours(1); // tracked anew since
    row = Timeline::of("/p", records, hooks).rows.at(0);
    EXPECT_EQ(row.commands.at(0).verdict + std::to_string(row.commands.size() + row.vault.size()), "1");
}

TEST(Timeline, groupsManyRecordsInNoTime) {
    std::string text;
    for (int seq = 1; seq <= 1000; ++seq)
        text += std::to_string(seq) +
                (seq % 5 == 1   ? " prompt"
                 : seq % 5 == 0 ? " stop"
                                : " tool") +
                " claude s" + std::to_string(seq / 100) + " t" + std::to_string(seq / 5) + " 1 Before: rm x\n";
    const auto records = recordsOf(text);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_GT(Timeline::of("/p", records).rows.size(), 199u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100)); // some 2 ms, unoptimised
}
