#include "Support/TestFolders.hpp"

#include "Agents/ConfigFile.hpp"
#include "Agents/Installer.hpp"
#include "Args.hpp"
#include "Commands/Hooks.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

const std::string codexNote =
    "Open Codex and run /hooks to trust Tidewrack's hooks; Codex skips new hooks until you do.";

class Installer : public ::testing::Test {
  protected:
    HookInstaller installer(const std::string& binary = "/usr/local/bin/tidewrack") const { return {home, binary}; }
    std::string path(Agent agent) const { return installer().configPath(agent); }
    std::string backupOf(Agent agent) const { return path(agent) + ".tidewrack-backup"; }

    std::string relative(const std::string& file) const { return file.substr(home.size() + 1); }
    void put(Agent agent, const std::string& text) const { folder.write(relative(path(agent)), text); }
    std::string text(const std::string& file) const { return folder.read(relative(file)); }
    json config(Agent agent) const { return json::parse(text(path(agent))); }

    std::string run(const std::vector<std::string>& words, const std::string& binary = "/usr/local/bin/tidewrack") {
        std::ostringstream out;
        runHooks(words, installer(binary), out);
        return out.str();
    }

    TemporaryFolder folder;
    const std::string home = folder.path();
};

} // namespace

// That other tools' entries stay, and that taking out gives back what was, is checked by Fuzz/InstallerTarget.cpp.

TEST_F(Installer, writesExactlyTheHooksOfEachAgent) {
    const json golden = json::parse(testData("installed-hooks.json"));
    for (const Agent agent : allAgents) {
        if (agent == Agent::opencode) continue; // a program, see below
        const json& wanted = golden.at(std::string(rawValue(agent)));
        installer().install(agent);
        EXPECT_EQ(config(agent), wanted) << rawValue(agent);
        EXPECT_EQ(json::parse(installer().snippet(agent)), wanted) << rawValue(agent);
    }
}

// The text's own use is that of the real client, with which it was tried; here is what the installer does with it.
TEST_F(Installer, writesAProgramOfItsOwnWhereThereAreNoEntries) {
    folder.makeFolder(".config/opencode");
    EXPECT_EQ(run({"status"}).substr(run({"status"}).find("opencode")), "opencode not installed\n");
    const std::string last = home + "/tidewrack";
    folder.write("tidewrack", "#!/bin/sh\n");
    ::chmod(last.c_str(), 0755);
    for (const std::string& binary : {std::string("/opt/tw renamed"), std::string("/old dir/tidewrack"), last}) {
        EXPECT_TRUE(installer(binary).install(Agent::opencode).changed) << binary;
        EXPECT_EQ(installer(binary).installedBinary(Agent::opencode), binary);
        EXPECT_FALSE(installer(binary).install(Agent::opencode).changed);
        if (binary.find("renamed") != binary.npos) installer(binary).uninstall(Agent::opencode);
    }
    const std::string text = this->text(path(Agent::opencode));
    EXPECT_EQ(text, installer(last).snippet(Agent::opencode));
    EXPECT_NE(text.find("spawnSync(\"" + last + "\", [\"hook\", \"opencode\"]"), std::string::npos) << text;
    put(Agent::opencode, text + "more");
    EXPECT_NE(run({"status"}, last).find("opencode installed, not as this version installs them"), std::string::npos);
    EXPECT_TRUE(installer().uninstall(Agent::opencode).changed);
    EXPECT_FALSE(fs::exists(path(Agent::opencode)));
    put(Agent::opencode, "export const Mine = 1\n");
    for (const auto& result : {installer().install(Agent::opencode), installer().uninstall(Agent::opencode)})
        EXPECT_EQ(result.note, path(Agent::opencode) + " isn't Tidewrack's, so it was left as it is.");
    EXPECT_EQ(this->text(path(Agent::opencode)), "export const Mine = 1\n");
}

