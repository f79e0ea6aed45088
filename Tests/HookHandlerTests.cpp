#include "Support/HookFixture.hpp"
#include "Support/Program.hpp"

#include "Agents/AnswerInTime.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Text.hpp"
#include "Timeline/Timeline.hpp"

#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;
using std::chrono::steady_clock;

// A turn of every agent, from its prompt to the undo of everything.
TEST_F(HookHandlerTest, playsASessionOfEachAgent) {
    world.ok({"track"});
    const std::string before = f.listing("project");
    for (const Agent agent : allAgents) {
        const std::string name(rawValue(agent));
        SCOPED_TRACE(name);
        const bool cursor = agent == Agent::cursor;
        const bool asks = canAsk(agent);
        const bool answersInJson = traitsOf(agent).refusal != AgentTraits::Answer::exitStatus;
        const HookOutput allowed = cursor ? HookOutput{"{\"permission\":\"allow\"}", {}, 0} : HookOutput{};
        const auto first = world.history().seqs().back();
        const auto expectLog = [&](Kind kind, const std::string& text, int seq) {
            const std::string snapshot = "#" + std::to_string(first + seq) + " " + project;
            EXPECT_EQ(log(), Lines{name + " " + eventName(agent, kind) + " " + text + (seq > 0 ? snapshot : "")});
        };

        EXPECT_EQ(answer(agent, Kind::prompt, project, "Tidy\n up"),
                  cursor ? (HookOutput{"{\"continue\":true}", {}, 0}) : HookOutput{});
        expectLog(Kind::prompt, "", 1);
        EXPECT_EQ(snapshots().back(), "prompt " + name + " Tidy  up");

        const std::string store = f.listing("store");
        EXPECT_EQ(answer(agent, Kind::shell, project, "git status && ls | grep x > /dev/null"), allowed);
        EXPECT_EQ(raw(agent, "{\"hook_event_name\":\"SessionStart\"}"), HookOutput{});
        EXPECT_EQ(f.listing("store"), store) << "nothing is written for what is harmless";

        EXPECT_EQ(answer(agent, Kind::shell, project, "rm -rf build"), allowed);
        expectLog(Kind::shell, "allow rm -rf build → ", 2);
        EXPECT_EQ(snapshots().back(), "tool " + name + " Before: rm -rf build");
        f.remove("project/build");

        EXPECT_EQ(answer(agent, Kind::shell, project, "rm ~/outside.txt"), allowed);
        expectLog(Kind::shell, "allow rm ~/outside.txt → vault ID: 1 saved, 0 skipped", 0);
        f.remove("home/outside.txt");

        const HookOutput asked = answer(agent, Kind::shell, project, "rm -rf .");
        expectLog(Kind::shell, "ask rm -rf . → ", 3);
        const std::string question = "This deletes " + project + ", which contains the tracked project " + project +
                                     ". Tidewrack snapshotted it first; allow?";
        EXPECT_EQ(asked.exitCode, asks ? 0 : 2);
        EXPECT_NE((asks ? json::parse(asked.standardOutput.value()).dump() : *asked.standardError).find(question),
                  std::string::npos);

        const HookOutput denied = answer(agent, Kind::shell, project, "rm -rf ~");
        expectLog(Kind::shell, "deny rm -rf ~", 0);
        EXPECT_EQ(denied.exitCode, answersInJson ? 0 : 2);
        EXPECT_NE((answersInJson ? denied.standardOutput : denied.standardError)->find("Tidewrack blocked this"),
                  std::string::npos);

        EXPECT_EQ(answer(agent, Kind::stop, project), HookOutput{});
        expectLog(Kind::stop, "", 4);
        EXPECT_EQ(snapshots().back(), "stop " + name + " End of turn");

        world.ok({"undo", std::to_string(first + 2)});
        EXPECT_EQ(f.listing("project"), before);
        const auto entries = Vault(world.store()).entries();
        const VaultEntry saved =
            *std::find_if(entries.begin(), entries.end(), [&](const VaultEntry& entry) { return entry.agent == name; });
        EXPECT_EQ(saved.command + " " + saved.cwd, "rm ~/outside.txt " + project);
        world.ok({"vault", "restore", saved.id});
        EXPECT_EQ(f.read("home/outside.txt"), "outside");
    }
}

