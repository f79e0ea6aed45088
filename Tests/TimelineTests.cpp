#include "Timeline/Timeline.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

using namespace tidewrack;

namespace {

std::optional<std::string> optional(const std::string& word) {
    return word == "-" ? std::nullopt : std::optional(word);
}

// Words: number, kind, agent, session, turn, files modified since, label. "#7=undo:2-5" behind a restored snapshot
// tells what it took back. Dates are a second apart.
std::vector<SnapshotMeta> recordsOf(const std::string& text) {
    std::vector<SnapshotMeta> records;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
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
        meta.created = Date(std::chrono::seconds(1000 + meta.seq));
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
    for (const auto& each : row.company)
        text +=
            " with " + each.session + " " + std::to_string(each.during.from) + ".." + std::to_string(each.during.to);
    return text + (row.undone ? " undone" : "") + "\n";
}

std::string rowsOf(const std::string& records) {
    std::string text;
    for (const TimelineRow& row : Timeline::of("/p", recordsOf(records)).rows) text += shown(row);
    return text;
}

} // namespace

TEST(Timeline, groupsRecordsIntoRows) {
    struct Case {
        const char* what;
        const char* records;
        const char* rows;
    };
    const Case cases[] = {
        {"turns, and what a person did in between",
         "1 manual - - - 9 \n"
         "2 prompt claude s t1 1 set the port\n"
         "3 tool claude s t1 1 Before: rm -rf src\n"
         "4 stop claude s t1 2 End of turn\n"
         "5 prompt claude s t2 0 write a plan\n"
         "6 stop claude s t2 3 End of turn\n"
         "7 manual - - - 1 mine\n",
         "7-7 manual ~0\n"
         "6-7 outside ~1\n"
         "5-6 turn s 'write a plan' ~3\n"
         "2-4 turn s 'set the port' ? 3:rm -rf src\n"
         "1-2 outside ~1\n"
         "1-1 manual ~0\n"},
        {"an end not seen: the session's next prompt, another's, a snapshot by hand, nothing yet",
         "1 prompt gemini s - 0 one\n"
         "2 prompt gemini s - 1 two\n"
         "3 prompt codex x c1 1 three\n"
         "4 manual - - - 1\n"
         "5 tool codex x c2 1 Before: rm a\n",
         "5-5 turn x '' running ? 5:rm a\n"
         "4-5 outside ~1\n"
         "4-4 manual ~0\n"
         "3-4 turn x 'three' unknown ~1\n"
         "2-3 turn s 'two' unknown ~1\n"
         "1-2 turn s 'one' unknown ~1\n"},
        {"subagents and background tasks belong to their turn, a stop may come late",
         "1 prompt claude s t1 0 build\n"
         "2 stop claude s t1 1 End of turn\n"
         "3 prompt claude s t2 1 <task-notification> <task-id>\n"
         "4 tool claude s t2 1 Before: rm b\n"
         "5 stop claude s t2 0 End of turn\n"
         "6 prompt claude s t3 0 next\n"
         "7 prompt claude s t4 1 after\n"
         "8 stop claude s t3 1 End of turn\n"
         "9 manual - - - 0\n"
         "10 prompt claude s t5 0 Background task finished\n"
         "11 stop claude s t4 2 End of turn\n",
         "7-11 turn s 'after' ?\n"
         "9-9 manual ~0\n"
         "6-7 turn s 'next' ~1\n"
         "1-5 turn s 'build' ? 4:rm b\n"},
        {"a task that ends after something else: what lies in between is not the turn's",
         "1 prompt claude s t1 0 build\n"
         "2 stop claude s t1 1 End of turn\n"
         "3 manual - - - 1\n"
         "4 prompt claude s t2 1 Background task finished\n"
         "5 stop claude s t2 1 End of turn\n",
         "1-5 turn s 'build' ? 1..2 4..5\n"
         "3-4 outside ~1\n"
         "3-3 manual ~0\n"
         "2-3 outside ~1\n"},
        {"two sessions at once",
         "1 prompt claude a - 0 one\n"
         "2 prompt codex b c1 1 two\n"
         "3 tool claude a - 1 Before: rm x\n"
         "4 stop codex b c1 1 End of turn\n"
         "5 stop claude a - 1 End of turn\n",
         "1-5 turn a 'one' ? 3:rm x with b 2..4\n"
         "2-4 turn b 'two' ? with a 2..4\n"},
        {"a stop alone tells of nothing; an interrupted turn",
         "1 manual - - - 0\n"
         "2 stop claude s t1 1 End of turn\n"
         "3 prompt codex x c1 0 go\n"
         "4 stop codex x c1 1 Interrupted\n",
         "3-4 turn x 'go' interrupted ~1\n"
         "2-2 turn s '' ~0\n"
         "1-2 outside ~1\n"
         "1-1 manual ~0\n"},
        {"what is taken back, and taken back again",
         "1 prompt claude s t1 0 one\n"
         "2 stop claude s t1 1 End of turn\n"
         "3 prompt claude s t2 0 two\n"
         "4 stop claude s t2 1 End of turn\n"
         "5 restore - - - 0\n"
         "6 restored - - - 1 undo 1 2\n"
         "7 restore - - - 0\n"
         "8 restored - - - 1 restore 3 7\n"
         "9 restore - - - 0\n"
         "10 restored - - - 1 redo 7 8\n",
         "9-10 undo ~1\n"
         "7-8 restore ~1 undone\n"
         "5-6 undo ~1\n"
         "3-4 turn s 'two' ~1\n"
         "1-2 turn s 'one' ~1 undone\n"},
        {"a restore within a turn is not the turn's work, and one that was never finished",
         "1 prompt claude s t1 0 one\n"
         "2 restore - - - 1\n"
         "3 restored - - - 1 restore\n"
         "4 stop claude s t1 1 End of turn\n"
         "5 restore - - - 0\n",
         "5-5 restore unknown ~0\n"
         "1-4 turn s 'one' ? 1..2 3..4\n"
         "2-3 restore ~1\n"},
        {"what was pruned is not made up",
         "4 tool claude s t1 2 Before: rm x\n"
         "9 stop claude s t1 1 End of turn\n"
         "12 manual - - - 1\n",
         "12-12 manual ~0\n"
         "9-12 outside ?\n"
         "4-9 turn s '' ? 4:rm x\n"},
    };
    for (const Case& each : cases) EXPECT_EQ(rowsOf(each.records), each.rows) << each.what;
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
    const TimelineRow one = *timeline.turnAt(5);
    TimelineRow other = one;
    EXPECT_TRUE(isSameTurn(one, other));
    other.began = *one.ended + std::chrono::seconds(1); // no identifiers: only the time tells
    EXPECT_FALSE(isSameTurn(one, other));
    other = one;
    other.agent = "codex";
    EXPECT_FALSE(isSameTurn(one, other));
}

