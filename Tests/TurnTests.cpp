// Turns seen from outside: what agents did, told and taken back.

#include "Support/TestFolders.hpp"

#include "Agents/HookHandler.hpp"
#include "Support/Files.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

class Turns : public ::testing::Test {
  protected:
    Turns() {
        f.write("project/config", "port = 80\ndebug = off\n");
        f.write("project/README.md", "the original\n");
        f.write("project/src/main.c", "int main;\n");
        f.write("project/src/deep/er.c", "er\n");
        f.write("project/notes", "one\n");
        world.ok({"track"});
    }

    // A snapshot as a hook takes it; returns its number.
    std::string snap(const std::string& kind, const std::string& agent, const std::string& session,
                     const std::string& label = "", const std::string& folder = "") const {
        std::vector<std::string> words{"snap",      "--kind", kind,      "--agent", agent,
                                       "--session", session,  "--label", label,     "--json"};
        if (!folder.empty()) words.insert(words.end(), {"--project", folder});
        return std::to_string(json::parse(world.ok(words))["seq"].get<int>());
    }
    void prompt(const std::string& session, const std::string& text) const { snap("prompt", "claude", session, text); }
    void stop(const std::string& session) const { snap("stop", "claude", session, "End of turn"); }

    // An agent's own event, with the session's folder, prompt or command in place of the recorded ones.
    void event(Agent agent, const std::string& name, const std::string& turn, const std::string& text = "") const {
        std::string recorded;
        const std::string path = inCheckout("Tests/Data/events/" + std::string(rawValue(agent)) + "/" + name + ".json");
        ASSERT_EQ(readFile(path, recorded), 0) << path;
        json object = json::parse(recorded);
        object["cwd"] = world.projectPath();
        object["session_id"] = "session";
        for (const char* key : {"prompt_id", "turn_id"})
            if (object.contains(key)) object[key] = turn;
        if (object.contains("tool_input"))
            object["tool_input"]["command"] = text;
        else if (object.contains("prompt"))
            object["prompt"] = text;
        HookHandler handler(world.store(), world.environment, f.at("home"));
        handler.backupDotfiles = false;
        EXPECT_EQ(handler.handle(agent, object.dump(), world.current).exitCode, 0);
    }

    // What `undo` or `redo` with these words prints, the exit status in front.
    std::string back(const std::vector<std::string>& words) const {
        const Outcome outcome = world.run(words);
        return std::to_string(outcome.status) + "\n" + outcome.out + outcome.err;
    }
    std::string config() const { return f.read("project/config"); }

    World world;
    const TemporaryFolder& f = world.folder;
};

} // namespace

TEST_F(Turns, oneTurnGoesAndTheLaterOneStays) {
    struct Client {
        Agent agent;
        const char *prompt, *shell, *stop;
    };
    const Client clients[] = {{Agent::claude, "UserPromptSubmit", "PreToolUse-Bash", "Stop"},
                              {Agent::codex, "UserPromptSubmit", "PreToolUse-Bash", "Stop"},
                              {Agent::gemini, "BeforeAgent", "BeforeTool-run_shell_command", "AfterAgent"}};
    for (const Client& client : clients) {
        const std::string name(rawValue(client.agent));
        const std::string start = f.listing("project");
        const auto first = json::parse(world.ok({"log", "-n", "1", "--json"}))[0]["seq"].get<int>();
        event(client.agent, client.prompt, "t1", "Set the port");
        f.write("project/config", "port = 8080\ndebug = off\n");
        event(client.agent, client.shell, "t1", "rm -rf src");
        f.remove("project/src");
        f.write("project/README.md", "overwritten\n");
        event(client.agent, client.stop, "t1");
        event(client.agent, client.prompt, "t2", "Write a plan");
        f.write("project/plan.md", "a plan\n");
        f.write("project/notes", "one\ntwo\n");
        f.write("project/config", "port = 8080\ndebug = on\n");
        event(client.agent, client.stop, "t2");
        const std::string after = f.listing("project");

        const auto number = [&](int offset) { return std::to_string(first + offset); };
        const json rows = json::parse(world.ok({"timeline", "-n", "2", "--json"}))["rows"];
        EXPECT_EQ(rows[1]["title"], "Set the port");
        EXPECT_EQ(rows[1]["commands"][0]["command"], "rm -rf src");
        EXPECT_EQ(rows[1]["commands"][0]["verdict"], "allow");
        EXPECT_EQ(rows[1]["end"], "stop");
        EXPECT_EQ((json{rows[1]["added"], rows[1]["modified"], rows[1]["deleted"]}), (json{0, 2, 2}));
        EXPECT_EQ((json{rows[0]["added"], rows[0]["modified"], rows[0]["deleted"]}), (json{1, 2, 0}));

        const std::string list = "turn #" + number(1) + "–#" + number(3) + " of " + name +
                                 ", \"Set the port\":\n"
                                 "~ README.md\n"
                                 "~ config  merged\n"
                                 "+ src/\n"
                                 "+ src/deep/\n"
                                 "+ src/deep/er.c\n"
                                 "+ src/main.c\n";
        EXPECT_EQ(back({"undo", "--turn", number(2), "--dry-run"}),
                  "0\nWould take back " + list + "Nothing was changed.\n");
        EXPECT_EQ(f.listing("project"), after);
        EXPECT_EQ(world.store().history(world.project()).newestSeq(), first + 5);
        EXPECT_EQ(back({"undo", "--turn", number(2)}),
                  "0\nTook back " + list + "Take this back with: tidewrack redo\n");
        EXPECT_EQ(config(), "port = 80\ndebug = on\n");
        EXPECT_EQ(f.read("project/README.md") + f.read("project/notes") + f.read("project/plan.md"),
                  "the original\none\ntwo\na plan\n");
        EXPECT_EQ(f.read("project/src/deep/er.c"), "er\n");
        EXPECT_TRUE(json::parse(world.ok({"timeline", "--json"}))["rows"][2]["undone"]);
        EXPECT_EQ(back({"undo", "--turn", number(2)}).substr(0, 34), "0\nNothing is left to take back of ");

        world.ok({"redo"});
        EXPECT_EQ(f.listing("project"), after);
        world.ok({"undo", "--last"}); // the newer turn, and then the older one
        world.ok({"undo", "--last"});
        EXPECT_EQ(f.listing("project"), start);
        EXPECT_EQ(back({"undo", "--last"}),
                  "0\nThere's nothing to undo: no turn changed anything here that wasn't taken back already.\n");
    }
}

