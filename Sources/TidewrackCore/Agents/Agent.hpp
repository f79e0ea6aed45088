#pragma once
// The coding agents that call this program: a closed set, and how each is spoken to.

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tidewrack {

enum class Agent : std::uint8_t { claude, codex, cursor, gemini, copilot, qwen, opencode, droid };

inline constexpr std::array allAgents{Agent::claude,  Agent::codex, Agent::cursor,   Agent::gemini,
                                      Agent::copilot, Agent::qwen,  Agent::opencode, Agent::droid};

struct AgentTraits {
    enum class Config : std::uint8_t {
        groups, // JSON: each event has groups, of a matcher and hooks
        hooks,  // JSON: each event has hooks
        plugin, // a program of ours
    };
    enum class Answer : std::uint8_t {
        exitStatus, // 2, with the reason on standard error
        permission, // JSON, in cursor's words
        decision,   // JSON, in copilot's words
    };
    enum class Question : std::uint8_t { none, asAnswer, hookOutput }; // hookOutput: JSON, in claude's words

    std::string_view name;       // on the command line, in the log and in records
    std::string_view folder;     // below the home folder; where it is, the agent is on this machine
    std::string_view configFile; // below that folder
    // Where it is there, it holds the events alone, and `configFile` is passed over. Empty: there is none.
    std::string_view eventsFile;
    std::string_view localFile; // read besides `configFile` in a project. Empty: there is none
    bool isOwnFile = false;     // nothing but our hooks is meant to be in `configFile`
    Config config = Config::groups;
    Answer refusal = Answer::exitStatus;
    Question question = Question::none;

    // Events, by the agent's own names.
    std::string_view prompt;
    std::string_view stop;
    std::string_view interrupt;  // empty: there is none
    std::string_view sessionEnd; // the same
    std::string_view tool;
    std::string_view shell;
    std::string_view shellTool;   // empty: the command stands at the top level of the event
    std::string_view shellAlias;  // another name of the same tool
    std::string_view shellFolder; // the key in the tool's input of the folder that a command starts in; empty: none
};

[[nodiscard]] const AgentTraits& traitsOf(Agent agent);

// The agent's name on the command line, in the log and in records.
[[nodiscard]] inline std::string_view rawValue(Agent agent) {
    return traitsOf(agent).name;
}

// The agent whose raw value `name` is, letter for letter.
[[nodiscard]] std::optional<Agent> agentNamed(std::string_view name);

} // namespace tidewrack