// Many more inputs are in Fuzz/EventsTarget.cpp.
TEST_F(HookHandlerTest, answersAnyInputWithAllow) {
    for (const std::string& input : {std::string(), std::string("[1]"), std::string(9, '\0'),
                                     "{\"a\":" + std::string(100000, '['), std::string("{\"prompt\":\"\xff\"}")}) {
        EXPECT_EQ(raw(Agent::codex, input), HookOutput{});
        EXPECT_EQ(log(), Lines{"codex ? unreadable input (" + std::to_string(input.size()) + " bytes)"});
    }
    // A client that cut a text in the middle of a character: the guard must still see the command.
    for (const std::string cut : {R"(\ud83d)", R"(a\ud83d\ud83d\udc4b)", R"(\uDC4B\\ud83d)", R"(\ud83d\u0041)"})
        EXPECT_EQ(
            raw(Agent::claude, R"({"hook_event_name":"PreToolUse","tool_name":"Bash","tool_input":{"description":")" +
                                   cut + R"(","command":"rm -rf ~"}})")
                .exitCode,
            2)
            << cut;
    (void)log();
    EXPECT_EQ(parseJsonRepairingEscapes(R"(["a\ud83d\ud83d\udc4b\\ud83d"])"), json({"a\uFFFD\U0001F44B\\ud83d"}));
    EXPECT_EQ(answer(Agent::cursor, Kind::prompt, "/tmp/a\nb", "x"), (HookOutput{"{\"continue\":true}", {}, 0}));
    EXPECT_EQ(log(), Lines{"cursor beforeSubmitPrompt not tracked: /tmp/a b"}) << "one line whatever the folder's name";
}

TEST_F(HookHandlerTest, startsTrackingGitRepositories) {
    f.makeFolder("project/.git");
    EXPECT_EQ(answer(Agent::gemini, Kind::prompt, project + "/src", "Go"), HookOutput{});
    EXPECT_EQ(log(), (Lines{"- track auto-tracked " + project, "gemini BeforeAgent #1 " + project}));

    // Also the one that a command reaches into from elsewhere; a work tree's ".git" is a file.
    f.write("home/other/.git", "gitdir: elsewhere");
    f.write("home/other/f", "x");
    expectAllowed("rm " + home + "/other/f", "#1 " + home + "/other", {"- track auto-tracked " + home + "/other"});

    // A whole repository is saved with git's own store as well: nobody was asked about a project unknown until now.
    f.write("home/whole/.git/HEAD", "x");
    f.link("project/repo", home + "/whole");
    expectAllowed("rm -rf ~/whole", "#1 " + home + "/whole; vault ID: 1 saved, 0 skipped",
                  {"- track auto-tracked " + home + "/whole"});
    EXPECT_EQ(savedOutside(), Lines{home + "/whole"});
    EXPECT_EQ(shell("find repo/ -name HEAD -delete"), HookOutput{});
    EXPECT_EQ(savedOutside(), Lines{}) << "its second snapshot suffices";
    f.write("home/reset/.git/HEAD", "x");
    EXPECT_EQ(shell("git -C ~/reset reset --hard"), HookOutput{});
    EXPECT_EQ(savedOutside(), Lines{}) << "git's own store stays";
    (void)log();

    f.makeFolder("home/.git"); // the home folder is too broad
    EXPECT_EQ(gitRoot(home + "/x/y"), home);
    EXPECT_EQ(answer(Agent::gemini, Kind::prompt, home, "Go"), HookOutput{});
    EXPECT_EQ(log(), Lines{"gemini BeforeAgent not tracked: " + home});

    if (!volumesTakeAnyBytes()) GTEST_SKIP() << "this volume has no names that cannot be tracked";
    f.write("repo\xff/.git/HEAD", "x");
    f.write("repo\xff/a", "x");
    f.write("repo\xff/b", "x");
    EXPECT_EQ(shell("rm ../repo*/a ../repo*/b"), HookOutput{});
    const Lines lines = log();
    ASSERT_EQ(lines.size(), 2U) << "a repository that can't be tracked is tried once";
    EXPECT_EQ(lines[0].find("- track didn't auto-track "), 0U);
}