TEST(Timeline, tellsVerdictsAndVaultEntriesByTheLog) {
    const auto hooks = loggedHooks("2026-03-14T09:30:05Z claude UserPromptSubmit 3ms #1 /p\n"
                                   "2026-03-14T09:30:05Z claude PreToolUse 12ms ask rm a → #2 /q; #2 /p, 3 skipped; "
                                   "vault 20260314-093005-1F3A9C: 1 saved, 0 skipped\n"
                                   "2026-03-14T09:30:06Z claude PreToolUse 1ms deny rm -rf /\n"
                                   "2026-03-14T09:30:06Z claude PreToolUse 1ms allow cut o");
    ASSERT_EQ(hooks.size(), 2u);
    EXPECT_EQ(hooks[1].verdict + " " + hooks[1].command, "deny rm -rf /");
    const auto records = recordsOf("1 prompt claude s t 0 go\n2 tool claude s t 0 Before: rm a\n");
    const TimelineRow row = Timeline::of("/p", records, hooks).rows.at(0);
    EXPECT_EQ(row.commands.at(0).verdict, "ask");
    EXPECT_EQ(row.vault, std::vector<std::string>{"20260314-093005-1F3A9C"});
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
    EXPECT_GT(Timeline::of("/p", records).rows.size(), 200u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100)); // some 2 ms, unoptimised
}