TEST_F(Turns, laterWorkSurvives) {
    prompt("s", "one");
    f.write("project/config", "port = 1\ndebug = off\n");
    f.write("project/README.md", "turn\n");
    f.write("project/new", "new\n");
    f.remove("project/notes");
    f.write("project/src/main.c", "int turn;\n");
    stop("s");
    prompt("t", "two");
    f.write("project/config", "port = 2\ndebug = off\n"); // the same line
    f.write("project/notes", "anew\n");
    stop("t");
    f.write("project/new", "changed\n");
    f.remove("project/src/main.c");
    const std::string before = f.listing("project");
    const std::string list =
        "turn #2–#3 of claude, \"one\":\n"
        "~ README.md\n"
        "! config  the same lines changed again in #5 (claude, \"two\")\n"
        "! new  changed again since\n"
        "! notes  made anew in #5 (claude, \"two\")\n"
        "! src/main.c  deleted since\n"
        "4 paths are left alone; --force puts such paths back whole, --keep-later passes over them.\n";
    EXPECT_EQ(back({"undo", "--turn", "3", "--dry-run"}), "3\nWould take back " + list + "Nothing was changed.\n");
    EXPECT_EQ(back({"undo", "--turn", "3"}), "3\nTook back " + list + "Take this back with: tidewrack redo\n");
    EXPECT_EQ(f.read("project/README.md") + config(), "the original\nport = 2\ndebug = off\n");
    EXPECT_EQ(back({"undo", "--turn", "3", "--keep-later", "config", "new"}),
              "0\nNothing of turn #2–#3 of claude, \"one\" is taken back:\n"
              "  config  kept: changed since\n"
              "  new  kept: changed since\n");
    EXPECT_EQ(back({"undo", "--turn", "3", "--force", "src", "notes"}).front(), '0');
    EXPECT_EQ(f.read("project/notes") + f.read("project/src/main.c") + f.read("project/new"),
              "one\nint main;\nchanged\n");
    // The turn is not taken back as a whole yet.
    EXPECT_EQ(back({"undo", "--turn", "3", "--force"}).front(), '0');
    EXPECT_FALSE(f.has("project/new"));
    EXPECT_EQ(config(), "port = 80\ndebug = off\n");
    EXPECT_TRUE(json::parse(world.ok({"timeline", "--agent", "claude", "--json"}))["rows"][1]["undone"]);
    for (int i = 0; i < 3; ++i) world.ok({"redo"});
    EXPECT_EQ(f.listing("project"), before);
    EXPECT_EQ(back({"redo"}), "0\nThere's nothing to redo: no undo or restore here that wasn't redone already.\n");
}