// Droid passes over "hooks" in its settings where it has a file of hooks, which holds the events alone.
TEST_F(Installer, writesWhereDroidLooks) {
    folder.makeFolder(".factory");
    EXPECT_TRUE(installer().install(Agent::droid).changed);
    EXPECT_TRUE(fs::exists(home + "/.factory/settings.json"));
    const json events = config(Agent::droid)["hooks"];
    installer().uninstall(Agent::droid);
    EXPECT_EQ(config(Agent::droid), json::object());

    folder.write(".factory/hooks.json", R"({"Stop": [{"hooks": [{"command": "mine"}]}]})");
    EXPECT_EQ(json::parse(installer().snippet(Agent::droid)), events);
    EXPECT_TRUE(installer().install(Agent::droid).changed);
    json wanted = events;
    wanted["Stop"].insert(wanted["Stop"].begin(), json::parse(R"({"hooks": [{"command": "mine"}]})"));
    EXPECT_EQ(json::parse(folder.read(".factory/hooks.json")), wanted);
    EXPECT_EQ(config(Agent::droid), wanted);
    EXPECT_EQ(folder.read(".factory/settings.json"), "{}\n");
    EXPECT_NE(run({"status"}).find("droid   installed"), std::string::npos);
    installer().uninstall(Agent::droid);
    EXPECT_EQ(folder.read(".factory/hooks.json").find("tidewrack"), std::string::npos);
    EXPECT_NE(folder.read(".factory/hooks.json").find("mine"), std::string::npos);
}

// Copilot refuses every tool whose hook fails.
TEST_F(Installer, leavesCopilotAtWorkWhereTheProgramIsGone) {
    folder.write("of another machine/tidewrack", std::string("\x7f"
                                                             "ELF?",
                                                             5));
    ASSERT_EQ(::chmod(folder.at("of another machine/tidewrack").c_str(), 0700), 0);
    for (const char* program : {"/of another machine/tidewrack", "/gone/tidewrack"}) {
        installer(home + program).install(Agent::copilot);
        const json hook = config(Agent::copilot)["hooks"]["PreToolUse"][0];
        EXPECT_EQ(std::system(hook["command"].get<std::string>().c_str()), 0) << program;
    }
    EXPECT_EQ(installer().installedBinary(Agent::copilot), home + "/gone/tidewrack");
    EXPECT_NE(run({"status"}).find("copilot installed, its hooks run " + home + "/gone/tidewrack"), std::string::npos);
}

// An install leaves nothing behind; what somebody added to the file stays.
TEST_F(Installer, removesTheFileThatItMade) {
    installer().install(Agent::copilot);
    std::ostringstream plan;
    runHooks({"uninstall", "copilot"}, installer(), plan, {}, {HookInstaller::Acting::dryRun, false});
    EXPECT_TRUE(plan.str().starts_with("Would remove copilot hooks from " + path(Agent::copilot) + "\n  - "))
        << plan.str();
    EXPECT_TRUE(fs::exists(path(Agent::copilot)));
    EXPECT_EQ(run({"uninstall", "copilot"}), "Removed copilot hooks from " + path(Agent::copilot) + "\n");
    EXPECT_TRUE(fs::is_empty(home + "/.copilot/hooks"));
    for (const char* more : {"hooks", "disableAllHooks"}) {
        installer().install(Agent::copilot);
        json mine = config(Agent::copilot);
        mine[more]["Mine"] = json::array();
        put(Agent::copilot, mine.dump());
        EXPECT_TRUE(installer().uninstall(Agent::copilot).backup.has_value());
        EXPECT_TRUE(config(Agent::copilot)[more].contains("Mine"));
        EXPECT_FALSE(installer().isInstalled(Agent::copilot));
    }
}

