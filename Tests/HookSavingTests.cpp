// What hooks save before a command or an edit, and what they ask because it can't be saved.

#include "Support/HookFixture.hpp"

#include "Agents/Replaceable.hpp"
#include "Platform/Volumes.hpp"
#include "Store/EditLog.hpp"
#include "Timeline/Timeline.hpp"

#include <sys/stat.h>

using namespace tidewrack;
using namespace tidewrack::testing;
using HookSaving = HookHandlerTest;

TEST_F(HookSaving, saysWhatASnapshotLacks) {
    world.ok({"track"});
    f.write("project/locked", "not to be read");
    ::chmod(f.at("project/locked").c_str(), 0);
    for (const auto& [agent, text] : {std::pair(Agent::codex, "rm -rf ."), {Agent::gemini, "rm locked"}}) {
        const std::string input = event(agent, Kind::shell, project, text);
        const std::string said =
            unprivileged(f, [&, who = agent] { return raw(who, input).standardError.value_or(""); });
        const bool whole = agent == Agent::codex;
        const std::string unsaved = "Tidewrack can't save " + project + "/locked: it can't be read. Allow?";
        EXPECT_EQ(said.substr(0, said.find(" This agent")),
                  whole ? "This deletes " + project + ", which contains the tracked project " + project +
                              ". Tidewrack snapshotted it first, without 1 file (Permission denied). " + unsaved
                        : "This deletes or overwrites " + project +
                              "/locked. Tidewrack can't save it: it can't be read. Allow?");
    }
    const Lines lines = log();
    EXPECT_EQ(lines.at(0), "codex PreToolUse ask rm -rf . → #2 " + project +
                               "; vault ID: 0 saved, 1 skipped; 1 not saved: locked: Permission denied");
    ::chmod(f.at("project/locked").c_str(), 0600);
    f.makeFolder("project/unseen");
    ::chmod(f.at("project/unseen").c_str(), 0);
    const std::string prompt = event(Agent::codex, Kind::prompt, project, "x");
    (void)unprivileged(f, [&] { return raw(Agent::codex, prompt).standardError.value_or(""); });
    const std::string noted = log().at(0);
    EXPECT_NE(noted.find("; 1 not saved: couldn't read unseen: Permission denied, not saved"), noted.npos) << noted;
    ::chmod(f.at("project/unseen").c_str(), 0700);
}

// A snapshot without git's answers lacks nothing.
TEST_F(HookSaving, aSilentGitIsNotedAndCountsAsNoMissingFile) {
    if (!git(project, "init -q")) GTEST_SKIP() << "git is not installed";
    world.ok({"track"});
    ASSERT_EQ(::mkfifo((project + "/.gitignore").c_str(), 0600), 0);
    const std::string said = answer(Agent::claude, Kind::shell, project, "rm -rf .").standardOutput.value_or("");
    EXPECT_NE(said.find(". Tidewrack snapshotted it first; allow?"), said.npos) << said;
    const std::string noted = log().back();
    EXPECT_NE(noted.find("; git didn't say in time which folders it ignores, those of the previous"), noted.npos)
        << noted;
}

