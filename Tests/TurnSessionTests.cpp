// Whose a change is where several sessions work, or snapshots are missing.

#include "Support/TurnFixture.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

class TurnsSideBySide : public TurnFixture {};

} // namespace

TEST_F(TurnsSideBySide, whatLiesBetweenPrunedSnapshotsIsNobodys) {
    prompt("s", "long ago");
    f.write("project/notes", "turn\n");
    snap("tool", "claude", "s", "Before: rm x");
    f.write("project/config", "whose\n");
    prompt("s", "next");
    stop("s");
    for (const std::int64_t seq : {2, 3, 4, 5})
        rewriteRecord(world, seq, [](SnapshotMeta& meta) { meta.created -= std::chrono::hours(24 * 3); });
    f.remove("store/projects/" + world.project().id + "/snapshots/3.json");
    EXPECT_EQ(back({"undo", "--last"}),
              "3\nNothing of turn #2–#4 of claude, \"long ago\" is taken back:\n"
              "! config  snapshot #3 is missing, so that it can't be told whose change this is\n"
              "! notes  snapshot #3 is missing, so that it can't be told whose change this is\n"
              "2 paths are left alone; --force puts such paths back whole, --keep-later passes over them.\n");
    EXPECT_EQ(back({"undo", "--last", "--keep-later"}).front(), '0');
    EXPECT_EQ(back({"undo", "--last", "--force"}).front(), '0');
    EXPECT_EQ(f.read("project/notes"), "one\n");
}

// The turn's end tells that nobody else was at work.
TEST_F(TurnsSideBySide, whatLiesBetweenPrunedSnapshotsOfOneAloneIsItsOwn) {
    struct Row {
        const char* name;
        bool before; // another agent has begun a turn, and not ended it
        bool during; // it has begun one in between
        bool alone;
    };
    for (const Row& row :
         {Row{"alone", false, false, true}, {"before", true, false, false}, {"during", false, true, false}}) {
        SCOPED_TRACE(row.name);
        const auto first = static_cast<std::int64_t>(*world.history().newestSeq()) + 1 + row.before;
        if (row.before) event(Agent::codex, "UserPromptSubmit", "t2", "other");
        event(Agent::claude, "UserPromptSubmit", row.name, "long ago");
        f.write("project/notes", row.name);
        if (row.during) event(Agent::codex, "UserPromptSubmit", "t3", "other");
        event(Agent::claude, "PreToolUse-Bash", row.name, "rm " + f.at("project/src/main.c"));
        f.write("project/config", row.name);
        event(Agent::claude, "Stop", row.name);
        for (std::int64_t seq = first; seq <= first + 2 + row.during; ++seq)
            rewriteRecord(world, seq, [](SnapshotMeta& meta) { meta.created -= std::chrono::hours(24 * 3); });
        f.remove("store/projects/" + world.project().id + "/snapshots/" + std::to_string(first + 1) + ".json");
        EXPECT_EQ(back({"undo", "--turn", std::to_string(first), "--dry-run"}).front(), row.alone ? '0' : '3');
        if (row.before) event(Agent::codex, "Stop", "t2");
    }
}

TEST_F(TurnsSideBySide, whatTwoSessionsDidAtOnceIsNobodys) {
    prompt("a", "one");
    f.write("project/config", "port = 1\ndebug = off\n"); // before the other one begins
    snap("prompt", "codex", "b", "two");
    f.write("project/notes", "whose\n");
    snap("stop", "codex", "b", "End of turn");
    stop("a");
    EXPECT_EQ(back({"undo", "--turn", "2"}), "3\nTook back turn #2–#5 of claude, \"one\":\n"
                                             "~ config\n"
                                             "! notes  codex was at work here from #3 to #4\n"
                                             "1 file overwritten.\n"
                                             "1 path is left alone; --force puts such paths back whole, --keep-later "
                                             "passes over them.\n"
                                             "Take this back with: tidewrack redo\n");
    EXPECT_EQ(f.read("project/notes") + config(), "whose\nport = 80\ndebug = off\n");
    EXPECT_EQ(back({"undo", "--turn", "2", "--force"}).front(), '0');
    EXPECT_EQ(f.read("project/notes"), "one\n");
    prompt("c", "three");
    prompt("d", "four");
    f.write("project/notes", "whose\n");
    stop("d");
    stop("c");
    EXPECT_NE(back({"undo", "--session", "c", "--dry-run"}).find("! notes  another session of claude was at work here"),
              std::string::npos);
}

