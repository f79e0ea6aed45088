// Turns of which a part of the records is damaged or lost.

#include "Support/TurnFixture.hpp"

#include "Store/EditLog.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <fstream>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

class DamagedTurns : public TurnFixture {};

} // namespace

TEST_F(DamagedTurns, aDamagedRecordCostsWhatItAloneTells) {
    for (const char* text : {"first", "second", "third"}) {
        prompt("s", text);
        f.write("project/notes", std::string(text) + "\n");
        stop("s");
    }
    f.write("store/projects/" + world.project().id + "/snapshots/5.json", "damaged");
    const std::string warning = "warning: #5 is left out: ";
    EXPECT_NE(back({"undo", "--last"}).find("0\nTook back turn #6–#7 of claude, \"third\":\n~ notes\n"),
              std::string::npos);
    EXPECT_NE(back({"undo", "--last"})
                  .find("! notes  what is on record of #5 can't be read, so that it can't be told "
                        "whose change this is\n1 path is left alone; --force puts"),
              std::string::npos);
    EXPECT_NE(back({"undo", "--turn", "2"}).find("! notes  the same lines changed again"), std::string::npos);
    EXPECT_EQ(back({"undo", "--turn", "5"}).front(), '1') << "which is the one that is asked for";
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"timeline"}, {"show"}, {"redo"}, {"diff", "--last"}, {"log", "--turns"}}) {
        const std::string text = back(words);
        EXPECT_TRUE(text.front() == '0' && text.find(warning) != text.npos) << text;
    }
}

TEST_F(DamagedTurns, aDamagedListingCostsWhatItAloneTells) {
    for (const std::string text : {"first", "second", "third"}) {
        prompt("s", text);
        f.write("project/notes", text + "\n");
        if (text == "second") snap("tool", "claude", "s", "Before: make");
        if (text != "third") f.write("project/config", text + "\n");
        stop("s");
    }
    const std::string place = world.history().manifestPath(6);
    std::ofstream(place, std::ios::trunc) << "damaged";
    const std::string fault =
        "Corrupt store data: a manifest that can't be decompressed in " + place + ", the listing of #6";
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"timeline"}, {"show", "4"}, {"log", "--turns"}}) {
        const std::string text = back(words);
        EXPECT_EQ(text.front(), '0') << text;
        EXPECT_NE(text.find("claude  \"second\"\n"), text.npos) << "without counts" << text;
        ASSERT_NE(text.find("warning: " + fault + "\n"), text.npos) << text;
        EXPECT_EQ(text.find("warning: "), text.rfind("warning: ")) << text;
    }
    EXPECT_FALSE(json::parse(world.ok({"timeline", "--json"}))["rows"][1].contains("added"));
    EXPECT_EQ(back({"diff", "4", "6"}), "1\ntidewrack: " + fault + "\n");
    EXPECT_EQ(back({"undo", "--last"}), "1\ntidewrack: " + fault + ". The turn before it: tidewrack undo --turn 2\n");
    f.write("project/config", "first\n");
    EXPECT_EQ(back({"undo", "--turn", "2"}),
              "3\nTook back turn #2–#3 of claude, \"first\":\n~ config\n! notes  the same lines changed again since\n"
              "1 file overwritten.\n1 path is left alone; --force puts such paths back whole, --keep-later passes over "
              "them.\nTake this back with: tidewrack redo\n")
        << "what was done is told without its cause";
    std::ofstream(world.history().manifestPath(10), std::ios::trunc) << "damaged"; // the newest one
    EXPECT_EQ(back({"undo", "--turn", "2", "--dry-run"}).substr(0, 1), "3");
}