TEST_F(Turns, aRunningTurnARangeAndASession) {
    prompt("abc", "one");
    f.write("project/notes", "one\ntwo\n");
    stop("abc");
    f.write("project/mine", "by hand\n");
    prompt("abd", "two"); // interrupted: no end is ever seen
    f.write("project/notes", "one\ntwo\nthree\n");
    EXPECT_EQ(back({"undo", "--last"}), "0\nTook back turn #4 of claude, \"two\":\n~ notes\n"
                                        "Take this back with: tidewrack redo\n");
    EXPECT_EQ(f.read("project/notes"), "one\ntwo\n");
    EXPECT_EQ(back({"undo", "3..4"}).substr(0, 47), "0\nTook back what changed from #3 to #4:\n- mine\n");
    EXPECT_EQ(back({"undo", "--session", "ab"}), "1\ntidewrack: 2 sessions begin with ab, among them abc and abd.\n");
    EXPECT_EQ(back({"undo", "--session-of", "3"}).front(), '0');
    EXPECT_EQ(f.read("project/notes"), "one\n");
    const std::string shown = world.ok({"show", "3", "--stat"});
    EXPECT_NE(shown.find("  claude  \"one\"  +0 ~1 -0  (taken back)\n~ notes  +1 -0\n"), std::string::npos) << shown;
    for (const char* words : {"--turn=1", "--turn=999", "--session=x", "--session=", "4..3", "3..99"}) {
        const std::string word = words;
        const auto equals = word.find('=');
        std::vector<std::string> all{"undo", word.substr(0, equals)};
        if (equals != word.npos) all.push_back(word.substr(equals + 1));
        EXPECT_EQ(back(all).front(), '1') << word;
    }
}

// A dry run looks at the folder, the act at the safety snapshot: what is not kept looks different there.
TEST_F(Turns, filesTooLargeToBeKept) {
    const std::string record = "store/projects/" + world.project().id + "/project.json";
    json project = json::parse(f.read(record));
    project["maxFileSize"] = 100;
    f.write(record, project.dump());
    prompt("s", "large");
    f.write("project/config", std::string(200, 'x'));
    f.write("project/large", std::string(200, 'y'));
    f.write("project/README.md", std::string(200, 'z'));
    stop("s");
    f.write("project/README.md", std::string(300, 'z'));
    const std::string list =
        "turn #2–#3 of claude, \"large\":\n"
        "! README.md  changed again since, too large to merge\n"
        "~ config\n"
        "- large\n"
        "1 path is left alone; --force puts such paths back whole, --keep-later passes over them.\n";
    EXPECT_EQ(back({"undo", "--last", "--dry-run"}), "3\nWould take back " + list + "Nothing was changed.\n");
    // What can't be kept can't be replaced without loss, and says so.
    EXPECT_NE(back({"undo", "--last"}).find(list), std::string::npos);
    EXPECT_TRUE(f.has("project/large"));
}

TEST_F(Turns, whatTwoSessionsDidAtOnceIsNobodys) {
    prompt("a", "one");
    f.write("project/config", "port = 1\ndebug = off\n"); // before the other one begins
    snap("prompt", "codex", "b", "two");
    f.write("project/notes", "whose\n");
    snap("stop", "codex", "b", "End of turn");
    stop("a");
    EXPECT_EQ(back({"undo", "--turn", "2"}), "3\nTook back turn #2–#5 of claude, \"one\":\n"
                                             "~ config\n"
                                             "! notes  codex was at work here from #3 to #4\n"
                                             "1 path is left alone; --force puts such paths back whole, --keep-later "
                                             "passes over them.\n"
                                             "Take this back with: tidewrack redo\n");
    EXPECT_EQ(f.read("project/notes") + config(), "whose\nport = 80\ndebug = off\n");
    EXPECT_EQ(back({"undo", "--turn", "2", "--force"}).front(), '0');
    EXPECT_EQ(f.read("project/notes"), "one\n");
}

TEST_F(Turns, otherProjectsOfTheTurn) {
    f.write("other/file", "1\n");
    world.ok({"track", f.at("other")});
    prompt("s", "both");
    snap("tool", "claude", "s", "Before: rm ../other/file", f.at("other"));
    f.remove("other/file");
    f.write("project/notes", "2\n");
    stop("s");
    snap("stop", "claude", "s", "End of turn", f.at("other"));
    const json row = json::parse(world.ok({"timeline", "--json"}))["rows"][0];
    EXPECT_EQ(row["projects"], json{f.at("other")});
    EXPECT_EQ(back({"undo", "--last", "--here", "--dry-run"}).find(f.at("other")), std::string::npos);
    EXPECT_EQ(back({"undo", "--last"}), "0\nTook back turn #2–#3 of claude, \"both\":\n~ notes\n"
                                        "In " +
                                            f.at("other") +
                                            ": Took back turn #2–#3 of claude:\n+ file\n"
                                            "Take this back with: tidewrack redo\n"
                                            "Take this back with: tidewrack redo --project " +
                                            f.at("other") + "\n");
    EXPECT_EQ(f.read("other/file") + f.read("project/notes"), "1\none\n");
}