TEST_F(HookHandlerTest, snapshotsEveryProjectThatACommandReaches) {
    world.ok({"track"});
    f.write("all/one/f", "1");
    f.write("all/two/f", "2");
    world.ok({"track", f.at("all/one")});
    world.ok({"track", f.at("all/two")});
    const std::string all = f.at("all");
    EXPECT_NE(shell("rm -rf " + all).standardOutput.value_or("").find("ask"), std::string::npos);
    const Lines lines = log();
    ASSERT_EQ(lines.size(), 1U);
    for (const char* part : {"#2 ", "/one; #2 ", "/two; vault ID: 1 saved, 0 skipped"})
        EXPECT_NE(lines[0].find(part), std::string::npos) << lines[0];

    expectAllowed("make", "#2 " + project);            // may do anything here
    expectAllowed("some-program -x", "#2 " + project); // may too, by a guess: nothing changed since, no record

    // A link may be removed or written through: the project that holds it and the file it leads to are both saved.
    f.link("project/link", home + "/outside.txt");
    expectAllowed("some-program -x", "#3 " + project);
    expectAllowed("echo > link", "#4 " + project + "; vault ID: 1 saved, 0 skipped");
    EXPECT_EQ(savedOutside(), (Lines{all, home + "/outside.txt"}));

    // A folder that a link leads to is saved when the command goes through the link, and only then.
    f.write("home/data/f", "x");
    f.link("project/data", home + "/data");
    expectAllowed("rm -rf data", "#5 " + project);
    expectAllowed("make -C " + home + "/data", "#6 " + project + "; vault ID: 1 saved, 0 skipped");
    EXPECT_EQ(savedOutside(), Lines{home + "/data"}) << "a path that is only mentioned";
    for (const char* command : {"find data/ -delete", "chmod -R 000 data", "rsync -a --delete src/ data"}) {
        EXPECT_EQ(shell(command), HookOutput{});
        EXPECT_EQ(savedOutside(), Lines{home + "/data"}) << command;
    }
}

TEST_F(HookHandlerTest, closesTheTurnInEveryProjectOfTheSession) {
    world.ok({"track"});
    f.write("other/f", "1");
    f.write("idle/f", "1");
    world.ok({"track", f.at("other")});
    world.ok({"track", f.at("idle")});
    (void)shell("rm ../other/f");
    (void)log();
    EXPECT_EQ(answer(Agent::claude, Kind::stop, project + "/src"), HookOutput{});
    EXPECT_EQ(log(), (Lines{"claude Stop #2 " + project, "claude Stop #3 " + f.at("other")}));

    (void)shell("rm ../other/f");
    (void)log();
    json unnamed = json::parse(event(Agent::claude, Kind::stop, project));
    unnamed.erase("session_id");
    EXPECT_EQ(raw(Agent::claude, unnamed.dump()), HookOutput{});
    EXPECT_EQ(log(), Lines{"claude Stop #3 " + project});

    backupDotfiles = true;
    f.write("home/.gitconfig", "x");
    EXPECT_EQ(answer(Agent::claude, Kind::stop, "/"), HookOutput{});
    EXPECT_EQ(log(), (Lines{"claude Stop #5 " + f.at("other"), "claude dotfiles vault ID: 1 saved, 14 skipped"}));
}

// An agent that is interrupted, or left in the middle of a turn, tells no other end.
TEST_F(HookHandlerTest, theEndOfASessionEndsItsOpenTurns) {
    world.ok({"track"});
    f.write("other/f", "1");
    world.ok({"track", f.at("other")});
    for (const Agent agent : allAgents) {
        if (traitsOf(agent).sessionEnd.empty()) continue;
        SCOPED_TRACE(rawValue(agent));
        json end = json::parse(event(agent, Kind::stop, project));
        end["hook_event_name"] = traitsOf(agent).sessionEnd;
        (void)answer(agent, Kind::prompt, project, "p");
        f.write("project/src/main.c", std::string(rawValue(agent)));
        (void)answer(agent, Kind::shell, project, "rm ../other/f");
        (void)log();
        EXPECT_EQ(raw(agent, end.dump()), HookOutput{});
        EXPECT_EQ(log().size(), 2U) << "in both projects";
        EXPECT_EQ(snapshots().back(), "stop " + std::string(rawValue(agent)) + " End of session");
        EXPECT_EQ(json::parse(world.ok({"timeline", "-n", "1", "--json"}))["rows"][0]["end"], "stop");
        EXPECT_EQ(raw(agent, end.dump()), HookOutput{});
        EXPECT_TRUE(log().empty()) << "what has ended";
    }
}

