// The guard for people: what it says of a command, and what it does in a person's own shell.

#include "Support/TestFolders.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

class GuardCommand : public ::testing::Test {
  protected:
    GuardCommand() {
        f.write("project/build/x", "x");
        f.write("home/notes", "n");
        world.environment["HOME"] = f.at("home");
        world.ok({"track"});
    }
    json explained(const std::string& line) const {
        return json::parse(world.ok({"guard", "explain", line, "--json"}));
    }

    World world;
    const TemporaryFolder& f = world.folder;
    const std::string project = world.projectPath();
};

} // namespace

TEST_F(GuardCommand, explainsWhatAHookWouldSeeAndSave) {
    const std::string store = f.listing("store");
    const json plain = explained("cd build && rm -rf x; echo $(date) >~/notes; make");
    EXPECT_EQ(plain["verdict"], "allow");
    EXPECT_EQ(plain["commands"][1]["words"], (json{"rm", "-rf", "x"}));
    EXPECT_EQ(plain["commands"][2]["words"], (json{"echo", "$(...)"}));
    EXPECT_EQ(plain["commands"][2]["writes"], json{"~/notes"});
    EXPECT_EQ(plain["commands"][2]["nested"][0][0]["words"], json{"date"});
    EXPECT_EQ(
        plain["targets"],
        (json{{{"path", f.at("home/notes")}, {"because", "echo $(...) >~/notes"}, {"there", true}, {"removed", false}},
              {{"path", f.at("project/build/x")}, {"because", "rm -rf x"}, {"there", true}, {"removed", true}}}));
    EXPECT_EQ(plain["opaque"], (json{{{"folder", f.at("project/build")}, {"because", "make"}}}));
    EXPECT_EQ(plain["saved"]["snapshots"], json{project});
    EXPECT_EQ(plain["saved"]["vault"], json{f.at("home/notes")});
    EXPECT_EQ(explained("echo x >~/nothing")["saved"]["vault"], json::array());
    const json asked = explained("rm -rf .");
    EXPECT_EQ(asked["verdict"], "ask");
    EXPECT_NE(asked["reason"].get<std::string>().find("contains the tracked project"), std::string::npos);
    const json refused = explained("rm -rf ~");
    EXPECT_EQ(refused["verdict"], "deny");
    EXPECT_EQ(refused["saved"]["vault"], json::array());
    EXPECT_EQ(world.ok({"guard", "explain", "git status | less"}),
              "Commands\n  git status |\n  less\nVerdict: allow\nSaved first\n  nothing\n");
    EXPECT_EQ(world.ok({"guard", "explain", "rm 'a b'"}), "Commands\n  rm 'a b'\nVerdict: allow\n"
                                                          "It may delete or overwrite\n  " +
                                                              project +
                                                              "/a b  (nothing is there now)  because of: rm 'a b'\n"
                                                              "Saved first\n  a snapshot of " +
                                                              project + "\n");
    // A repository that a hook would begin to track is named, and stays untracked.
    f.write("repository/.git/HEAD", "ref: refs/heads/main\n");
    f.write("repository/file", "x");
    EXPECT_EQ(explained("rm " + f.at("repository/file"))["saved"]["beginning"], json{f.at("repository")});
    EXPECT_EQ(f.listing("store"), store);
    EXPECT_EQ(world.run({"guard", "explain", "rm", "x"}).status, 1);
}

TEST_F(GuardCommand, savesBeforeAPersonsOwnCommand) {
    const std::string store = f.listing("store");
    EXPECT_EQ(world.run({"_before", "--", "ls -la | grep x"}).status, 0);
    EXPECT_EQ(f.listing("store"), store) << "nothing is written for what is harmless";
    EXPECT_EQ(world.run({"_before", "--", "rm -rf build ~/notes"}).status, 0);
    const SnapshotMeta saved = world.history().snapshots().back();
    EXPECT_EQ(saved.kind + " " + saved.label.value_or(""), "manual Before: rm -rf build ~/notes");
    EXPECT_EQ(saved.agent, std::nullopt);
    EXPECT_NE(world.ok({"vault"}).find("home/notes"), std::string::npos);
    EXPECT_NE(f.read("store/hooks.log").find(" shell command "), std::string::npos);
    const Outcome refused = world.run({"_before", "--", "rm -rf ~"});
    EXPECT_EQ(refused.status, 10);
    EXPECT_NE(refused.err.find("TIDEWRACK_SHELL=off"), std::string::npos);
    for (const char* line : {"TIDEWRACK_SHELL=off rm -rf ~", "  TIDEWRACK_SHELL=off rm -rf ~"})
        EXPECT_EQ(world.run({"_before", "--", line}).status, 0) << line;
    world.environment["TIDEWRACK_SHELL"] = "off";
    EXPECT_EQ(world.run({"_before", "--", "rm -rf ~"}).status, 0);
    f.write("repository/.git/HEAD", "ref: refs/heads/main\n");
    f.write("repository/file", "x");
    world.environment.erase("TIDEWRACK_SHELL");
    world.current = f.at("repository");
    EXPECT_EQ(world.run({"_before", "--", "rm file"}).status, 0);
    EXPECT_EQ(world.store().projects().size(), 1U) << "a person's folders are for that person to track";
}