TEST_F(Installer, keepsABackupAndEveryDigit) {
    const std::string mine =
        "{\"ratio\": 1.10, \"big\": 123456789012345678901234567890, \"huge\": 1e400, \"zero\": -0,\n"
        "\"greeting\": \"na\\u00efve \\ud83d\\udc4b\", \"url\": \"https:\\/\\/example.com/a\"}";
    put(Agent::claude, mine);
    EXPECT_EQ(installer().install(Agent::claude).backup, backupOf(Agent::claude));
    EXPECT_EQ(text(backupOf(Agent::claude)), mine);
    const std::string installed = text(path(Agent::claude));
    for (const char* kept : {"\"ratio\" : 1.10,", "\"big\" : 123456789012345678901234567890,", "\"huge\" : 1e400,",
                             "\"zero\" : -0", "\"na\u00efve \U0001F44B\"", "\"https://example.com/a\""})
        EXPECT_NE(installed.find(kept), std::string::npos) << kept;
    EXPECT_TRUE(installer().uninstall(Agent::claude).changed);
    EXPECT_EQ(text(backupOf(Agent::claude)), installed);
}

TEST_F(Installer, replacesItsEntriesWhereTheyStand) {
    const std::string others = R"({"hooks":[{"command":"a"}]})";
    const std::string old = R"({"hooks":[{"command":"'/old dir/tidewrack' hook codex","timeout":9}]})";
    // A list with ours twice; one shared with another tool; one with ours under an event that is no longer used.
    put(Agent::codex, R"({"hooks":{"Stop":[)" + old + "," + others + "," + old + R"(],
        "PreToolUse":[{"matcher":"^Bash$","note":"shared","hooks":[{"command":"b"},
            {"command":"/x/tidewrack hook codex"},{"command":"c"},{"command":"tidewrack hook claude"}]}],
        "UserPromptSubmit":[{"matcher":"x","hooks":[{"command":"/x/tidewrack hook codex"},{"command":"d"}]}],
        "SessionStart":[)" +
                          old + R"(]}})");
    EXPECT_EQ(installer().install(Agent::codex).note, codexNote);
    const json hooks = config(Agent::codex)["hooks"];
    const json block = json::parse(installer().snippet(Agent::codex))["hooks"];
    EXPECT_EQ(hooks["Stop"], json::array({block["Stop"][0], json::parse(others)}));
    const json ours = block["PreToolUse"][0]["hooks"][0];
    EXPECT_EQ(hooks["PreToolUse"],
              json::parse(R"([{"matcher":"^Bash$","note":"shared","hooks":[{"command":"b"},)" + ours.dump() +
                          R"(,{"command":"c"}]},)" + block["PreToolUse"][1].dump() + "]"));
    EXPECT_EQ(hooks["UserPromptSubmit"],
              json::array({json::parse(R"({"matcher":"x","hooks":[{"command":"d"}]})"), block["UserPromptSubmit"][0]}));
    EXPECT_FALSE(hooks.contains("SessionStart"));

    EXPECT_FALSE(installer().install(Agent::codex).note.has_value());
    EXPECT_FALSE(installer().uninstall(Agent::codex).note.has_value()) << "there is nothing left to trust";
}

TEST_F(Installer, quotesAndReadsBackTheBinary) {
    put(Agent::cursor, "{}");
    for (const std::string binary :
         {"/My Apps/tidewrack", "/it's/a \"dir\"/tidewrack", "/\u00e9/tidewrack", "/opt/tw renamed"}) {
        EXPECT_TRUE(installer(binary).install(Agent::cursor).changed);
        EXPECT_EQ(installer(binary).installedBinary(Agent::cursor), binary);
        EXPECT_TRUE(installer(binary).uninstall(Agent::cursor).changed);
    }
    EXPECT_EQ(shellQuote("/My Apps/it's"), "'/My Apps/it'\\''s'");
    EXPECT_EQ(shellQuote("/a/b._-+9"), "/a/b._-+9");
    EXPECT_EQ(programOf("FOO=1 nice /a\\ b/tidewrack hook gemini"), "/a b/tidewrack");
    EXPECT_EQ(programOf("x; \"/a b\"/tidewrack hook codex --flag"), "/a b/tidewrack");
    for (const char* foreign : {"tidewrack hook claudette", "tidewrack hook claude\u00e9", "tidewrack hooks claude",
                                "tidewrack  hook claude", "Tidewrack hook claude", "tidewrack\" hook claude"})
        EXPECT_FALSE(programOf(foreign).has_value()) << foreign;
}