TEST_F(HookSaving, asksBeforeItsOwnHistoryOrHooksGo) {
    world.ok({"track"});
    f.write("home/.claude/settings.json", R"({ /* by hand */ "command": "/opt/tidewrack hook claude" })");
    f.write("home/.codex/hooks.json", "{}"); // holds none
    f.write("home/dotfiles/gemini.json", R"({"command":"'/my apps/tidewrack' hook gemini"})");
    f.link("home/.gemini/settings.json", "../dotfiles/gemini.json");
    f.write("home/.claude/plugins/cache/tidewrack/tidewrack/1.0.0/hooks/hooks.json", "{}");
    f.write("home/.gemini/extensions/tidewrack/gemini-extension.json", "{}");
    struct Row {
        std::string command;
        const char* question; // a part of it; null where nothing is asked
    };
    const Row rows[] = {
        {"rm -rf " + f.at("store") + "/projects", "Tidewrack's own history"},
        {"echo > ~/.claude/settings.json", "Tidewrack's hooks"},
        {"mv ~/.gemini ~/x", "Tidewrack's hooks"},
        {"echo > ~/dotfiles/gemini.json", "Tidewrack's hooks"},
        {"tidewrack untrack", "Tidewrack's own history"},
        {"echo '*' >> src/../.TidewrackIgnore", "what an agent does to them could not be undone"},
        {"cp src/main.c .tidewrackignore", "what an agent does to them could not be undone"},
        {"tidewrack exclude --project . src", "what an agent does to them could not be undone"},
        {"cat .tidewrackignore; tidewrack include x; tidewrack exclude --dry-run src; tidewrack config list", nullptr},
        {"rm -rf ~/.claude/plugins", "Tidewrack's hooks"},
        {"rm -r ~/.gemini/extensions/tidewrack", "Tidewrack's hooks"},
        {"rm -rf ~/.gemini/extensions/other", nullptr},
        {"echo > ~/.codex/hooks.json", nullptr},
        {"tidewrack log; cat ~/.claude/settings.json", nullptr},
    };
    for (const Row& row : rows) {
        for (const Agent agent : allAgents) {
            const HookOutput output = answer(agent, Kind::shell, project, row.command);
            const std::string text = output.standardOutput.value_or("") + output.standardError.value_or("");
            const bool asks = canAsk(agent);
            EXPECT_EQ(output.exitCode, row.question && !asks ? 2 : 0) << row.command;
            EXPECT_EQ(text.find(row.question ? row.question : "Tidewrack") != text.npos, row.question != nullptr)
                << row.command << rawValue(agent) << text;
            EXPECT_EQ(text.find("\"ask\"") != text.npos, row.question && asks) << row.command;
        }
    }
}

TEST_F(HookSaving, savesWhatAFileToolIsAboutToChange) {
    world.ok({"track"});
    f.write("other/f", "1");
    world.ok({"track", f.at("other")});
    f.link("project/out", home + "/outside.txt");
    f.write("project/node_modules/lib/x.js", "left out by its name");
    f.write("project/large", "larger than the limit");
    f.write("project/left.out", "by its owner");
    f.write("project/.tidewrackignore", "*.out\n");
    limitSizes(15);
    for (const Agent agent : allAgents) {
        const std::string name(rawValue(agent));
        SCOPED_TRACE(name);
        f.remove("store/vault");
        const auto edits = [&, agent](const std::string& path) { return raw(agent, editEvent(agent, project, path)); };
        const HookOutput allowed = allowReply(agent, Kind::edit);
        const std::string start = name + " " + std::string(traitsOf(agent).tool);
        (void)answer(agent, Kind::prompt, project, "x");
        (void)log();
        const std::string before = f.listing("store/projects/" + world.project().id + "/snapshots");
        EXPECT_EQ(edits(project + "/src/main.c"), allowed);
        EXPECT_EQ(edits(home + "/new.txt"), allowed) << "there is nothing to save";
        EXPECT_EQ(log(), Lines{});
        EXPECT_EQ(f.listing("store/projects/" + world.project().id + "/snapshots"), before);

        const auto other = *world.store().projectContaining(f.at("other"));
        const auto next = std::to_string(*world.store().history(other).newestSeq() + 1);
        EXPECT_EQ(edits(f.at("other/f")), allowed);
        EXPECT_EQ(edits(f.at("other/g")), allowed) << "one snapshot holds the state before all edits of a turn";
        EXPECT_EQ(log(), Lines{start + " allow " + oneLine("editing " + f.at("other/f"), 80) + " → #" + next + " " +
                               f.at("other")});
        for (const std::string& path : {home + "/outside.txt", project + "/out"}) {
            EXPECT_EQ(edits(path), allowed);
            EXPECT_EQ(savedOutside(), Lines{home + "/outside.txt"});
        }
        (void)log();

        for (const char* unkept : {"/node_modules/lib/x.js", "/large", "/left.out"}) { // no snapshot holds them
            EXPECT_EQ(edits(project + unkept), allowed);
            EXPECT_EQ(savedOutside(), Lines{project + unkept});
        }
        (void)log();

        EXPECT_EQ(edits(f.at("store/hooks.log")).exitCode, canAsk(agent) ? 0 : 2);
        EXPECT_NE(edits(project + "/.git/config"), allowed);
        EXPECT_NE(edits(project + "/.tidewrackignore"), allowed);
        EXPECT_NE(log().at(0).find(" ask editing "), std::string::npos);

        const auto noted = notedEdits(f.read("store/projects/" + world.project().id + "/edits.log")).edits;
        ASSERT_GE(noted.size(), 7U);
        const NotedEdit& main = noted.at(noted.size() - 7);
        EXPECT_EQ(main.agent + " " + main.session.value_or("-") + " " + main.path, name + " session src/main.c");
    }
}