TEST_F(GuardCommand, shellsTakeWhatIsPrintedForThem) {
    EXPECT_EQ(world.run({"shell-init", "csh"}).status, 1);
    for (const std::string shell : {"bash", "zsh", "fish"}) {
        f.write("script", world.ok({"shell-init", shell}));
        if (std::system(("command -v " + shell + " >/dev/null").c_str()) != 0) continue;
        EXPECT_EQ(std::system((shell + " -n '" + f.at("script") + "'").c_str()), 0) << shell;
    }
}

TEST_F(GuardCommand, runsBetweenTwoSnapshots) {
    const Outcome changed = world.run({"run", "--", "sh", "-c", "rm build/x; echo new >a; exit 3"});
    EXPECT_EQ(changed.status, 3);
    EXPECT_EQ(changed.out, "");
    EXPECT_EQ(changed.err, "+ a\n- build/x\nUndo this with: tidewrack undo 2..3\n");
    world.ok({"undo", "2"});
    EXPECT_EQ(f.read("project/build/x") + f.read("project/a"), "x<missing>");
    const auto count = world.history().seqs().size();
    EXPECT_EQ(world.run({"run", "--", "true"}).err, "Nothing changed in " + project + ".\n");
    EXPECT_EQ(world.history().seqs().size(), count + 1);
    EXPECT_EQ(world.run({"run", "--", "sh", "-c", "kill -TERM $$"}).status, 128 + 15);
    const Outcome missing = world.run({"run", "--", "/no-such-program"});
    EXPECT_EQ(missing.status, 127);
    EXPECT_NE(missing.err.find("couldn't run /no-such-program"), std::string::npos) << missing.err;
    const Outcome its = world.run({"run", "--", "sh", "-c", "exit 127"}); // the program's own status
    EXPECT_EQ(its.status, 127);
    EXPECT_EQ(its.err.find("couldn't run"), std::string::npos) << its.err;
    // What is sent to this process reaches the command.
    EXPECT_EQ(world.run({"run", "--", "sh", "-c", "trap 'exit 7' TERM; kill -TERM $PPID; sleep 2 & wait"}).status, 7);
    f.write("untracked/f", "");
    const Outcome elsewhere = world.run({"run", "--project", f.at("untracked"), "--", "rm", "build/x"});
    EXPECT_EQ(std::to_string(elsewhere.status) + elsewhere.err,
              "1tidewrack: " + f.at("untracked") + " isn't tracked. Run `tidewrack track` in the project folder.\n");
    EXPECT_TRUE(f.has("project/build/x"));
    EXPECT_EQ(world.run({"run", "true"}).err, "tidewrack: usage: tidewrack run -- COMMAND [word...]\n");
    const std::string ignored = "warning: run has no option --json; ignored\n";
    EXPECT_EQ(world.run({"run", "--json", "--", "true"}).err, ignored + "Nothing changed in " + project + ".\n");
    const std::string before = std::to_string(world.history().seqs().back() + 1);
    const Outcome gone = world.run({"run", "--", "rm", "-rf", project});
    const std::string advice = "mkdir -p " + project + " && tidewrack --project " + project + " restore " + before;
    EXPECT_NE(gone.err.find("undo it with: " + advice + "\n"), std::string::npos) << gone.err;
    f.makeFolder("project");
    world.ok({"--project", project, "restore", before});
    EXPECT_TRUE(f.has("project/build/x"));
}