TEST_F(HookHandlerTest, aDamagedRecordCostsTheOtherProjectsNothing) {
    world.ok({"track"});
    f.write("wide/lost/.git/HEAD", "x");
    f.write("wide/lost/f", "x");
    world.ok({"track", f.at("wide/lost")});
    const std::string record = "store/projects/" + Store::projectID(f.at("wide/lost")) + "/project.json";
    f.write(record, "{}");
    const auto behindTheError = [&] {
        Lines lines = log();
        EXPECT_NE(lines.at(0).find("error: Corrupt store data: "), std::string::npos) << lines[0];
        lines.erase(lines.begin());
        return lines;
    };
    EXPECT_EQ(shell("rm -rf ~").exitCode, 2);
    EXPECT_EQ(behindTheError(), Lines{"claude PreToolUse deny rm -rf ~"});
    EXPECT_NE(shell("rm -rf .").standardOutput.value_or("").find("\"ask\""), std::string::npos);
    EXPECT_EQ(behindTheError(), Lines{"claude PreToolUse ask rm -rf . → #2 " + project});
    for (const char* folder : {"wide/lost", "wide"}) // or one around it
        EXPECT_EQ(shell(std::string("rm -rf ../") + folder),
                  askReply(Agent::claude, Kind::shell,
                           "This deletes " + f.at(folder) + ", which contains the tracked project " +
                               f.at("wide/lost") +
                               ". Tidewrack couldn't snapshot it first: its record can't be read. Allow?"));
    (void)log();
    EXPECT_EQ(shell("rm ../wide/lost/f"), HookOutput{});
    EXPECT_EQ(behindTheError(), Lines{"claude PreToolUse allow rm ../wide/lost/f → vault ID: 1 saved, 0 skipped"});
    EXPECT_EQ(answer(Agent::cursor, Kind::prompt, project, "x"), (HookOutput{"{\"continue\":true}", {}, 0}));
    EXPECT_EQ(behindTheError(), Lines{"cursor beforeSubmitPrompt #3 " + project});
    EXPECT_EQ(answer(Agent::claude, Kind::stop, project), HookOutput{});
    EXPECT_EQ(behindTheError(), Lines{"claude Stop #4 " + project});
    EXPECT_EQ(f.read(record), "{}") << "nothing is tracked in its place";
    f.write("home/fresh/.git/HEAD", "x");
    EXPECT_EQ(answer(Agent::claude, Kind::prompt, home + "/fresh"), HookOutput{});
    EXPECT_EQ(behindTheError(),
              (Lines{"- track auto-tracked " + home + "/fresh", "claude UserPromptSubmit #1 " + home + "/fresh"}));
}

// A folder in a file's place stops everybody, root included.
TEST_F(HookHandlerTest, asksAndEndsTheTurnAlthoughAProjectCannotBeSaved) {
    world.ok({"track"});
    f.write("other/f", "1");
    world.ok({"track", f.at("other")});
    (void)shell("rm ../other/f");
    (void)log();
    const std::string lock = world.history().lockPath();
    f.remove(lock.substr(f.path().size() + 1));
    f.makeFolder(lock.substr(f.path().size() + 1));
    const std::string error = "can't open lock " + lock;
    const std::string question = "This deletes " + project + ", which contains the tracked project " + project +
                                 ". Tidewrack couldn't snapshot it first: " + error + ". Allow?";
    for (const Agent agent : allAgents) {
        const HookOutput asked = answer(agent, Kind::shell, project, "rm -rf . ~/outside.txt");
        EXPECT_EQ(asked, askReply(agent, Kind::shell, question));
        const std::string start = std::string(rawValue(agent)) + " " + eventName(agent, Kind::shell);
        EXPECT_EQ(log(), (Lines{start + " error: " + error,
                                start + " ask rm -rf . ~/outside.txt → vault ID: 1 saved, 0 skipped"}));
    }
    EXPECT_EQ(answer(Agent::claude, Kind::stop, project), HookOutput{});
    EXPECT_EQ(log(), (Lines{"claude Stop error: " + error, "claude Stop #3 " + f.at("other")}));
}

TEST_F(HookHandlerTest, tellsFinishedTasksFromPrompts) {
    world.ok({"track"});
    (void)answer(Agent::claude, Kind::prompt, project, "first");
    (void)shell("rm -rf src");
    (void)answer(Agent::claude, Kind::prompt, project, "Background task finished"); // which somebody typed
    (void)shell("rm -rf src");
    EXPECT_EQ(Timeline::of(project, world.history().snapshots()).rows.size(), 3U); // and the one of `track`
    f.remove("store");
    world.ok({"track"});
    (void)answer(Agent::claude, Kind::prompt, project, "<task-notification>\n<task-id>b</task-id>");
    (void)answer(Agent::codex, Kind::prompt, project, "<task-notification>");
    EXPECT_EQ(snapshots(),
              (Lines{"manual - -", "prompt claude Background task finished", "prompt codex <task-notification>"}));
}

