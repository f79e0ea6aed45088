#include "Agents/Replies.hpp"

#include "Support/Json.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

namespace {

using nlohmann::json;

constexpr std::string_view cannotAsk =
    " This agent can't ask you from a hook, so Tidewrack refused; run it yourself if you meant it.";

HookOutput jsonAnswer(AgentTraits::Answer form, const char* verdict, std::string_view message) {
    if (form == AgentTraits::Answer::decision)
        return jsonReply({{"permissionDecision", verdict}, {"permissionDecisionReason", message}});
    return jsonReply({{"permission", verdict}, {"user_message", message}, {"agent_message", message}});
}

} // namespace

HookOutput jsonReply(const json& object) {
    HookOutput output;
    try {
        output.standardOutput = compactJson(object);
    } catch (const json::exception&) {
        output.standardOutput = "{}";
    }
    return output;
}

HookOutput allowReply(Agent agent, HookEvent::Kind kind) {
    if (agent != Agent::cursor) return {};
    switch (kind) {
    case HookEvent::Kind::shell:
    case HookEvent::Kind::edit: return jsonReply({{"permission", "allow"}});
    case HookEvent::Kind::prompt: return jsonReply({{"continue", true}});
    case HookEvent::Kind::stop:
    case HookEvent::Kind::discard:
    case HookEvent::Kind::other: return {};
    }
    return {};
}

HookOutput denyReply(Agent agent, std::string_view message) {
    const AgentTraits::Answer form = traitsOf(agent).refusal;
    if (form != AgentTraits::Answer::exitStatus) return jsonAnswer(form, "deny", message);
    HookOutput output;
    output.standardError = message;
    output.exitCode = 2;
    return output;
}

HookOutput askReply(Agent agent, HookEvent::Kind kind, std::string_view message) {
    const AgentTraits& traits = traitsOf(agent);
    const auto refusal = [&] { return denyReply(agent, std::string(message).append(cannotAsk)); };
    switch (traits.question) {
    case AgentTraits::Question::hookOutput:
        return jsonReply({{"hookSpecificOutput",
                           {{"hookEventName", "PreToolUse"},
                            {"permissionDecision", "ask"},
                            {"permissionDecisionReason", message}}}});
    case AgentTraits::Question::asAnswer:
        if (agent == Agent::cursor && kind == HookEvent::Kind::edit) return refusal();
        return jsonAnswer(traits.refusal, "ask", message);
    case AgentTraits::Question::none: return refusal();
    }
    return {};
}

} // namespace tidewrack
