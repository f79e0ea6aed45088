#pragma once
// The coding agents that call this program: a closed set.

#include <array>
#include <optional>
#include <string_view>

namespace tidewrack {

enum class Agent { claude, codex, cursor, gemini };

inline constexpr std::array allAgents{Agent::claude, Agent::codex, Agent::cursor, Agent::gemini};

// The agent's name on the command line, in the log and in records.
[[nodiscard]] std::string_view rawValue(Agent agent);

// The agent whose raw value `name` is, letter for letter.
[[nodiscard]] std::optional<Agent> agentNamed(std::string_view name);

} // namespace tidewrack