TEST_F(HookSaving, judgesAFolderThatAToolTakesAsOneThatACommandTakes) {
    world.ok({"track"});
    f.write("other/f", "1");
    world.ok({"track", f.at("other")});
    const auto toolReply = [&](const char* tool, const json& input) {
        json object = json::parse(event(Agent::claude, Kind::shell, project));
        object["tool_name"] = tool;
        object["tool_input"] = input;
        return raw(Agent::claude, object.dump()).standardOutput.value_or("");
    };
    const auto asks = [&](const std::string& reply) { return reply.find("\"ask\"") != std::string::npos; };
    EXPECT_TRUE(asks(toolReply("mcp__fs__delete_directory", {{"path", f.at("other")}})));
    EXPECT_TRUE(asks(toolReply("mcp__fs__move_file", {{"source", f.at("other")}, {"destination", home + "/x"}})));
    EXPECT_FALSE(asks(toolReply("mcp__fs__create_directory", {{"path", f.at("other")}})));
    EXPECT_FALSE(asks(toolReply("mcp__fs__move_file", {{"source", home + "/x"}, {"destination", f.at("other")}})));
}

TEST_F(HookSaving, savesAWorkTreeThatIsThrownAwayAndTellsAnInterruptedTurn) {
    world.ok({"track"});
    f.write("project/.claude/worktrees/side/a", "x");
    f.write("project/.claude/worktrees/side/large", "larger than the limit");
    limitSizes(15);
    const std::string side = project + "/.claude/worktrees/side";
    json leave = json::parse(event(Agent::claude, Kind::shell, side));
    leave["tool_name"] = "ExitWorktree";
    leave["tool_input"] = {{"action", "remove"}};
    EXPECT_EQ(raw(Agent::claude, leave.dump()), HookOutput{});
    EXPECT_EQ(savedOutside(), Lines{side + "/large"});
    json interrupt = json::parse(event(Agent::codex, Kind::stop, project));
    interrupt["hook_event_name"] = "Interrupt";
    EXPECT_EQ(raw(Agent::codex, interrupt.dump()), HookOutput{});
    EXPECT_EQ(snapshots(),
              (Lines{"manual - -", "tool claude Before: removing the work tree " + side, "stop codex Interrupted"}));
    EXPECT_EQ(world.ok({"cat", "2", ".claude/worktrees/side/a"}), "x");
}

