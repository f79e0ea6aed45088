#include "Agents/Agent.hpp"

namespace tidewrack {

std::string_view rawValue(Agent agent) {
    switch (agent) {
    case Agent::claude: return "claude";
    case Agent::codex: return "codex";
    case Agent::cursor: return "cursor";
    case Agent::gemini: return "gemini";
    }
    return {};
}

std::optional<Agent> agentNamed(std::string_view name) {
    for (const Agent agent : allAgents)
        if (rawValue(agent) == name) return agent;
    return std::nullopt;
}

} // namespace tidewrack
