#include "Agents/Agent.hpp"

namespace tidewrack {

namespace {

using Config = AgentTraits::Config;
using Answer = AgentTraits::Answer;
using Question = AgentTraits::Question;

// In the order of the enumeration.
constexpr AgentTraits table[] = {
    {.name = "claude",
     .folder = "/.claude",
     .configFile = "/settings.json",
     .localFile = "/settings.local.json",
     .question = Question::hookOutput,
     .prompt = "UserPromptSubmit",
     .stop = "Stop",
     .sessionEnd = "SessionEnd",
     .tool = "PreToolUse",
     .shell = "PreToolUse",
     .shellTool = "Bash"},
    {.name = "codex",
     .folder = "/.codex",
     .configFile = "/hooks.json",
     .prompt = "UserPromptSubmit",
     .stop = "Stop",
     .interrupt = "Interrupt",
     .sessionEnd = "SessionEnd",
     .tool = "PreToolUse",
     .shell = "PreToolUse",
     .shellTool = "Bash"},
    {.name = "cursor",
     .folder = "/.cursor",
     .configFile = "/hooks.json",
     .config = Config::hooks,
     .refusal = Answer::permission,
     .question = Question::asAnswer,
     .prompt = "beforeSubmitPrompt",
     .stop = "stop",
     .tool = "preToolUse",
     .shell = "beforeShellExecution"},
    {.name = "gemini",
     .folder = "/.gemini",
     .configFile = "/settings.json",
     .prompt = "BeforeAgent",
     .stop = "AfterAgent",
     .sessionEnd = "SessionEnd",
     .tool = "BeforeTool",
     .shell = "BeforeTool",
     .shellTool = "run_shell_command",
     .shellFolder = "dir_path"},
    {.name = "copilot",
     .folder = "/.copilot",
     .configFile = "/hooks/tidewrack.json",
     .isOwnFile = true,
     .config = Config::hooks,
     .refusal = Answer::decision,
     .question = Question::asAnswer,
     .prompt = "UserPromptSubmit",
     .stop = "Stop",
     .sessionEnd = "SessionEnd",
     .tool = "PreToolUse",
     .shell = "PreToolUse",
     .shellTool = "Bash"},
    {.name = "qwen",
     .folder = "/.qwen",
     .configFile = "/settings.json",
     .question = Question::hookOutput,
     .prompt = "UserPromptSubmit",
     .stop = "Stop",
     .sessionEnd = "SessionEnd",
     .tool = "PreToolUse",
     .shell = "PreToolUse",
     .shellTool = "run_shell_command",
     .shellFolder = "directory"},
    {.name = "opencode",
     .folder = "/.config/opencode",
     .configFile = "/plugins/tidewrack.js",
     .isOwnFile = true,
     .config = Config::plugin,
     .prompt = "chat.message",
     .stop = "session.idle",
     .tool = "tool.execute.before",
     .shell = "tool.execute.before",
     .shellTool = "bash",
     .shellFolder = "workdir"},
    {.name = "droid",
     .folder = "/.factory",
     .configFile = "/settings.json",
     .eventsFile = "/hooks.json",
     .question = Question::hookOutput,
     .prompt = "UserPromptSubmit",
     .stop = "Stop",
     .tool = "PreToolUse",
     .shell = "PreToolUse",
     .shellTool = "Execute",
     .shellAlias = "Bash"},
};

} // namespace

const AgentTraits& traitsOf(Agent agent) {
    return table[static_cast<std::size_t>(agent)];
}

std::optional<Agent> agentNamed(std::string_view name) {
    for (const Agent agent : allAgents)
        if (rawValue(agent) == name) return agent;
    return std::nullopt;
}

} // namespace tidewrack