TEST_F(DamagedTurns, theEndOfATurnStandsForAllOfIt) {
    event(Agent::claude, "UserPromptSubmit", "t1", "all pruned");
    f.write("project/notes", "2\n");
    event(Agent::claude, "Stop", "t1");
    const std::string record = "store/projects/" + world.project().id + "/snapshots/2.json";
    f.write(record, "damaged");
    EXPECT_NE(back({"timeline"}).find("claude  \"all pruned\"  +0 ~1 -0  (its beginning can't be read)\n"),
              std::string::npos);
    f.remove(record);
    EXPECT_NE(world.ok({"timeline"}).find("claude  \"all pruned\"  +0 ~1 -0  (its beginning is pruned)\n"),
              std::string::npos);
    EXPECT_NE(world.ok({"show", "2"}).find("-one\n+2\n"), std::string::npos);
    EXPECT_EQ(back({"undo", "--turn", "9"}), "1\ntidewrack: No snapshot #9.\n");
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"--last"}, {"--session", "session"}, {"--turn", "2"}}) {
        std::vector<std::string> all{"undo", "--dry-run"};
        all.insert(all.end(), words.begin(), words.end());
        EXPECT_EQ(back(all).find("0\nWould take back turn #1–#3 of claude, \"all pruned\":\n~ notes\n"), 0U)
            << words.front();
    }
}

// What is left of it in the middle does not hide its beginning. What was lost before that may have been others' work.
TEST_F(DamagedTurns, aLostBeginningIsTakenBackTooOrInDoubt) {
    const std::string records = "store/projects/" + world.project().id + "/snapshots/";
    event(Agent::claude, "UserPromptSubmit", "t1", "do it all");
    f.write("project/notes", "2\n");
    snap("tool", "claude", "session", "Before: rm config");
    f.write("project/config", "2\n");
    event(Agent::claude, "Stop", "t1");
    f.remove(records + "2.json");
    EXPECT_EQ(back({"undo", "--last", "--dry-run"})
                  .find("0\nWould take back turn #1–#4 of claude, \"do it all\":\n~ config\n~ notes\n"),
              0U);
    f.remove(records + "3.json");
    world.ok({"snap"});
    f.write("project/notes", "somebody's\n");
    event(Agent::claude, "UserPromptSubmit", "t2", "more");
    f.write("project/config", "3\n");
    event(Agent::claude, "Stop", "t2");
    for (const char* seq : {"4", "5", "6"}) f.remove(records + seq + ".json");
    EXPECT_EQ(back({"undo", "--last", "--dry-run"}).substr(0, 1), "3") << "#4 and #5 were not the turn's";
}

// The name that the other one's tool gave is lost with its note; what is left would say that the change is one's own.
TEST_F(DamagedTurns, whatLostNotesMayHaveNamedIsNobodys) {
    const std::string folder = world.history().folder();
    prompt("a", "one");
    snap("prompt", "codex", "b", "two");
    const Date during = now();
    f.write("project/config", "claude\n");
    f.write("project/notes", "whose\n");
    snap("stop", "codex", "b", "End of turn");
    stop("a");
    struct Row {
        int rotations;
        bool cut; // the other one's note
        const char* undone;
    };
    const char* const told = "~ config\n! notes  codex was at work";
    const char* const untold = "! config  codex was at work here from #3 to #4\n! notes  codex was at work";
    for (const Row& row : {Row{0, false, told}, {1, false, told}, {2, false, untold}, {0, true, untold}}) {
        for (const char* name : {"/edits.log", "/edits.log.1"}) (void)std::remove((folder + name).c_str());
        const auto note = [&](Date time, const std::string& agent, const std::string& session,
                              const std::string& path) {
            noteEdit(folder, {time, agent, session, std::nullopt, path});
        };
        note(during - std::chrono::hours(1), "gemini", "c", "old");
        if (row.cut)
            std::ofstream(folder + "/edits.log", std::ios::app) << "{\"agent\":\"codex\",\"pa";
        else
            note(during, "codex", "b", "notes");
        for (int i = 0; i < row.rotations; ++i)
            note(during + std::chrono::hours(1), "gemini", "c", std::string(longestEditLog, 'x'));
        for (const char* path : {"config", "notes"}) note(during, "claude", "a", path);
        const std::string text = back({"undo", "--turn", "2", "--dry-run"});
        EXPECT_NE(text.find(row.undone), text.npos) << row.rotations << row.cut << text;
    }
}