TEST_F(Installer, leavesFilesThatAreNotPlainJsonByteForByte) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    for (const std::string& content :
         {std::string("{\n  // my model\n  \"model\": \"opus\"\n}\n"), "{\"a\":" + deep + "}", std::string("{} {}")}) {
        put(Agent::claude, content);
        for (const auto& result : {installer().install(Agent::claude), installer().uninstall(Agent::claude)}) {
            EXPECT_FALSE(result.changed || result.backup) << content.substr(0, 80);
            EXPECT_EQ(result.note, path(Agent::claude) + " isn't plain JSON (comments?). Add the hooks by hand: run "
                                                         "`tidewrack hooks --print claude`.");
        }
        EXPECT_EQ(text(path(Agent::claude)), content);
    }
}

TEST_F(Installer, takesAnEmptyFileOrAByteOrderMarkForWhatItIs) {
    for (const std::string content : {"", " \n", "\xEF\xBB\xBF", "\xEF\xBB\xBF{}"}) {
        put(Agent::claude, content);
        EXPECT_TRUE(installer().install(Agent::claude).changed);
        EXPECT_EQ(config(Agent::claude), json::parse(installer().snippet(Agent::claude)));
        EXPECT_EQ(text(backupOf(Agent::claude)), content);
    }
}

TEST_F(Installer, leavesValuesOfAnotherShapeAlone) {
    put(Agent::gemini, R"({"hooks":{"disabled":["tidewrack"],"AfterAgent":{"a":1}}})");
    EXPECT_NE(installer().install(Agent::gemini).note.value_or("").find("\"AfterAgent\" in " + path(Agent::gemini)),
              std::string::npos);
    EXPECT_EQ(config(Agent::gemini)["hooks"]["AfterAgent"], json::parse(R"({"a":1})"));
    put(Agent::cursor, R"({"version":2,"hooks":"x"})");
    EXPECT_TRUE(installer().install(Agent::cursor).note.has_value());
    put(Agent::cursor, R"({"version":2,"hooks":{}})");
    installer().install(Agent::cursor);
    EXPECT_EQ(config(Agent::cursor)["version"], 2);
}

