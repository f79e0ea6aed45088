#pragma once
// Events of every agent, as its hooks get them, and what they leave in the log, the history and the vault.

#include "Support/TestFolders.hpp"

#include "Agents/HookHandler.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace tidewrack::testing {

using nlohmann::json;
using Kind = HookEvent::Kind;
using std::chrono::milliseconds;

inline std::string eventName(Agent agent, Kind kind) {
    const AgentTraits& traits = traitsOf(agent);
    return std::string(kind == Kind::prompt ? traits.prompt : kind == Kind::stop ? traits.stop : traits.shell);
}

inline bool canAsk(Agent agent) {
    return traitsOf(agent).question != AgentTraits::Question::none;
}

// An event of the agent in `folder`, with `text` for its prompt or command.
inline std::string event(Agent agent, Kind kind, const std::string& folder, const std::string& text = "") {
    const bool cursor = agent == Agent::cursor;
    json object{{"hook_event_name", eventName(agent, kind)},
                {"cwd", folder},
                {cursor ? "conversation_id" : "session_id", "session"},
                {"tool_name", traitsOf(agent).shellTool}};
    if (kind == Kind::prompt) object["prompt"] = text;
    if (kind == Kind::shell) (cursor ? object : object["tool_input"])["command"] = text;
    return object.dump();
}

// The agent's own tool is about to change a file.
inline std::string editEvent(Agent agent, const std::string& folder, const std::string& path) {
    json object = json::parse(event(agent, Kind::shell, folder));
    switch (agent) {
    case Agent::claude: object["tool_name"] = "Write"; break;
    case Agent::codex: object["tool_name"] = "apply_patch"; break;
    case Agent::cursor: object["tool_name"] = "Write"; break;
    case Agent::gemini:
    case Agent::qwen: object["tool_name"] = "write_file"; break;
    case Agent::copilot: object["tool_name"] = "Edit"; break;
    case Agent::opencode: object["tool_name"] = "write"; break;
    case Agent::droid: object["tool_name"] = "Create"; break;
    }
    object["hook_event_name"] = traitsOf(agent).tool;
    object["tool_input"] = {{"file_path", path}};
    if (agent == Agent::codex) object["tool_input"] = {{"command", "*** Begin Patch\n*** Update File: " + path + "\n"}};
    return object.dump();
}

using Lines = std::vector<std::string>;

class HookHandlerTest : public ::testing::Test {
  protected:
    HookHandlerTest() {
        f.write("project/src/main.c", "int main;\n");
        f.write("project/build/out", "built");
        f.write("home/outside.txt", "outside");
        home = f.at("home");
        project = world.projectPath();
    }

    HookOutput answer(Agent agent, Kind kind, const std::string& folder, const std::string& text = "") const {
        return raw(agent, event(agent, kind, folder, text));
    }
    HookOutput raw(Agent agent, const std::string& input) const {
        HookHandler handler(world.store(), world.environment, home);
        handler.backupDotfiles = backupDotfiles;
        if (budget) handler.budget = *budget;
        handler.patience = patience;
        return handler.handle(agent, input, world.current);
    }
    HookOutput shell(const std::string& command) const { return answer(Agent::claude, Kind::shell, project, command); }

    // The log without what differs from run to run; it is emptied.
    Lines log() const {
        static const std::regex form("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z ([^ ]+ [^ ]* )[0-9]+ms (.*)");
        static const std::regex vaultID("vault [0-9]{8}-[0-9]{6}-[0-9A-F]+:");
        std::istringstream text(f.has("store/hooks.log") ? f.read("store/hooks.log") : "");
        Lines lines;
        for (std::string line; std::getline(text, line);) {
            EXPECT_TRUE(std::regex_match(line, form)) << line;
            lines.push_back(std::regex_replace(std::regex_replace(line, form, "$1$2"), vaultID, "vault ID:"));
        }
        if (!lines.empty()) f.remove("store/hooks.log");
        return lines;
    }
    Lines snapshots() const {
        Lines lines;
        for (const SnapshotMeta& meta : world.history().snapshots())
            lines.push_back(meta.kind + " " + meta.agent.value_or("-") + " " + meta.label.value_or("-"));
        return lines;
    }

    // Larger files of the project are listed only.
    void limitSizes(std::int64_t most) const {
        Project limited = world.project();
        limited.maxFileSize = most;
        world.store().add(limited);
    }

    // The paths that the vault holds copies of, apart from git's own; sorted. It is emptied.
    Lines savedOutside() const {
        Lines paths;
        for (const VaultEntry& entry : Vault(world.store()).entries())
            if (entry.gitState.empty())
                for (const VaultEntry::Item& item : entry.items) paths.push_back(item.original);
        f.remove("store/vault");
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    // The command is allowed and logged with what was saved before it.
    void expectAllowed(const std::string& command, const std::string& saved, const Lines& logBefore = {}) const {
        EXPECT_EQ(shell(command), HookOutput{});
        Lines lines = logBefore;
        lines.push_back("claude PreToolUse allow " + oneLine(command, 80) + (saved.empty() ? "" : " → " + saved));
        EXPECT_EQ(log(), lines);
    }

    World world;
    const TemporaryFolder& f = world.folder;
    std::string home;
    std::string project;
    bool backupDotfiles = false;
    std::optional<milliseconds> budget;
    std::optional<milliseconds> patience;
};

} // namespace tidewrack::testing
