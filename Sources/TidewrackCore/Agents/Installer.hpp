#pragma once
// Writes our hooks into each agent's own configuration file, takes them out again and tells whether they are there.
// Everything else in the file keeps its value; a file that is not plain JSON is never written.

#include "Agents/Agent.hpp"
#include "Agents/HookEntries.hpp"

#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

struct HookInstaller {
    std::string home;     // the user's home folder
    std::string binary;   // absolute path of this program as it was called; links are not resolved, so that hooks
                          // of a linked installation keep working after an upgrade
    std::string folder{}; // where the command was called: a project there may have hooks of its own; empty: none has

    // What happened to one agent's file.
    struct Result {
        Agent agent;
        std::string path;
        bool changed = false;              // the file was written, or would be in a dry run
        std::optional<std::string> backup; // the copy of the file as it was before
        std::optional<std::string> note;   // what the user has to do or to know
        std::vector<OwnHook> added;        // those that the file did not have so
        std::vector<OwnHook> removed;      // those that it has no longer
    };
    enum class Acting { forReal, dryRun };

    // What is there for one agent.
    struct Status {
        enum class State { installed, notInstalled, agentNotFound };
        State state;
        std::optional<std::string> hint; // one phrase: what is wrong and how to mend it
    };

    [[nodiscard]] std::string configPath(Agent agent) const;

    // The agent's folder in the home folder exists.
    [[nodiscard]] bool agentPresent(Agent agent) const;

    // The block to paste by hand, pretty-printed.
    [[nodiscard]] std::string snippet(Agent agent) const;

    // The file holds a hook of ours, of whatever binary.
    [[nodiscard]] bool isInstalled(Agent agent) const;

    // The program that the first of our hooks in the file runs.
    [[nodiscard]] std::optional<std::string> installedBinary(Agent agent) const;

    // The file holds all the hooks that this version installs, of that program; false for an agent with a plugin of
    // ours in place of such hooks. Throws when the file cannot be read.
    [[nodiscard]] bool areWhole(Agent agent, const std::string& program) const;

    // The first file of a project's own configuration, in `folder` or one above it, that holds a hook of ours: the
    // agent runs that one besides the user's, or the plugin's. None where a file can't be read.
    [[nodiscard]] std::optional<std::string> projectFile(Agent agent) const;

    // Throws when the file cannot be read.
    [[nodiscard]] Status status(Agent agent) const;

    // Each of these throws when a file or folder cannot be read or written; the error names it.
    // Creates the agent's folder when it is missing.
    Result install(Agent agent, Acting acting = Acting::forReal) const;
    // A missing file has nothing to remove.
    Result uninstall(Agent agent, Acting acting = Acting::forReal) const;
    // Installs again where hooks are installed, so that they run `binary`; none where they are not.
    std::optional<Result> repair(Agent agent) const;

  private:
    enum class Edit { add, remove };

    [[nodiscard]] HookEntries entries(Agent agent) const { return {binary, agent}; }
    [[nodiscard]] std::string agentFolder(Agent agent) const;
    [[nodiscard]] bool holdsEventsAlone(Agent agent) const; // its file, without "hooks" around them
    // Our command lines in the text of an agent's file.
    [[nodiscard]] std::vector<std::string> commandsIn(Agent agent, const std::optional<std::string>& bytes) const;
    Result editPlugin(Result result, const std::optional<std::string>& bytes, Edit what, Acting acting) const;
    Result edit(Agent agent, Edit what, Acting acting) const;
};

} // namespace tidewrack