TEST_F(HookSaving, namesWhatItCouldNotSaveInTime) {
    world.ok({"track"});
    f.write("project/src/new", "new");
    f.write("project/new", "new");
    budget = milliseconds(0);
    const auto expectAsked = [this](const std::string& command, const std::string& path, const std::string& saved) {
        const std::string asked = "This deletes or overwrites " + path + ". Tidewrack can't save " +
                                  (path.ends_with(" more") ? "them" : "it") + ": there was no time left. Allow?";
        EXPECT_EQ(shell(command), askReply(Agent::claude, Kind::shell, asked));
        EXPECT_EQ(log(), Lines{"claude PreToolUse ask " + command + " → " + saved});
    };
    expectAsked("rm -rf ~/outside.txt", home + "/outside.txt", "vault ID: 0 saved, 1 skipped");
    EXPECT_EQ(Vault(world.store()).entries().front().skipped, Lines{home + "/outside.txt"});
    expectAsked("rm -rf src", project + "/src", "skipped " + project);
    expectAllowed("rm -rf node_modules", "skipped " + project);            // no snapshot has it
    expectAsked("rm -rf build", project + "/build", "skipped " + project); // which git doesn't ignore
    expectAsked("rm -rf src new", project + "/new and 1 more", "skipped " + project);
    if (git(f.path(), "init -q repo")) {
        f.write("repo/.gitignore", "build\n");
        f.write("repo/build/out", "built");
        world.ok({"track", f.at("repo")});
        expectAllowed("rm -rf ../repo/build", "skipped " + f.at("repo"));
    }
    f.write("home/repo/.git/HEAD", "x");
    f.write("home/repo/f", "x");
    expectAsked("rm ~/repo/f", home + "/repo/f", "vault ID: 0 saved, 1 skipped"); // too late to count a repository

    EXPECT_EQ(answer(Agent::claude, Kind::prompt, project, "x"), HookOutput{});
    EXPECT_EQ(log(), Lines{"claude UserPromptSubmit #2 " + project + ", 2 skipped"});
    EXPECT_EQ(world.manifestOf(2).find("src/new")->notKept(), true);
    budget.reset();
    EXPECT_EQ(answer(Agent::claude, Kind::prompt, project, "x"), HookOutput{});
    EXPECT_EQ(log(), Lines{"claude UserPromptSubmit #3 " + project});
    EXPECT_EQ(world.ok({"cat", "3", "src/new"}), "new") << "the next snapshot catches up";
}

