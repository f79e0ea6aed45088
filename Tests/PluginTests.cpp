// The plugins of packaging/plugins: the same hooks as an install, and nothing twice where both are there.

#include "Support/HookFixture.hpp"

#include "Agents/InstalledPlugin.hpp"
#include "Commands/Hooks.hpp"
#include "Support/Text.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <regex>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

constexpr Agent withPlugins[] = {Agent::claude, Agent::codex, Agent::gemini};

class Plugins : public HookHandlerTest {
  protected:
    Plugins() {
        world.ok({"track"});
        f.makeFolder("bin");
        EXPECT_EQ(::symlink(world.program.c_str(), f.at("bin/tidewrack").c_str()), 0);
    }
    static json hooksOf(Agent agent) {
        return json::parse(checkoutText("packaging/plugins/" + std::string(rawValue(agent)) + "/hooks/hooks.json"));
    }
    // The command line of the plugin, run as the agent does; true when it succeeds.
    bool answers(const std::string& command, const std::string& event, const std::string& searchPath) const {
        f.write("event", event);
        const std::string line = "HOME=" + home + " TIDEWRACK_HOME=" + f.at("store") + " PATH=" + searchPath +
                                 " /bin/sh -c " + singleQuoted(command) + " <" + f.at("event") + " >/dev/null";
        return std::system(line.c_str()) == 0;
    }
    bool prompts(Agent agent, const std::string& searchPath) const {
        const json hooks = hooksOf(agent)["hooks"];
        return answers(hooks[std::string(traitsOf(agent).prompt)][0]["hooks"][0]["command"],
                       event(agent, Kind::prompt, project, "Tidy up"), searchPath);
    }
    // The command lines of the plugin that the agent runs for an event.
    static Lines commandsFor(Agent agent, const json& event) {
        Lines commands;
        const json hooks = hooksOf(agent)["hooks"];
        for (const json& group : hooks.value(event["hook_event_name"].get<std::string>(), json::array()))
            if (std::regex_match(event.value("tool_name", ""), std::regex(group.value("matcher", ".*"))))
                for (const json& hook : group["hooks"]) commands.push_back(hook["command"]);
        return commands;
    }
    // As the agents write it when their own command installs the plugin.
    void installPlugin(Agent agent) const {
        f.write("home/.claude/settings.json",
                agent == Agent::claude ? R"({"enabledPlugins": {"tidewrack@shop": true}})" : "{}");
        f.write("home/.codex/config.toml", "model = \"m\"\n\n[plugins.\"tidewrack@shop\"]\nenabled = " +
                                               std::string(agent == Agent::codex ? "true" : "false") +
                                               "\n\n[other]\nenabled = true\n");
        f.makeFolder(agent == Agent::gemini ? "home/.gemini/extensions/tidewrack" : "home/.gemini");
    }
    [[nodiscard]] HookInstaller installer() const { return {home, f.at("bin/tidewrack")}; }
};

} // namespace

TEST_F(Plugins, bringTheHooksOfAnInstall) {
    for (const Agent agent : withPlugins) {
        const std::string name(rawValue(agent));
        std::string wanted = HookInstaller{home, "tidewrack"}.snippet(agent);
        const std::string call = "\"tidewrack hook " + name + "\"";
        for (std::size_t at = 0; (at = wanted.find(call, at)) != wanted.npos;)
            wanted.replace(at, call.size(),
                           "\"command -v tidewrack >/dev/null || exit 0; tidewrack hook " + name + " --plugin\"");
        EXPECT_EQ(hooksOf(agent), json::parse(wanted)) << name;
    }
}

TEST_F(Plugins, areCalledOnceForEachRecordedEventThatMatters) {
    int called = 0;
    for (const json& row : json::parse(testData("events/expected.json"))) {
        const Agent agent = agentNamed(row["agent"].get<std::string>()).value();
        if (std::find(std::begin(withPlugins), std::end(withPlugins), agent) == std::end(withPlugins)) continue;
        const std::string file = row["file"];
        std::string recorded = testData("events/" + file);
        for (const char* root : {"/tmp/e2e/", "/scratch/"})
            for (std::size_t at = 0; (at = recorded.find(root, at)) != recorded.npos;)
                recorded.replace(at, std::string_view(root).size(), f.path() + "/");
        const Lines commands = commandsFor(agent, json::parse(recorded));
        EXPECT_EQ(commands.size(), row["kind"] == "other" ? 0U : 1U) << file;
        for (const std::string& command : commands) {
            (void)log();
            EXPECT_TRUE(answers(command, recorded, f.at("bin") + ":/usr/bin:/bin")) << file;
            const Lines lines = log(); // of what only looks there is none
            const bool isTold =
                row["kind"] == "prompt" || row["kind"] == "stop" || recorded.find("rm -r") != recorded.npos;
            EXPECT_TRUE(lines.size() == 1 || (lines.empty() && !isTold)) << file;
            const std::string beginning = row["agent"].get<std::string>() + " " + row["name"].get<std::string>() + " ";
            for (const std::string& line : lines)
                EXPECT_TRUE(line.starts_with(beginning) && line.find("error") == line.npos) << file << ": " << line;
            ++called;
        }
    }
    EXPECT_GT(called, 30);
}

