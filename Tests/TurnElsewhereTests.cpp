// Turns that worked in several projects, or outside of all.

#include "Support/TurnFixture.hpp"

#include "Vault/Vault.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

class TurnsElsewhere : public TurnFixture {
  protected:
    void trackOther() const {
        f.write("other/file", "1\n");
        world.ok({"track", f.at("other")});
    }
    // A command of the session's turn there.
    void removeOther(const std::string& session) const {
        snap("tool", "claude", session, "Before: rm ../other/file", f.at("other"));
        f.remove("other/file");
    }
};

} // namespace

TEST_F(TurnsElsewhere, otherProjectsOfTheTurn) {
    trackOther();
    prompt("s", "both");
    removeOther("s");
    f.write("project/notes", "2\n");
    f.write("home/outside", "1\n");
    const auto saved =
        Vault(world.store())
            .save({.paths = {f.at("home/outside")}, .command = "rm it", .agent = "claude", .session = "s"});
    f.remove("home/outside");
    stop("s");
    snap("stop", "claude", "s", "End of turn", f.at("other"));
    const json row = json::parse(world.ok({"timeline", "--json"}))["rows"][0];
    EXPECT_EQ(row["projects"], json{f.at("other")});
    EXPECT_EQ(row["vault"], json{saved.entry->id});
    std::vector<std::string> commands;
    for (const json& each : row["commands"])
        commands.push_back(each["command"].get<std::string>() + " " + each.value("project", "") +
                           each.value("vault", ""));
    std::sort(commands.begin(), commands.end());
    EXPECT_EQ(commands, (std::vector{"rm ../other/file " + f.at("other"), "rm it " + saved.entry->id}));
    EXPECT_EQ(json::parse(world.ok({"timeline", "--json", "--project", f.at("other")}))["rows"][0]["title"], "both");
    EXPECT_EQ(back({"undo", "--last", "--here", "--dry-run"}).find(f.at("other")), std::string::npos);
    EXPECT_EQ(back({"undo", "--last"}),
              "0\nTook back turn #2–#3 of claude, \"both\":\n~ notes\n"
              "1 file overwritten.\nIn " +
                  f.at("other") +
                  ": Took back turn #2–#3 of claude, \"both\":\n+ file\n1 file put back.\n"
                  "Outside of projects stays as it is; what was saved there first: vault "
                  "entry " +
                  saved.entry->id + " (rm it). To put it back, run: tidewrack vault restore " + saved.entry->id +
                  "\n"
                  "Take this back with: tidewrack redo\n"
                  "Take this back with: tidewrack redo --project " +
                  f.at("other") + "\n");
    EXPECT_EQ(f.read("other/file") + f.read("project/notes"), "1\none\n");
    world.ok({"redo"});
    world.ok({"redo", "--project", f.at("other")});
    f.remove("other");
    const std::string text = back({"undo", "--last", "--vault"}); // a work tree that is gone keeps nobody back
    EXPECT_NE(text.find("the folder is gone. To bring it back as it was before, run: mkdir -p "), std::string::npos);
    EXPECT_NE(text.find("Take this back with: tidewrack redo (what came from the vault stays)\n"), std::string::npos);
    EXPECT_EQ(text.front(), '0') << text;
    EXPECT_EQ(f.read("home/outside"), "1\n");
}

// Though nothing of it is left where it is looked for.
TEST_F(TurnsElsewhere, aTurnThatStandsInAnotherProjectIsNotPassedOver) {
    trackOther();
    prompt("s", "older");
    f.write("project/notes", "2\n");
    stop("s");
    prompt("t", "both");
    f.write("project/config", "the turn's\n");
    removeOther("t");
    stop("t");
    snap("stop", "claude", "t", "End of turn", f.at("other"));
    f.write("project/config", "port = 80\ndebug = off\n");
    EXPECT_NE(back({"undo", "--last", "--here", "--dry-run"}).find("Would take back turn #2–#3"), std::string::npos);
    EXPECT_NE(back({"undo", "--last"}).find("\nIn " + f.at("other") + ": Took back turn #2–#3 of claude, \"both\""),
              std::string::npos);
    EXPECT_EQ(f.read("other/file") + f.read("project/notes"), "1\n2\n");
}

// The way back is told by whatever is tried.
TEST_F(TurnsElsewhere, aProjectWhoseFolderIsGone) {
    prompt("s", "rm");
    f.write("project/notes", "2\n");
    world.current = f.at("home");
    const std::string root = world.projectPath();
    f.remove("project");
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"undo", "--last"}, {"redo"}, {"restore", "2"}, {"undo", "2"}, {"find", "notes"}, {"status"}}) {
        std::vector<std::string> all = words;
        all.insert(all.end(), {"--project", root});
        const std::string text = back(all);
        EXPECT_NE(text.find("mkdir -p " + root + " && tidewrack restore "), std::string::npos) << text;
        EXPECT_EQ(text.find(".."), std::string::npos) << text;
    }
}

