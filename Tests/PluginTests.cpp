// The plugins of packaging/plugins: the same hooks as an install, and nothing twice where both are there.

#include "Support/HookFixture.hpp"

#include "Agents/InstalledPlugin.hpp"
#include "Commands/Hooks.hpp"
#include "Support/Text.hpp"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

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
    // The plugin's command line for the prompt, run as the agent does; true when it succeeds.
    bool prompts(Agent agent, const std::string& searchPath) const {
        const json hooks = hooksOf(agent)["hooks"];
        const std::string command = hooks[std::string(traitsOf(agent).prompt)][0]["hooks"][0]["command"];
        f.write("event", event(agent, Kind::prompt, project, "Tidy up"));
        const std::string line = "HOME=" + home + " TIDEWRACK_HOME=" + f.at("store") + " PATH=" + searchPath +
                                 " /bin/sh -c " + singleQuoted(command) + " <" + f.at("event") + " >/dev/null";
        return std::system(line.c_str()) == 0;
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
        f.remove("home/.claude");
        f.remove("home/.codex");
        f.remove("home/.gemini");
    }
}