TEST_F(Plugins, leaveEverythingToTheHooksOfTheUserWhereTheyRun) {
    const std::string searchPath = f.at("bin") + ":/usr/bin:/bin";
    for (const Agent agent : withPlugins) {
        SCOPED_TRACE(std::string(rawValue(agent)));
        const auto count = [&] { return world.history().seqs().size(); };
        const std::size_t before = count();
        const auto taken = [&] { return prompts(agent, searchPath) ? count() - before : 1000; };
        installPlugin(agent);
        EXPECT_EQ(taken(), 1U);
        installer().install(agent);
        if (agent == Agent::codex) {
            EXPECT_EQ(taken(), 2U) << "hooks that Codex does not trust do not run";
            f.write("home/.codex/config.toml", "[hooks.state.\"" + installer().configPath(agent) +
                                                   ":user_prompt_submit:0:0\"]\ntrusted_hash = \"x\"\n");
        }
        const std::size_t whole = agent == Agent::codex ? 2 : 1;
        EXPECT_EQ(taken(), whole);
        // Hooks of an earlier version do not cover all that the plugin's do.
        const std::string path = installer().configPath(agent);
        json config = json::parse(std::ifstream(path));
        const std::string prompt(traitsOf(agent).prompt);
        config["hooks"] = json{{prompt, config["hooks"][prompt]}};
        std::ofstream(path) << config;
        EXPECT_EQ(taken(), whole + 1);
        // A program that is gone answers nothing.
        installer().uninstall(agent);
        HookInstaller{home, f.at("gone/tidewrack")}.install(agent);
        EXPECT_EQ(taken(), whole + 2);
        installer().uninstall(agent);
    }
    EXPECT_TRUE(prompts(Agent::claude, "/usr/bin:/bin")) << "without the program nothing is in the agent's way";
}

TEST_F(Plugins, areToldByStatusAndInstall) {
    const auto told = [&](const std::vector<std::string>& words) {
        std::ostringstream out;
        runHooks(words, installer(), out);
        return out.str();
    };
    for (const Agent agent : withPlugins) {
        const std::string name(rawValue(agent));
        const auto row = [&] {
            const std::string text = told({"status"});
            const std::size_t at = text.find(name) + 8;
            return text.substr(at, text.find('\n', at) - at);
        };
        installPlugin(agent);
        EXPECT_EQ(row(), "installed as a plugin") << name;
        EXPECT_NE(
            told({"install", name}).find("\n  The plugin that is there as well leaves everything to these hooks.\n"),
            std::string::npos);
        EXPECT_EQ(row(), "installed; the plugin as well, which leaves everything to them") << name;
        for (const json& each : json::parse(hooksStatusJson(installer())))
            EXPECT_EQ(each.value("plugin", false), each["agent"] == name) << each;
        installer().uninstall(agent);

        // So are hooks of the project's own, from anywhere in it; not the user's as seen from the home folder.
        const auto toldIn = [&](const std::string& folder, const std::vector<std::string>& words) {
            HookInstaller there = installer();
            there.folder = f.at(folder);
            std::ostringstream out;
            runHooks(words, there, out);
            return out.str() + hooksStatusJson(there);
        };
        const std::string own =
            std::string(traitsOf(agent).folder) +
            std::string(agent == Agent::claude ? traitsOf(agent).localFile : traitsOf(agent).configFile);
        const std::string notice = project + own + " has hooks of Tidewrack too: what happens there is answered twice";
        f.write("project" + own, installer().snippet(agent));
        for (const char* verb : {"status", "install"}) {
            EXPECT_NE(toldIn("project/src", {verb}).find(notice), std::string::npos) << name << " " << verb;
            EXPECT_NE(toldIn("project", {verb}).find("\"projectFile\""), std::string::npos) << name;
            EXPECT_EQ(toldIn("home", {verb}).find("twice"), std::string::npos) << name;
        }
        f.remove("project" + own);
        EXPECT_EQ(toldIn("project/src", {"status"}).find("twice"), std::string::npos) << name;
        f.remove("home/.claude");
        f.remove("home/.codex");
        f.remove("home/.gemini");
    }
}