// What an older entry of the turn saved is what was there before.
TEST_F(TurnsElsewhere, aTurnThatWorkedOutsideOfProjectsAlone) {
    prompt("s", "here");
    f.write("project/notes", "2\n");
    stop("s");
    prompt("s", "outside");
    const auto save = [&](const std::string& content) {
        f.write("home/outside", content);
        (void)Vault(world.store())
            .save({.paths = {f.at("home/outside")}, .command = "rm it", .agent = "claude", .session = "s"});
    };
    save("first\n");
    for (const char* content : {"second\n", "third\n", "fourth\n"}) save(content); // usually within one second
    f.remove("home/outside");
    stop("s");
    const std::string turn = "turn #4–#5 of claude, \"outside\"";
    EXPECT_EQ(back({"undo", "--last", "--dry-run"})
                  .find("0\nNewer: " + turn +
                        ", which changed nothing here, but outside of projects. To put back what "
                        "was saved there first, run: tidewrack undo --last --vault\nWould take back turn #2–#3 of"),
              0U);
    const std::string outside = f.at("home/outside");
    EXPECT_EQ(back({"undo", "--last", "--vault", "--dry-run"}), "0\nNothing is left to take back in projects of " +
                                                                    turn + ".\nwould restore " + outside +
                                                                    "\nNothing was changed.\n");
    EXPECT_EQ(back({"undo", "--last", "--vault"}),
              "0\nNothing is left to take back in projects of " + turn + ".\nrestored " + outside + "\n");
    EXPECT_EQ(f.read("home/outside"), "first\n");
    EXPECT_EQ(back({"undo", "--last", "--vault"}).find("0\nTook back turn #2–#3 of claude"), 0U);
}

// Only the vault has what is too large for history.
TEST_F(TurnsElsewhere, aTurnIsNotDoneWithWhileTheVaultHasMore) {
    const std::string record = "store/projects/" + world.project().id + "/project.json";
    json project = json::parse(f.read(record));
    project["maxFileSize"] = 100;
    f.write(record, project.dump());
    f.write("project/large", std::string(200, 'a'));
    prompt("s", "large");
    const auto saved =
        Vault(world.store())
            .save({.paths = {f.at("project/large")}, .command = "rm large", .agent = "claude", .session = "s"});
    f.remove("project/large");
    f.write("project/notes", "2\n");
    stop("s");
    for (int i = 0; i < 2; ++i) {
        const std::string text = back({"undo", "--last"});
        EXPECT_EQ(text.front(), '3') << text;
        EXPECT_NE(text.find("! large  was not kept: "), text.npos) << text;
        EXPECT_NE(text.find("tidewrack vault restore " + saved.entry->id), text.npos) << text;
    }
    const std::string refused = back({"undo", "--last", "notes", "--vault"});
    EXPECT_EQ(refused.find("1\ntidewrack: nothing that the vault has of it lies at or below notes"), 0U) << refused;
    EXPECT_FALSE(f.has("project/large"));
    EXPECT_NE(back({"undo", "--last", "large", "--vault"}).find("restored " + f.at("project/large")),
              std::string::npos);
    EXPECT_NE(back({"undo", "--last"}).find("There's nothing to undo"), std::string::npos);
}

// An agent whose turns have no names was cut off last week, while it worked in another project.
TEST_F(TurnsElsewhere, anOldTurnElsewhereIsNotTakenForThisOne) {
    trackOther();
    event(Agent::gemini, "BeforeAgent", "", "one");
    event(Agent::gemini, "BeforeTool-run_shell_command", "", "rm file", "other");
    for (const char* folder : {"project", "other"}) {
        world.current = f.at(folder);
        for (const std::int64_t seq : {1, 2})
            rewriteRecord(world, seq, [](SnapshotMeta& meta) { meta.created -= std::chrono::hours(24); });
        world.current = world.projectPath();
    }
    f.write("other/file", "mine\n");
    event(Agent::gemini, "BeforeAgent", "", "two");
    f.write("project/notes", "2\n");
    event(Agent::gemini, "AfterAgent", "");
    EXPECT_EQ(world.ok({"log", "--project", f.at("other")}).find("End of turn"), std::string::npos);
    const std::string text = back({"undo", "--last"});
    EXPECT_NE(text.find("~ notes\n1 file overwritten.\nTake this back"), std::string::npos) << text;
    EXPECT_EQ(f.read("other/file"), "mine\n");
}

TEST_F(TurnsElsewhere, aNewerTurnThatWorkedElsewhereAlone) {
    trackOther();
    prompt("s", "here");
    f.write("project/notes", "2\n");
    stop("s");
    prompt("t", "elsewhere");
    removeOther("t");
    stop("t");
    snap("stop", "claude", "t", "End of turn", f.at("other"));
    const std::string text = back({"undo", "--last"});
    EXPECT_EQ(text.find("0\nNewer: turn #4–#5 of claude, \"elsewhere\", which changed nothing here, but in " +
                        f.at("other") + ". To take it back, run: tidewrack undo --turn 2 --project " + f.at("other")),
              0U)
        << text;
    EXPECT_NE(text.find("Took back turn #2–#3 of claude"), std::string::npos) << text;
    world.ok({"redo"});
    f.write("project/notes", "3\n");
    EXPECT_EQ(back({"undo", "--turn", "2", "--project", f.at("other")}).front(), '0');
    EXPECT_EQ(back({"undo", "--last", "--dry-run"}).find("Newer"), std::string::npos);
}
