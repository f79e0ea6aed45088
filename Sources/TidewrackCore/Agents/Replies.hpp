#pragma once
// Decisions as each agent understands them: text on the two streams and an exit status.

#include "Agents/HookEvent.hpp"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

// What the hook process emits. After the empty reply the agent continues as if no hook had run.
struct HookOutput {
    std::optional<std::string> standardOutput; // without a final line feed
    std::optional<std::string> standardError;
    std::int32_t exitCode = 0;

    bool operator==(const HookOutput&) const = default;
};

// The object as compact JSON on standard output, exit status 0.
[[nodiscard]] HookOutput jsonReply(const nlohmann::json& object);

// Lets the event happen.
[[nodiscard]] HookOutput allowReply(Agent agent, HookEvent::Kind kind);

// Refuses the command. `message` tells the reason to the user and to the agent.
[[nodiscard]] HookOutput denyReply(Agent agent, std::string_view message);

// Puts the command, or the edit, to the user. Codex, gemini and opencode cannot ask from a hook, nor can cursor about
// its file tools: for them this refuses, because letting it happen unasked is the one thing that cannot be taken back.
[[nodiscard]] HookOutput askReply(Agent agent, HookEvent::Kind kind, std::string_view message);

} // namespace tidewrack
