// Turns seen from outside: what agents did, told and taken back.

#include "Support/TurnFixture.hpp"

#include "Engine/Engine.hpp"
#include "Platform/Descriptor.hpp"
#include "Support/Errors.hpp"
#include "Timeline/TurnUndo.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <future>
#include <regex>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

class Turns : public TurnFixture {};

} // namespace

// Through a shared mapping: nothing but the bytes tells it.
TEST_F(Turns, aLaterChangeThatLeavesTheTimesAloneStays) {
    prompt("s", "Set the port");
    f.write("project/config", "port = 8080\ndebug = off\n");
    const Descriptor file(::open(f.at("project/config").c_str(), O_RDWR | O_CLOEXEC));
    auto* const mapped = static_cast<char*>(::mmap(nullptr, 24, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
    ASSERT_NE(mapped, MAP_FAILED);
    mapped[0] = 'p'; // volumes tell the first such change
    stop("s");
    mapped[20] = 'O';
    ::munmap(mapped, 24);
    EXPECT_NE(back({"undo", "--last"}).find("~ config  merged\n"), std::string::npos);
    EXPECT_EQ(config(), "port = 80\ndebug = Off\n");
    world.ok({"redo"});
    EXPECT_EQ(config(), "port = 8080\ndebug = Off\n");
}

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
                                 "+ src/main.c\n"
                                 "2 files put back, 1 overwritten, 1 merged.\n";
        expectTakenBack({"undo", "--turn", number(2)}, "0", list);
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
    expectTakenBack({"undo", "--turn", "3"}, "3",
                    "turn #2–#3 of claude, \"one\":\n"
                    "~ README.md\n"
                    "! config  the same lines changed again in #5 (claude, \"two\")\n"
                    "! new  changed again since\n"
                    "! notes  made anew in #5 (claude, \"two\")\n"
                    "! src/main.c  deleted since\n"
                    "1 file overwritten.\n"
                    "4 paths are left alone; --force puts such paths back whole, --keep-later passes over them.\n");
    EXPECT_EQ(f.read("project/README.md") + config(), "the original\nport = 2\ndebug = off\n");
    EXPECT_EQ(back({"undo", "--turn", "3", "--keep-later", "config", "new"}),
              "0\nNothing of turn #2–#3 of claude, \"one\" is taken back:\n"
              "  config  kept: changed again in #5 (claude, \"two\")\n"
              "  new  kept: changed again in #6\n");
    // The newest turn stays the one that is meant, and a redo tells the same.
    f.write("project/config", "port = 3\ndebug = off\n");
    EXPECT_EQ(back({"undo", "--last", "--keep-later", "config"}),
              "0\nNothing of turn #4–#5 of claude, \"two\" is taken back:\n  config  kept: changed again since\n");
    f.write("project/config", "port = 2\ndebug = off\n");
    f.write("project/README.md", "mine\n");
    EXPECT_TRUE(std::regex_match(back({"redo", "--keep-later"}),
                                 std::regex("0\nNothing of the undo #6–#7 of .* is taken back:\n"
                                            "  README.md  kept: changed again since\n")));
    f.write("project/README.md", "the original\n");
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
    EXPECT_TRUE(
        std::regex_match(back({"undo", "--last"}),
                         std::regex("0\nTook back turn #4 of claude, \"two\", whose end was not seen: all changes "
                                    "from [A-Z][a-z]{2} [0-9:]{5} until now:\n~ notes\n1 file overwritten.\n"
                                    "Take this back with: tidewrack redo\n")));
    EXPECT_EQ(f.read("project/notes"), "one\ntwo\n");
    EXPECT_EQ(back({"undo", "3..4"}).substr(0, 47), "0\nTook back what changed from #3 to #4:\n- mine\n");
    EXPECT_EQ(back({"undo", "--session", "ab"}), "1\ntidewrack: 2 sessions begin with ab, among them abc and abd.\n");
    EXPECT_EQ(back({"undo", "--session-of", "3"}).front(), '0');
    EXPECT_EQ(f.read("project/notes"), "one\n");
    const std::string shown = world.ok({"show", "3", "--stat"});
    EXPECT_TRUE(std::regex_search(shown, std::regex("  claude  \"one\"  [+]0 ~1 -0  [(]taken back[)]\n"
                                                    "    session abc, from .* to .*\n~ notes  [+]1 -0\n")))
        << shown;
    EXPECT_NE(world.ok({"show", "last"}).find("\"two\""), std::string::npos);
    EXPECT_EQ(world.run({"show", "3", "nosuchfile"}).status, 1);
    // Neither paths nor words for the newest turn are ranges or numbers; what has changed nothing is no path of a turn.
    EXPECT_EQ(back({"undo", "../x"}), "1\ntidewrack: snapshot must be a snapshot number, got ../x\n");
    EXPECT_EQ(back({"undo", "--turn", "last"}),
              "1\ntidewrack: --turn needs a snapshot number, got last. `tidewrack timeline` lists the turns; --last is "
              "the newest.\n");
    EXPECT_EQ(back({"undo", "--last", "nodes"}),
              "1\ntidewrack: nodes is neither in any snapshot nor in the folder; did you mean notes?\n");
    EXPECT_EQ(back({"undo", "2", "nodes"}).front(), '1');
    EXPECT_EQ(back({"undo", "--turn", "3", "scr"}), "1\ntidewrack: scr isn't in what #2–#3 changed.\n");
    EXPECT_EQ(back({"undo", "--turn", "3", "notes"}),
              "0\nNothing of turn #2–#3 of claude, \"one\" is left to take back at notes.\n");
    EXPECT_EQ(back({"redo", "4"}), "1\ntidewrack: redo takes no words; it takes back the newest undo or restore\n");
    EXPECT_EQ(back({"undo", "2", "--last"}),
              "1\ntidewrack: undo takes either 2 or one of --last, --turn, --session and --session-of. A path of that "
              "name goes behind --, as in: tidewrack undo --last -- 2\n");
    EXPECT_EQ(back({"undo", "--turn", "3", "--", "2"}), "1\ntidewrack: 2 isn't in what #2–#3 changed.\n");
    EXPECT_EQ(back({"timeline", "--agent", "codex"}), "0\nNothing of that happened here.\n");
    EXPECT_EQ(back({"timeline", "--agent", "clod"}), "1\ntidewrack: unknown agent clod\n");
    EXPECT_EQ(back({"timeline", "--session", "zz"}), "1\ntidewrack: nothing of a session zz is on record here\n");
    EXPECT_EQ(back({"timeline", "--session=zz", "--html=p", "--contents"}).front(), '1');
    for (const char* words :
         {"3..4=--here", "3..4=--vault", "--turn=1", "--turn=999", "--session=x", "--session=", "4..3", "3..99"}) {
        const std::string word = words;
        const auto equals = word.find('=');
        std::vector<std::string> all{"undo", word.substr(0, equals)};
        if (equals != word.npos) all.push_back(word.substr(equals + 1));
        EXPECT_EQ(back(all).front(), '1') << word;
    }
}

TEST_F(Turns, aDryRunTellsWhatAKilledRestoreLeft) {
    prompt("s", "work");
    f.write("project/config", "the turn's\n");
    stop("s");
    f.write("store/projects/" + world.project().id + "/restores", ".tidewrack-12-ab- 3 1\n");
    for (const char* name : {"config", "notes"}) {
        f.write(std::string("project/.tidewrack-12-ab-0-") + name, f.read(std::string("project/") + name));
        f.remove(std::string("project/") + name);
    }
    f.write("project/.tidewrack-12-ab-1-README.md", "somebody's words");
    const std::string done = "~ config\n";
    const std::string recovered = "! README.md  what a restore that was cut short left of it would become "
                                  "README.md.tidewrack-1\n";
    const std::string back = "! notes  a restore that was cut short moved it aside; it would be put back\n";
    const std::string planned = this->back({"undo", "--last", "--dry-run"});
    EXPECT_NE(planned.find(":\n" + done + back + recovered + "1 file overwritten.\n"), std::string::npos) << planned;
    EXPECT_EQ(
        nlohmann::json::parse(world.ok({"undo", "--last", "--dry-run", "--json"}))["projects"][0]["warnings"].size(),
        2U);
    const std::string acted = this->back({"undo", "--last"});
    EXPECT_NE(acted.find(":\n" + done + "1 file overwritten.\n"), std::string::npos) << acted;
    EXPECT_EQ(std::count(acted.begin(), acted.end(), '!'), 0) << acted;
    EXPECT_NE(acted.find("had moved notes aside"), std::string::npos) << acted;
    EXPECT_NE(acted.find("it is README.md.tidewrack-1 in #"), std::string::npos) << acted;
}

TEST_F(Turns, aFileThatATurnChangedTwiceCountsOnce) {
    prompt("s", "one");
    f.write("project/notes", "1\n");
    world.ok({"undo", "--last"});
    f.write("project/notes", "2\n");
    stop("s");
    EXPECT_NE(world.ok({"timeline"}).find("claude  \"one\"  +0 ~1 -0"), std::string::npos) << world.ok({"timeline"});
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
    const std::string text = "3\nNothing of turn #2–#3 of claude, \"large\" is taken back:\n"
                             "! README.md  changed again since, too large to merge\n"
                             "! config  it couldn't be saved first (it was larger than the size limit)\n"
                             "! large  it couldn't be saved first (it was larger than the size limit)\n"
                             "3 paths are left alone; --force puts 1 back whole, --keep-later passes over 1.\n";
    EXPECT_EQ(back({"undo", "--last", "--dry-run"}), text + "Nothing was changed.\n");
    EXPECT_EQ(back({"undo", "--last"}), text);
    EXPECT_EQ(world.history().newestSeq(), 3); // not even a snapshot
}

// Nothing is put back below what is no folder any more, and what was moved from there is not lost.
TEST_F(Turns, whatCannotGoBackStaysWhereItIs) {
    prompt("s", "move");
    f.remove("project/src");
    f.write("project/lib/main.c", "int main;\n");
    f.write("project/lib/deep/er.c", "er\n");
    f.write("project/config", "moved\n");
    stop("s");
    f.write("project/src", "mine\n");
    std::string list = "! lib/deep/er.c  it can't go back to src/deep/er.c\n"
                       "! lib/main.c  it can't go back to src/main.c\n"
                       "! src  made anew since\n"
                       "! src/deep/  src is now a file, not a folder\n"
                       "! src/deep/er.c  src is now a file, not a folder\n"
                       "! src/main.c  src is now a file, not a folder\n";
    const std::string six = "6 paths are left alone; --force puts such paths back whole, --keep-later passes over "
                            "them.\n";
    expectTakenBack({"undo", "--last"}, "3",
                    "turn #2–#3 of claude, \"move\":\n~ config\n" + list + "1 file overwritten.\n" + six);
    const auto newest = world.history().newestSeq();
    list.replace(list.find("since"), 5, "in #4");
    EXPECT_EQ(back({"undo", "--last"}), "3\nNothing of turn #2–#3 of claude, \"move\" is taken back:\n" + list + six);
    EXPECT_EQ(world.history().newestSeq(), newest) << "nothing was done, so there is nothing to take back";
    EXPECT_EQ(back({"undo", "--last", "--keep-later"}).front(), '0');
    EXPECT_EQ(back({"undo", "--last", "--force"}).front(), '0');
    EXPECT_EQ(f.read("project/src/main.c") + f.read("project/src/deep/er.c"), "int main;\ner\n");
    EXPECT_FALSE(f.has("project/lib"));
}

TEST_F(Turns, aDryRunKnowsWhatTheFoldersRefuse) {
    if (::geteuid() != 0) GTEST_SKIP() << "all folders are the user's own";
    ASSERT_EQ(::chmod(f.path().c_str(), 0755), 0);
    f.write("project/mine/key", "k\n");
    world.ok({"snap"});
    prompt("s", "one");
    f.write("project/notes", "1\n");
    f.remove("project/src/main.c");
    f.remove("project/src/deep/er.c");
    ASSERT_EQ(::chmod(f.at("project/src").c_str(), 0700), 0);
    stop("s");
    std::string text = unprivileged(
        f,
        [&] {
            std::string told = back({"undo", "--last", "--dry-run"});
            return told += back({"undo", "--last"});
        },
        "store");
    const std::string refused =
        "3\nNothing of turn #3–#4 of claude, \"one\" is taken back:\n! notes  Permission denied\n"
        "! src/  Operation not permitted\n! src/deep/er.c  src/deep: Permission denied\n"
        "! src/main.c  Permission denied\n4 paths are left alone.\n";
    const std::string unread = "warning: couldn't read src: Permission denied; left out\n";
    EXPECT_EQ(text, refused + "Nothing was changed.\n" + unread + refused + unread);
    const std::string key = f.at("project/mine/key");
    text = unprivileged(
        f,
        [&] {
            (void)std::system(("echo changed >" + key + "; chmod 0 " + f.at("project/mine")).c_str());
            return back({"restore", "2", "mine", "--dry-run"});
        },
        "project/mine");
    EXPECT_NE(
        text.find("warning: what is in mine can't be seen before it is opened; what was changed in it stays as it "
                  "is\n"),
        text.npos)
        << text;
}

// What the restore itself finds in its way is told like everything else.
TEST_F(Turns, whatCannotBeDoneIsNoSuccess) {
    prompt("s", "one");
    f.remove("project/notes");
    f.write("project/config", "port = 8080\ndebug = off\n");
    f.write("project/README.md", "turn\n");
    stop("s");
    f.write("project/config", "port = 8080\ndebug = on\n");
    const Manifest first = world.manifestOf(1);
    const auto cut = [&](const std::string& path) {
        const std::string blob = world.history().blobPath(first.find(path)->blob);
        ASSERT_EQ(::chmod(blob.c_str(), 0644), 0);
        std::ofstream(blob, std::ios::trunc) << "p";
    };
    cut("config");
    cut("notes");
    expectTakenBack({"undo", "--last"}, "3",
                    "turn #2–#3 of claude, \"one\":\n"
                    "~ README.md\n"
                    "! config  what was kept of it is damaged\n"
                    "! notes  what was kept of it is damaged\n"
                    "1 file overwritten.\n"
                    "2 paths are left alone.\n");
    EXPECT_EQ(config(), "port = 8080\ndebug = on\n");
    EXPECT_EQ(back({"undo", "--last", "--force"}).front(), '3') << "nobody can take the rest back, and it still stands";
}

TEST_F(Turns, whatABuildLeavesBehindIsNoReasonToStayBehind) {
    if (!git(f.at("project"), "init -q")) GTEST_SKIP() << "no git";
    f.write("project/.gitignore", "dist\n");
    world.ok({"snap"});
    prompt("s", "one");
    f.write("project/notes", "built\n");
    stop("s");
    prompt("s", "two");
    f.write("project/dist/out", "built\n");
    f.write("project/pkg/mod.py", "m\n");
    f.write("project/pkg/node_modules/m/x", "m\n");
    stop("s");
    expectTakenBack({"undo", "--last"}, "0",
                    "turn #5–#6 of claude, \"two\":\n"
                    "  dist/  kept: it is ignored, so its content isn't in history\n"
                    "  pkg/  kept: history doesn't hold all that is in it (node_modules)\n"
                    "- pkg/mod.py\n"
                    "1 file removed.\n");
    EXPECT_EQ(back({"undo", "--last"}).find("0\nTook back turn #3–#4 of"), 0U);
    prompt("s", "three");
    f.remove("project/dist");
    f.write("project/notes", "three\n");
    stop("s");
    EXPECT_NE(back({"undo", "--last"}).find("! dist/  was not kept: it is ignored\n"), std::string::npos);
}

TEST_F(Turns, passesOverWhatIsTakenBackAlready) {
    prompt("s", "one");
    f.write("project/notes", "1\n");
    stop("s");
    prompt("s", "two");
    f.write("project/config", "two\n");
    stop("s");
    world.ok({"undo", "4"}); // by its number, in pieces, by hand: it all comes to the same
    f.write("project/config", "port = 80\ndebug = off\n");
    prompt("s", "touched");
    f.write("project/README.md", "the original\n");
    stop("s");
    const std::string text = back({"undo", "--last"});
    EXPECT_NE(text.find("Passed over turn #8–#9 of claude, \"touched\": nothing is left of it"), std::string::npos);
    EXPECT_NE(text.find("Took back turn #2–#3"), std::string::npos) << text;
    world.ok({"undo", "1"}); // changes nothing
    EXPECT_NE(back({"redo"}).find("Took back the undo #10–#11 of "), std::string::npos);
    EXPECT_EQ(f.read("project/notes"), "1\n");
}

// Nothing is done but what was shown when the answer was given.
TEST_F(Turns, asksAgainWhenMoreWasChanged) {
    const Descriptor terminal(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal || ::grantpt(terminal.get()) != 0 || ::unlockpt(terminal.get()) != 0) GTEST_SKIP() << "no terminal";
    const Descriptor inner(::open(::ptsname(terminal.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios plain{};
    ASSERT_EQ(::tcgetattr(inner.get(), &plain), 0);
    ::cfmakeraw(&plain);
    ASSERT_EQ(::tcsetattr(inner.get(), TCSANOW, &plain), 0);
    const auto untilQuestion = [&] {
        std::string text;
        pollfd waiting{terminal.get(), POLLIN, 0};
        for (char letter = 0; !text.ends_with("(yes/no) ") && ::poll(&waiting, 1, 20'000) == 1; text += letter)
            if (::read(terminal.get(), &letter, 1) != 1) break;
        return text;
    };
    prompt("s", "one");
    f.write("project/notes", "1\n");
    auto status = std::async(std::launch::async, [&] {
        Sink out(inner.get(), true);
        std::string said;
        Sink err(said);
        Surroundings around{world.environment, world.current, "tidewrack", out, err, inner.get()};
        return run({"undo"}, around);
    });
    EXPECT_NE(untilQuestion().find("~ notes\n1 file overwritten.\nDo it?"), std::string::npos);
    f.write("project/config", "more\n");
    EXPECT_EQ(::write(terminal.get(), "yes\n", 4), 4);
    const std::string again = untilQuestion();
    EXPECT_EQ(again.find("More was changed meanwhile.\n"), 0U) << again;
    EXPECT_NE(again.find("~ config\n~ notes\n2 files overwritten.\n"), std::string::npos) << again;
    EXPECT_EQ(f.read("project/notes"), "1\n");
    EXPECT_EQ(::write(terminal.get(), "Yes\n", 4), 4);
    EXPECT_EQ(status.get(), 0);
    EXPECT_EQ(f.read("project/notes"), "one\n");
}

// The look before the lock found it as it was chosen; what the turn does until then makes its number another hunk's.
TEST_F(Turns, aHunkThatBecomesAnotherOneAtTheLastMomentStays) {
    const std::string middle = "b\nc\nd\ne\nf\ng\nh\ni\n";
    f.write("project/config", "first\n" + middle + "last\n");
    prompt("s", "Runs on");
    f.write("project/config", "first\n" + middle + "LAST\n");
    const std::string turn = snap("tool", "claude", "s");
    const json shown = json::parse(world.ok({"show", turn, "config", "--json", "--lines"}));
    const Engine engine(world.store());
    const Project project = world.project();
    const TurnUndo undo(engine, project);
    TurnUndo::Options options;
    options.paths = {"config"};
    options.hunks = {{1, shown["files"][0]["hunks"][0]["digest"]}};
    options.dryRun = true;
    EXPECT_TRUE(undo.run(undo.turn(std::stoll(turn)), options).acts());
    options.dryRun = false;
    f.write("project/config", "FIRST\n" + middle + "LAST\n");
    try {
        (void)undo.run(undo.turn(std::stoll(turn)), options);
        ADD_FAILURE();
    } catch (const TidewrackError& error) {
        EXPECT_STREQ(error.what(), "config has another hunk 1 there.");
    }
    EXPECT_EQ(config(), "FIRST\n" + middle + "LAST\n");
}

// One part of a file goes, what was changed since stays, and each refusal changes nothing.
TEST_F(Turns, aHunkIsTakenBackByItself) {
    const auto text = [](const std::string& first, const std::string& middle, const std::string& last) {
        return first + "\n2\n3\n4\n5\n6\n7\n8\n9\n" + middle + "\n11\n12\n13\n14\n15\n16\n17\n18\n19\n" + last;
    };
    f.write("project/list", text("1", "10", "20"));
    prompt("s", "Change three places");
    f.write("project/list", text("one\nand a half", "ten", "twenty\n"));
    f.write("project/new", "new\n");
    stop("s");
    const auto seq = json::parse(world.ok({"timeline", "--json"}))["rows"][0]["first"].get<int>();
    const std::string turn = std::to_string(seq);
    const json files = json::parse(world.ok({"show", turn, "list", "--json", "--lines"}))["files"];
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0]["hunks"][1]["lines"],
              json::parse(R"([" 7\n", " 8\n", " 9\n", "-10\n", "+ten\n", " 11\n", " 12\n", " 13\n"])"));
    json last = files[0]["hunks"][2];
    const std::string digest = last["digest"];
    last.erase("digest");
    EXPECT_EQ(last, json::parse(R"({"oldBegin":17,"newBegin":18,"lines":
        [" 17\n", " 18\n", " 19\n", "-20", "+twenty\n"]})"));
    EXPECT_EQ(json::parse(world.ok({"diff", turn, "list", "--json", "--lines"}))["files"][0]["hunks"],
              files[0]["hunks"]);
    struct Refusal {
        std::vector<std::string> words;
        const char* reason;
    };
    const Refusal refusals[] = {{{"--hunk", "4", "list"}, "list has no hunk 4"},
                                {{"--hunk", "0", "list"}, "--hunk needs numbers"},
                                {{"--hunk", "1,", "list"}, "--hunk needs numbers"},
                                {{"--hunk", "1"}, "goes with one path"},
                                {{"--hunk", "1:", "list"}, "--hunk needs numbers"},
                                {{"--hunk", "1,1:a", "list"}, "names hunk 1 twice"},
                                {{"--hunk", "1,2:" + digest, "list"}, "list has another hunk 2 there."},
                                {{"--hunk", "1", "new"}, "was added or deleted"},
                                {{"--hunk", "1", "--force", "list"}, "without --force"}};
    for (const Refusal& each : refusals) {
        std::vector<std::string> words{"undo", "--turn", turn};
        words.insert(words.end(), each.words.begin(), each.words.end());
        EXPECT_NE(back(words).find(each.reason), std::string::npos) << back(words);
    }
    EXPECT_NE(back({"undo", turn, "--hunk", "1", "list"}).find("--hunk goes with --last"), std::string::npos);
    EXPECT_EQ(f.read("project/list"), text("one\nand a half", "ten", "twenty\n"));

    f.write("project/list", "later\n" + text("one\nand a half", "ten", "twenty\n"));
    EXPECT_NE(back({"undo", "--turn", turn, "--hunk=1,3:" + digest, "list"}).find("~ list  merged"), std::string::npos);
    EXPECT_EQ(f.read("project/list"), "later\n" + text("1", "ten", "20"));
    EXPECT_NE(back({"undo", "--turn", turn, "--hunk=3", "list"}).find("left to take back"), std::string::npos);
    EXPECT_FALSE(json::parse(world.ok({"timeline", "--json"}))["rows"][2]["undone"].get<bool>());
    world.ok({"redo"});
    EXPECT_EQ(f.read("project/list"), "later\n" + text("one\nand a half", "ten", "twenty\n"));
}