TEST_F(HookHandlerTest, answersInTimeWhenAProjectIsLocked) {
    world.ok({"track"});
    const ProjectLock held(world.history().lockPath());
    budget = milliseconds(100);
    const auto began = steady_clock::now();
    EXPECT_NE(shell("rm -rf .").standardOutput.value_or("").find("couldn't snapshot it first: there was no time left."),
              std::string::npos);
    EXPECT_EQ(log(), Lines{"claude PreToolUse ask rm -rf . → skipped " + project});
    EXPECT_NE(shell("rm -rf *").standardOutput.value_or("").find("couldn't snapshot it first: there was no time left."),
              std::string::npos);
    (void)log();
    EXPECT_EQ(answer(Agent::claude, Kind::prompt, project, "x"), HookOutput{});
    const Lines lines = log();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("error: can't lock "), std::string::npos);
    EXPECT_GE(steady_clock::now() - began, milliseconds(180));
    EXPECT_LT(steady_clock::now() - began, milliseconds(2000));
}

// Whatever keeps saving from its end, which comes later by itself.
TEST_F(HookHandlerTest, answersBeforeTheAgentGoesOnWithoutAnAnswer) {
    world.ok({"track"});
    std::optional<ProjectLock> held(world.history().lockPath());
    patience = milliseconds(100);
    const std::string whole = "This deletes " + project + ", which contains the tracked project " + project +
                              ". Tidewrack couldn't snapshot it first: there was no time left.";
    const auto began = steady_clock::now();
    for (const auto& [command, question] : std::vector<std::pair<std::string, std::string>>{
             {"rm -rf .", whole + " Tidewrack can't save " + project + ": there was no time left. Allow?"},
             {"rm -rf src", "This deletes or overwrites " + project +
                                "/src. Tidewrack can't save it: there was no time left. Allow?"}})
        EXPECT_EQ(shell(command), askReply(Agent::claude, Kind::shell, question));
    EXPECT_EQ(shell("mkdir -p new"), HookOutput{});
    EXPECT_LT(steady_clock::now() - began, milliseconds(3000));
    held.reset();
    patience = milliseconds(20000);
    EXPECT_EQ(shell("rm -rf src"), HookOutput{});
    EXPECT_EQ(shell("rm -rf .").standardOutput.value_or("").find("couldn't"), std::string::npos);
    for (int i = 0; i < 200 && world.history().seqs().size() < 6; ++i) std::this_thread::sleep_for(milliseconds(10));
    EXPECT_GE(world.history().seqs().size(), 5U) << "the late ones have been taken as well";
    const auto dies = []() -> HookOutput {
        ::raise(SIGKILL);
        return {};
    };
    EXPECT_EQ(answerInTime({}, dies,
                           [](const char* why) {
                               return HookOutput{why, {}, 2};
                           }),
              (HookOutput{"saving it failed", {}, 2}));
    const HookOutput both{"{}", std::string("a\0b", 3), 2};
    EXPECT_EQ(answerInTime(
                  {}, [&] { return both; }, [](const char*) { return HookOutput{}; }),
              both);
}

TEST_F(HookHandlerTest, beginsToTrackNothingThatDelaysAVerdict) {
    f.makeFolder("project/.git");
    f.makeFolder("store/projects/" + Store::projectID(project));
    const ProjectLock held(f.at("store/projects/" + Store::projectID(project) + "/lock"));
    const auto began = steady_clock::now();
    EXPECT_EQ(shell("rm -rf ~").exitCode, 2);
    EXPECT_LT(steady_clock::now() - began, milliseconds(3000));
    EXPECT_EQ(log().at(0).find("- track didn't auto-track " + project + ": can't lock "), 0U);
    if (::geteuid() != 0) GTEST_SKIP() << "giving a folder away needs root";
    EXPECT_EQ(::chmod(f.path().c_str(), 0755), 0);
    EXPECT_EQ(::chown(f.at("project/.git").c_str(), 1234, 1234), 0);
    EXPECT_EQ(unprivileged(
                  f, [&] { return gitRoot(project).value_or("nobody's"); }, "home"),
              "nobody's");
}