TEST_F(HookSaving, asksBeforeWhatTheVaultCannotHold) {
    for (const char* name : {"many/a", "many/in/here", "x/node_modules/a", "x/node_modules/b", ".cache/a", ".cache/b"})
        f.write(std::string("home/") + name, "x");
    for (const char* name : {"home/all/tracked/f", "home/all/other", "temporary/a", "temporary/b"}) f.write(name, "x");
    world.ok({"track", f.at("home/all/tracked")});
    world.ok({"track"});
    f.write("project/large", "larger than the limit");
    limitSizes(15);
    const std::string deletes = "This deletes or overwrites ";
    const std::string manyFiles = ": it has more than 1 files. Allow?";
    struct Row {
        std::string command;
        std::string question; // empty: it is allowed
        std::size_t saved = 0;
    };
    const Row rows[] = {
        {"rm -rf ~/many", deletes + home + "/many. Tidewrack can't save it" + manyFiles},
        {"find ~/many -delete", deletes + home + "/many. Tidewrack can't save it" + manyFiles},
        {"rm -rf ~/all", "This deletes " + home + "/all, which contains the tracked project " + home +
                             "/all/tracked. Tidewrack snapshotted it first. Tidewrack can't save " + home + "/all" +
                             manyFiles},
        {"rm -rf ~/many ~/all/tracked/../../many/../many/.",
         deletes + home + "/many. Tidewrack can't save it" + manyFiles},
        {"find ~/many -name 'a*' -delete", deletes + home + "/many. Tidewrack can't save it" + manyFiles},
        {"find ~/many -name a -exec rm {} +", deletes + home + "/many. Tidewrack can't save it" + manyFiles},
        {"rsync -a --delete ~/x/ ~/many/", deletes + home + "/many. Tidewrack can't save it" + manyFiles},
        {"find ~/many -name a -exec wc {} +; rsync -an --delete ~/x/ ~/many/", ""},
        {"find ~/x ~/.cache -name a -delete", deletes + home + "/x. Tidewrack can't save it" + manyFiles},
        {"rm -rf ~/x/node_modules ~/.cache " + f.at("temporary"), ""}, // nobody misses these
        {"mv ~/many ~/else", ""},                                      // it is all there afterwards
        {"chmod -R 700 ~/many", ""},
        {"rm -rf ~/many/none", ""},        // nothing stands there
        {"rm -rf ~/many/in; make", "", 1}, // it can be saved
        {"echo > ~/many/a", "", 1},
        {"rm large", "", 1}, // no snapshot holds it, the vault does
        {"rm -rf .",
         "This deletes " + project + ", which contains the tracked project " + project +
             ". Tidewrack snapshotted it first; allow?",
         1},
    };
    for (const Row& row : rows) {
        HookHandler handler(world.store(), world.environment, home);
        handler.vault.mostFiles = 1;
        const HookOutput output =
            handler.handle(Agent::codex, event(Agent::codex, Kind::shell, project, row.command), world.current);
        EXPECT_EQ(output, row.question.empty() ? HookOutput{} : askReply(Agent::codex, Kind::shell, row.question))
            << row.command << output.standardError.value_or("");
        EXPECT_EQ(savedOutside().size(), row.saved) << row.command;
    }
    EXPECT_TRUE(isReplaceable("/var/lib/apt/lists/x", {}, home));
    EXPECT_FALSE(isReplaceable("/run/media/ann/disk/photos", {}, home)); // where removable disks are
    // A file that can't be copied is only added to, or overwritten.
    HookHandler handler(world.store(), world.environment, home);
    handler.budget = milliseconds(0);
    for (const auto& [command, asks] : {std::pair("echo x >> ~/outside.txt", false),
                                        {"echo x > ~/outside.txt", true},
                                        {"tee -a ~/outside.txt", false},
                                        {"cp -n ~/x.txt ~/outside.txt", false},
                                        {"cp ~/x.txt ~/outside.txt", true},
                                        {"truncate -s +1K ~/outside.txt", false},
                                        {"truncate -s 0 ~/outside.txt", true},
                                        {"dd if=/dev/zero of=~/outside.txt oflag=append conv=notrunc", false},
                                        {"dd if=/dev/zero of=~/outside.txt", true}})
        EXPECT_EQ(handler.handle(Agent::codex, event(Agent::codex, Kind::shell, "/", command), "/").exitCode == 2, asks)
            << command;
}

// Nothing but the vault has it.
TEST_F(HookSaving, savesWhatItsOwnerLeavesOutLikeWhatLiesOutside) {
    for (const char* name :
         {"out/a", "out/b", "one/a", "lib/in/one/b", "lib/in/x.log", "lib/y", "pair/out/a", "pair/out/b"})
        f.write(std::string("project/") + name, "x");
    f.write("project/.tidewrackignore", "out/\none\n*.log\n");
    world.ok({"track"});
    const std::string many = ": it has more than 1 files. Allow?";
    struct Row {
        const char* command;
        std::string question; // a part of it; empty: it is allowed
        Lines saved;
    };
    const Row rows[] = {
        {"rm -rf out", project + "/out. Tidewrack can't save it" + many, {}},
        {"rm -rf one", "", {"/one"}},
        {"rm lib/in/x.log", "", {"/lib/in/x.log"}},
        {"rm -rf lib", "", {"/lib/in/one", "/lib/in/x.log"}},
        {"rm lib/y", "", {}},
        {"find lib -name '*.log' -delete", "", {"/lib/in/x.log"}},
        {"rm -rf pair", project + "/pair/out. Tidewrack can't save it" + many, {}},
        {"rm -rf pair/out/none", "", {}},
    };
    for (const Row& row : rows) {
        HookHandler handler(world.store(), world.environment, home);
        handler.vault.mostFiles = 1;
        const HookOutput output =
            handler.handle(Agent::codex, event(Agent::codex, Kind::shell, project, row.command), world.current);
        const std::string said = output.standardError.value_or("");
        EXPECT_EQ(row.question.empty() ? said.empty() : said.find(row.question) != said.npos, true)
            << row.command << said;
        Lines saved = row.saved;
        for (std::string& path : saved) path = project + path;
        EXPECT_EQ(savedOutside(), saved) << row.command;
    }
}

