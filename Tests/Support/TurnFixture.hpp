#pragma once
// A project, and what agents do in it turn by turn.

#include "Support/TestFolders.hpp"

#include "Agents/HookHandler.hpp"
#include "Support/Files.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace tidewrack::testing {

class TurnFixture : public ::testing::Test {
  protected:
    TurnFixture() {
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
        return std::to_string(nlohmann::json::parse(world.ok(words))["seq"].get<int>());
    }
    void prompt(const std::string& session, const std::string& text) const { snap("prompt", "claude", session, text); }
    void stop(const std::string& session) const { snap("stop", "claude", session, "End of turn"); }

    // An agent's own event, with the session's folder, prompt, file or command in place of the recorded ones.
    void event(Agent agent, const std::string& name, const std::string& turn, const std::string& text = "",
               const std::string& folder = "project") const {
        std::string recorded;
        const std::string path = inCheckout("Tests/Data/events/" + std::string(rawValue(agent)) + "/" + name + ".json");
        ASSERT_EQ(readFile(path, recorded), 0) << path;
        nlohmann::json object = nlohmann::json::parse(recorded);
        object["cwd"] = f.at(folder);
        object["session_id"] = "session";
        for (const char* key : {"prompt_id", "turn_id"})
            if (object.contains(key)) object[key] = turn;
        if (object.contains("tool_input") && object["tool_input"].contains("file_path"))
            object["tool_input"]["file_path"] = world.projectPath() + "/" + text;
        else if (object.contains("tool_input"))
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
    // The dry run changes nothing, and tells what is done then.
    void expectTakenBack(std::vector<std::string> words, const std::string& status, const std::string& list) const {
        const std::string before = f.listing("project");
        const auto newest = world.history().newestSeq();
        words.emplace_back("--dry-run");
        EXPECT_EQ(back(words), status + "\nWould take back " + list + "Nothing was changed.\n");
        EXPECT_EQ(f.listing("project"), before);
        EXPECT_EQ(world.history().newestSeq(), newest);
        words.pop_back();
        EXPECT_EQ(back(words), status + "\nTook back " + list + "Take this back with: tidewrack redo\n");
    }
    std::string config() const { return f.read("project/config"); }

    World world;
    const TemporaryFolder& f = world.folder;
};

} // namespace tidewrack::testing