// Nothing is saved, but what may be lost is asked about.
TEST_F(HookHandlerTest, asksForTheProjectsOfAStoreThatIsNotBelieved) {
    world.ok({"track"});
    ASSERT_EQ(::chmod(f.path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(f.at("store").c_str(), 0777), 0);
    const auto said = [&] { return shell("rm -rf " + project).standardOutput.value_or(""); };
    EXPECT_NE(said().find(". Tidewrack couldn't snapshot it first: everybody can write to Tidewrack's history "),
              std::string::npos)
        << said();
    ASSERT_EQ(::chmod(f.at("store").c_str(), 0700), 0);
    EXPECT_EQ(world.history().newestSeq(), 1);
    ASSERT_EQ(::chmod(f.at("store/projects").c_str(), 0), 0);
    const std::string removal = event(Agent::claude, Kind::shell, project, "rm -rf " + project);
    const std::string text = unprivileged(
        f,
        [&] {
            return raw(Agent::claude, removal).standardOutput.value_or("") + world.run({"log"}).err +
                   world.run({"projects"}).out;
        },
        "store");
    EXPECT_NE(text.find("which may hold a tracked project. Tidewrack couldn't snapshot it first: "), std::string::npos)
        << text;
    EXPECT_EQ(text.find("isn't tracked"), std::string::npos) << text;
    EXPECT_EQ(text.find("Nothing tracked"), std::string::npos) << text;
    ::chmod(f.at("store/projects").c_str(), 0700);
}

TEST_F(HookHandlerTest, allowsWhenTheStoreCannotBeWritten) {
    world.ok({"track"});
    world.environment["TIDEWRACK_HOME"] = f.at("project/src/main.c/store");
    f.makeFolder("project/.git");
    EXPECT_EQ(shell("rm -rf src"), HookOutput{});
    EXPECT_EQ(shell("rm -rf ~").exitCode, 2);
    EXPECT_EQ(answer(Agent::cursor, Kind::prompt, project, "x"), (HookOutput{"{\"continue\":true}", {}, 0}));
    EXPECT_EQ(answer(Agent::claude, Kind::stop, project), HookOutput{});
    EXPECT_EQ(f.read("project/src/main.c"), "int main;\n");

    // The store is there, and none of its folders can be written. Permissions bind everybody but root.
    world.environment["TIDEWRACK_HOME"] = f.at("store");
    ::chmod(f.path().c_str(), 0755);
    Lines folders = {f.at("store")};
    for (const auto& entry : std::filesystem::recursive_directory_iterator(f.at("store")))
        if (entry.is_directory()) folders.push_back(entry.path());
    for (const std::string& folder : folders) ::chmod(folder.c_str(), 0555);
    const std::string before = f.listing("store/projects");
    // Read beforehand: the other user may not be allowed to see the test data.
    const std::string inside = event(Agent::claude, Kind::shell, project, "rm -rf src ~/outside.txt");
    const std::string wholeHome = event(Agent::claude, Kind::shell, project, "rm -rf ~");
    const std::string end = event(Agent::claude, Kind::stop, project);
    const auto exitCodes = [&] {
        std::string codes;
        for (const std::string& input : {inside, wholeHome, end})
            codes += std::to_string(raw(Agent::claude, input).exitCode);
        return codes;
    };
    EXPECT_EQ(unprivileged(world.folder, exitCodes, "home"), "020");
    EXPECT_EQ(f.listing("store/projects"), before);
    for (const std::string& folder : folders) ::chmod(folder.c_str(), 0755);
}

TEST_F(HookHandlerTest, finishesATurnButNotAPromptWhenToldToEnd) {
    world.ok({"track"});
    for (const Kind kind : {Kind::stop, Kind::prompt}) {
        auto held = std::make_unique<ProjectLock>(world.history().lockPath());
        Program hook(world, {"hook", "claude"}, Program::Output::collected, std::nullopt);
        hook.write(std::string(1'000'000, ' ')); // more than a pipe holds: the hook reads by now
        for (const int number : {SIGTERM, SIGHUP}) hook.signal(number);
        hook.write(event(Agent::claude, kind, project, "x"));
        hook.endInput();
        for (int i = 0; kind == Kind::stop && i < 20; ++i) { // also while it works, and waits for the lock
            for (const int number : {SIGTERM, SIGHUP}) hook.signal(number);
            std::this_thread::sleep_for(milliseconds(10));
        }
        if (kind == Kind::stop) held.reset();
        EXPECT_EQ(hook.wait().status > 128, kind == Kind::prompt);
    }
    EXPECT_EQ(snapshots(), (Lines{"manual - -", "stop claude End of turn"}));
}