TEST_F(Installer, keepsModeAndLinks) {
    folder.write("dotfiles/real.json", "{}");
    ::chmod((home + "/dotfiles/real.json").c_str(), 0640);
    folder.link("dotfiles/second", "real.json");
    folder.link(relative(path(Agent::claude)), "../dotfiles/second");
    installer().install(Agent::claude);
    EXPECT_TRUE(fs::is_symlink(path(Agent::claude)) && fs::is_symlink(home + "/dotfiles/second"));
    EXPECT_TRUE(installer().isInstalled(Agent::claude));
    struct stat status {};
    ASSERT_EQ(::lstat((home + "/dotfiles/real.json").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    ASSERT_EQ(::lstat(backupOf(Agent::claude).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0640));
    EXPECT_EQ(std::distance(fs::directory_iterator(home + "/dotfiles"), {}), 2); // no temporary file stays

    // What an install left that was killed goes with the next one, even with one that has nothing to do, or with a
    // look.
    const pid_t dead = ::fork();
    if (dead == 0) ::_exit(0);
    ASSERT_EQ(::waitpid(dead, nullptr, 0), dead);
    for (const bool looks : {false, true}) {
        for (const char* at : {"dotfiles", ".claude"})
            folder.write(std::string(at) + "/.tidewrack-" + std::to_string(dead) + "-0", "{");
        const std::string own = ".claude/.tidewrack-" + std::to_string(dead) + "-1";
        folder.write(own, "{\n  somebody's own");
        looks ? (void)installer().status(Agent::claude) : (void)installer().install(Agent::claude);
        EXPECT_EQ(folder.read(own), "{\n  somebody's own");
        folder.remove(own);
        EXPECT_EQ(std::distance(fs::directory_iterator(home + "/dotfiles"), {}), 2);
        EXPECT_EQ(std::distance(fs::directory_iterator(home + "/.claude"), {}), 2); // the link and the backup
    }

    folder.link(relative(path(Agent::codex)), home + "/dotfiles/new/hooks.json");
    EXPECT_FALSE(installer().install(Agent::codex).backup.has_value());
    EXPECT_TRUE(fs::is_symlink(path(Agent::codex)) && fs::is_regular_file(home + "/dotfiles/new/hooks.json"));

    folder.link(relative(path(Agent::cursor)), "hooks.json");
    EXPECT_NE(thrownBy([&] { installer().install(Agent::cursor); }).find(path(Agent::cursor)), std::string::npos);
}

TEST_F(Installer, namesTheFileThatCannotBeReadOrWritten) {
    folder.makeFolder(".codex");
    ASSERT_EQ(::mkfifo(path(Agent::codex).c_str(), 0600), 0);
    EXPECT_NE(thrownBy([&] { installer().install(Agent::codex); }).find("not a regular file"), std::string::npos);

    // Another program has written the file after the caller read it.
    put(Agent::gemini, "{\"new\":1}");
    EXPECT_NE(thrownBy([&] { replaceConfig(path(Agent::gemini), "{}", "{}"); }).find("meanwhile"), std::string::npos);
    EXPECT_EQ(text(path(Agent::gemini)), "{\"new\":1}");
    // The same at the last moment.
    for (const std::optional<std::string>& before : {std::optional<std::string>("{}"), std::optional<std::string>()})
        EXPECT_FALSE(replaceUserFile(path(Agent::gemini), before, "{}", nullptr));
    EXPECT_EQ(text(path(Agent::gemini)), "{\"new\":1}");
    EXPECT_TRUE(replaceUserFile(path(Agent::gemini), "{\"new\":1}", "{}", nullptr));
    EXPECT_EQ(text(path(Agent::gemini)), "{}");
    EXPECT_EQ(listFolder(home + "/.gemini").size(), 1U);
}

TEST_F(Installer, repairPointsTheHooksAtThisProgram) {
    EXPECT_FALSE(installer().repair(Agent::claude).has_value());
    installer("/old/tidewrack").install(Agent::claude);
    ASSERT_TRUE(installer().repair(Agent::claude)->changed);
    EXPECT_EQ(installer("/other").installedBinary(Agent::claude), "/usr/local/bin/tidewrack");
}

TEST_F(Installer, hooksCommandReportsWhatItDid) {
    EXPECT_EQ(run({"install"}), "No supported agents found (looked for ~/.claude, ~/.codex, ~/.cursor, ~/.gemini).\n");
    EXPECT_EQ(run({"uninstall", "gemini"}), "gemini: already removed\n");
    EXPECT_FALSE(fs::exists(home + "/.gemini"));

    EXPECT_EQ(run({"install", "codex"}),
              "Installed codex hooks in " + path(Agent::codex) + "\n  " + codexNote + "\n"); // the folder was missing
    put(Agent::claude, "{}");
    EXPECT_EQ(run({"install", "all"}), "Installed claude hooks in " + path(Agent::claude) +
                                           "\n  backup: " + backupOf(Agent::claude) + "\ncodex: already installed\n");
    EXPECT_FALSE(fs::exists(backupOf(Agent::codex))) << "nothing was changed";
    EXPECT_EQ(run({"uninstall"}), "Removed claude hooks from " + path(Agent::claude) +
                                      "\n  backup: " + backupOf(Agent::claude) + "\nRemoved codex hooks from " +
                                      path(Agent::codex) + "\n  backup: " + backupOf(Agent::codex) +
                                      "\ncursor: already removed\ngemini: already removed\n");
    EXPECT_EQ(run({"print", "cursor"}), installer().snippet(Agent::cursor) + "\n");

    // A dry run says it all, and writes nothing.
    installer("/old/tidewrack").install(Agent::claude);
    const std::string before = folder.listing();
    std::ostringstream plan;
    std::ostringstream told;
    const HooksWay dry{HookInstaller::Acting::dryRun, false};
    runHooks({"install", "claude"}, installer(), plan, {}, dry);
    runHooks({"uninstall", "claude"}, installer(), told, {}, {HookInstaller::Acting::dryRun, true});
    EXPECT_EQ(plan.str().find("Would install claude hooks in " + path(Agent::claude) +
                              "\n  - PreToolUse (Bash): /old/tidewrack hook claude\n"),
              0U)
        << plan.str();
    EXPECT_NE(plan.str().find("\n  + Stop: /usr/local/bin/tidewrack hook claude\n"), std::string::npos);
    EXPECT_NE(plan.str().find("\n  backup: " + backupOf(Agent::claude) + "\n"), std::string::npos);
    const json removed = json::parse(told.str());
    EXPECT_EQ(removed["version"].dump() + removed["dryRun"].dump(), "1true");
    EXPECT_EQ(removed["agents"][0]["removed"].size(), 6U);
    EXPECT_EQ(removed["agents"][0]["removed"][0],
              json({{"event", "PreToolUse"}, {"matcher", "Bash"}, {"command", "/old/tidewrack hook claude"}}));
    EXPECT_EQ(removed["agents"][0]["added"], json::array());
    EXPECT_EQ(folder.listing(), before);

    EXPECT_EQ(thrownBy([&] {
                  return run({"install", "Claude"});
              }),
              "unknown agent Claude; use claude, codex, cursor, gemini or all");
    EXPECT_EQ(thrownBy([&] { run({"print"}); }), "which agent?");
    for (const std::vector<std::string>& words : {std::vector<std::string>{}, {"remove"}})
        EXPECT_EQ(thrownBy([&] { run(words); }), "usage: tidewrack hooks status|install|uninstall|print");
}

TEST_F(Installer, goesOnPastAnAgentThatFails) {
    fs::create_directories(path(Agent::claude)); // a folder where the file should be
    put(Agent::gemini, "{}");
    const std::string error = "can't read " + path(Agent::claude) + ": not a regular file";
    for (const auto& [verb, printed] : {std::pair("install", "Installed gemini hooks in "),
                                        {"status", "claude  unknown, "},
                                        {"status", "\ncodex   agent not found\n"},
                                        {"status", "\ngemini  installed"},
                                        {"uninstall", "Removed gemini hooks"}}) {
        std::ostringstream out;
        EXPECT_EQ(thrownBy([&, command = verb] { runHooks({command}, installer(), out); }), error) << verb;
        EXPECT_NE(out.str().find(printed), std::string::npos) << out.str();
    }
    const json list = json::parse(hooksStatusJson(installer()));
    EXPECT_EQ(list[0]["state"], "unknown");
    EXPECT_EQ(list[0]["hint"], error);
    EXPECT_EQ(list.size(), 4U);
}

TEST_F(Installer, statusTellsWhatIsWrongAndHowToMendIt) {
    const std::string mend = "; mend with `tidewrack hooks install`\n";
    const std::string binary = home + "/tidewrack";
    for (const char* name : {"tidewrack", "other/tidewrack"}) {
        folder.write(name, "#!/bin/sh\n");
        ::chmod(folder.at(name).c_str(), 0755);
    }
    folder.link("linked-tidewrack", binary);

    installer(home + "/linked-tidewrack").install(Agent::claude); // another name of this very program
    installer("/gone/tidewrack").install(Agent::codex);
    installer(home + "/other/tidewrack").install(Agent::cursor);
    EXPECT_EQ(run({"status"}, binary), "claude  installed\n"
                                       "codex   installed, its hooks run /gone/tidewrack, which does not exist" +
                                           mend + "cursor  installed, its hooks run " + home +
                                           "/other/tidewrack, which is not this program (" + binary + ")" + mend +
                                           "gemini  agent not found\n");

    auto partial = config(Agent::claude);
    partial["hooks"].erase("Stop");
    put(Agent::claude, partial.dump());
    put(Agent::gemini, "{}");
    run({"install"}, binary);
    // As earlier versions left it: none that end a session, and still before none for file tools.
    json earlier = config(Agent::gemini);
    for (const bool first : {false, true}) {
        earlier["hooks"].erase("SessionEnd");
        if (first) earlier["hooks"]["BeforeTool"].erase(1);
        put(Agent::gemini, earlier.dump());
        EXPECT_NE(run({"status"}, binary)
                      .find("gemini  installed, hooks are of an earlier version: run tidewrack hooks install\n"),
                  std::string::npos);
    }
    run({"install"}, binary);
    put(Agent::codex, "{ /* mine */ }");
    put(Agent::claude, partial.dump());
    run({"uninstall", "cursor"}, binary);
    const std::string status = run({"status"}, binary);
    EXPECT_NE(status.find("claude  installed, not as this version installs them" + mend), std::string::npos);
    EXPECT_NE(status.find("codex   not installed, " + path(Agent::codex) + " isn't plain JSON"), std::string::npos);
    EXPECT_NE(status.find("cursor  not installed\ngemini  installed\n"), std::string::npos);
}

TEST_F(Installer, refusesAProgramThatACacheHoldsForAWhile) {
    folder.makeFolder(".claude");
    struct Row {
        const char* folder;
        bool refused;
    };
    const Row rows[] = {{"/.npm/_npx/1f/node_modules/tidewrack", true},
                        {"/.cache/pnpm/dlx/1f/1/node_modules/tidewrack", true},
                        {"/xfs-1f/dlx-7/.yarn/unplugged/t/node_modules/tidewrack", true},
                        {"/bunx-0-tidewrack@latest/node_modules/tidewrack", true},
                        {"/lib/node_modules/tidewrack", false},
                        {"/dlx/build", false}};
    for (const Row& row : rows) {
        const std::string binary = home + row.folder + "/native/linux-x64/tidewrack";
        for (const auto& words : {std::vector<std::string>{"install", "claude"}, {"install"}}) {
            if (row.refused)
                EXPECT_THROW(run(words, binary), CliError) << binary;
            else
                EXPECT_NE(run(words, binary).find("claude"), std::string::npos) << binary;
            EXPECT_EQ(fs::exists(path(Agent::claude)), !row.refused) << binary;
        }
        EXPECT_NO_THROW(run({"uninstall", "claude"}, binary));
    }
}

TEST_F(Installer, findsTheProgramAsItWasCalled) {
    folder.makeFolder("bin/tidewrack"); // a folder is no program
    folder.write("real/tidewrack-1.2", "#!/bin/sh\n");
    ::chmod(folder.at("real/tidewrack-1.2").c_str(), 0755);
    folder.link("links/tidewrack", "../real/tidewrack-1.2");
    const std::string link = home + "/links/tidewrack";
    EXPECT_EQ(calledProgram("tidewrack", home + "/bin:" + home + "/links", "/"), link);
    EXPECT_EQ(calledProgram("tidewrack", "", home + "/links"), link);
    EXPECT_EQ(calledProgram("./links/tidewrack", "", home), link);
    EXPECT_EQ(calledProgram(link, "", "/"), link);
    EXPECT_FALSE(calledProgram("tidewrack", home + "/bin", "/").has_value());
    EXPECT_FALSE(calledProgram("links/other", "", home).has_value());
}