// node_modules and the like are made anew, which takes time: where a copy takes no room, one is kept.
TEST_F(HookSaving, keepsWhatSnapshotsLeaveOutWhereThatTakesNoRoom) {
    const bool asksGit = git(f.path(), "init -q project");
    f.write("project/.gitignore", "out\n");
    for (const char* name : {"node_modules/a/b.js", "app/node_modules/c.js", "app/in/.venv/d", "app/in/out/e",
                             "app/inner/node_modules/f", "apps/node_modules/g", "web/out/h"})
        f.write(std::string("project/") + name, "x");
    world.ok({"track"});
    world.ok({"track", f.at("project/app/inner")});
    struct Row {
        const char* command;
        Lines leftOut; // by the name or by git
    };
    const Row rows[] = {
        {"rm -rf node_modules src", {"/node_modules"}},
        {"rm -rf app", {"/app/in/.venv", "/app/in/out", "/app/inner/node_modules", "/app/node_modules"}},
        {"rm -rf app/in/out web", {"/app/in/out", "/web/out"}},
        {"find . -name node_modules -prune -exec rm -rf {} +",
         {"/app/inner/node_modules", "/app/node_modules", "/apps/node_modules", "/node_modules"}},
        {"mv app elsewhere", {}},
        {"rm -rf src", {}},
    };
    const bool clones = volumeClones(f.path());
    for (const Row& row : rows) {
        Lines leftOut;
        for (const std::string& path : row.leftOut)
            if (asksGit || !path.ends_with("/out")) leftOut.push_back(project + path);
        (void)shell(row.command);
        EXPECT_EQ(savedOutside(), clones ? leftOut : Lines()) << row.command;
        std::string note;
        for (const std::string& line : log()) note = line.substr(std::min(line.size(), line.find("; not kept: ")));
        std::string expected;
        if (!clones && !leftOut.empty()) expected = "; not kept: " + leftOut.front();
        if (!clones && leftOut.size() > 1) expected += " and " + std::to_string(leftOut.size() - 1) + " more";
        EXPECT_EQ(note.substr(0, expected.empty() ? note.size() : expected.size()), expected) << row.command << note;
    }
}

// What a line of the log says is found again, whatever the names in it.
TEST_F(HookSaving, writesLinesThatTheTimelineReads) {
    const std::string name = "a → b; #9 c\x1b\n";
    f.write(name + "/f", "x");
    world.ok({"track", f.at(name)});
    for (const char* command : {"rm f; echo ' → #8 /p'", "echo > new → x"}) {
        (void)answer(Agent::claude, Kind::prompt, f.at(name), command);
        (void)answer(Agent::claude, Kind::shell, f.at(name), command);
    }
    const auto records = world.store().history(*world.store().projectContaining(f.at(name))).snapshots();
    const auto hooks = loggedHooks(f.read("store/hooks.log"));
    ASSERT_EQ(hooks.size(), 2U);
    for (const TimelineRow& row : Timeline::of(f.at(name), records, hooks).rows)
        for (const TimelineRow::Command& command : row.commands) EXPECT_EQ(command.verdict, "allow") << command.seq;
    EXPECT_EQ(hooks[0].snapshots.size(), 1U);
    (void)log();
    expectAllowed("echo > " + home + "/new", "");
}