// Real events: claude is still at work when codex comes and goes. What their file tools named is told apart.
TEST_F(TurnsSideBySide, aSessionThatIsStillAtWork) {
    event(Agent::claude, "UserPromptSubmit", "t1", "one");
    f.write("project/config", "claude\n");
    event(Agent::codex, "UserPromptSubmit", "c1", "two");
    event(Agent::claude, "PreToolUse-Edit", "t1", "src/main.c");
    f.write("project/src/main.c", "claude\n");
    event(Agent::codex, "PreToolUse-apply_patch", "c1", "*** Begin Patch\n*** Delete File: README.md\n*** End Patch\n");
    f.write("project/README.md", "codex\n");
    f.write("project/notes", "whose\n");
    event(Agent::codex, "PreToolUse-Bash", "c1", "rm -rf src/deep");
    f.remove("project/src/deep");
    event(Agent::codex, "PreToolUse-Bash", "c1", "mkdir -p made/by; touch made/by/codex; sed -i s/b/c/ .keep");
    f.write("project/made/by/codex", "");
    EXPECT_EQ(f.read("store/projects/" + world.project().id + "/edits.log").find("s\\/b"), std::string::npos);
    for (const bool ended : {false, true}) {
        if (ended) event(Agent::codex, "Stop", "c1");
        const std::string text = back({"undo", "--last", "--dry-run"});
        EXPECT_NE(text.find("~ README.md\n- made/\n- made/by/\n- made/by/codex\n"
                            "! notes  claude may have been at work here from #3 "),
                  std::string::npos)
            << text;
        EXPECT_NE(text.find("\n+ src/deep/\n+ src/deep/er.c\n1"), std::string::npos) << text;
        EXPECT_EQ(text.find("src/main.c"), std::string::npos) << text;
        EXPECT_EQ(text.front(), '3');
    }
    event(Agent::claude, "Stop", "t1");
    const std::string text = back({"undo", "--turn", "2"});
    EXPECT_NE(text.find("~ config\n! notes  codex was at work here from #3 to #6\n~ src/main.c\n"), std::string::npos)
        << text;
    EXPECT_EQ(f.read("project/README.md") + f.read("project/src/main.c") + f.read("project/notes"),
              "codex\nint main;\nwhose\n");
}

// A command that names a folder need not be alone in it.
TEST_F(TurnsSideBySide, ofAFolderACommandOwnsWhatItTakes) {
    f.write("project/src/x.o", "o\n");
    world.ok({"snap"});
    event(Agent::claude, "UserPromptSubmit", "t1", "clean");
    event(Agent::codex, "UserPromptSubmit", "c1", "generate");
    event(Agent::codex, "PreToolUse-Bash", "c1", "python3 gen.py");
    event(Agent::claude, "PreToolUse-Bash", "t1", "find src -name '*.o' -delete");
    f.remove("project/src/x.o");
    for (const char* command : {"touch src", "chmod -R u+w src", "git checkout -- src", "rsync -a --delete lib/ src/"})
        event(Agent::claude, "PreToolUse-Bash", "t1", command);
    f.write("project/src/main.c", "codex\n");
    event(Agent::claude, "Stop", "t1");
    const std::string text = back({"undo", "--turn", "3", "--dry-run"});
    EXPECT_NE(text.find(":\n! src/main.c  codex "), std::string::npos) << text;
    EXPECT_NE(text.find("\n+ src/x.o\n1 file put back.\n"), std::string::npos) << text;
}

// Within one second the times do not tell which snapshot an edit came after.
TEST_F(TurnsSideBySide, anEditIsItsSessionsUpToTheNextSnapshotAlone) {
    f.write("project/notes", "1\n2\n3\n");
    event(Agent::claude, "UserPromptSubmit", "t1", "the first line");
    snap("prompt", "codex", "b", "the third line");
    event(Agent::claude, "PreToolUse-Edit", "t1", "notes");
    f.write("project/notes", "one\n2\n3\n");
    snap("tool", "codex", "b", "Before: make");
    f.write("project/notes", "one\n2\nthree\n");
    snap("stop", "codex", "b", "End of turn");
    event(Agent::claude, "Stop", "t1");
    EXPECT_EQ(back({"undo", "--session", "session"}).substr(0, 1), "3");
    EXPECT_EQ(f.read("project/notes"), "one\n2\nthree\n") << "whose the last line was can't be told";
}
