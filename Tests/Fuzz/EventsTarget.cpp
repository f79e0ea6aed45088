// Hook events of every agent, and the replies to them.

#include "Fuzz/Fuzz.hpp"

#include "Agents/Replies.hpp"
#include "Support/Json.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

using namespace tidewrack;
using fuzz::require;

namespace {

// Cursor and copilot read JSON, the others the exit status and standard error.
void checkRefusal(Agent agent, const std::string& message) {
    const HookOutput output = denyReply(agent, message);
    const AgentTraits::Answer form = traitsOf(agent).refusal;
    if (form == AgentTraits::Answer::exitStatus) {
        require(output.exitCode == 2 && output.standardError == message && !output.standardOutput, "a refusal refuses");
        return;
    }
    const std::string& text = output.standardOutput.value();
    require(text.find('\n') == text.npos, "a reply is one line");
    const auto reply = parseJson(text);
    if (!isUtf8(message)) return require(reply.has_value(), "a reply is JSON whatever it quotes");
    const bool isDecision = form == AgentTraits::Answer::decision;
    require(reply && reply->at(isDecision ? "permissionDecision" : "permission") == "deny" &&
                reply->at(isDecision ? "permissionDecisionReason" : "user_message") == message,
            "a refusal refuses, in the words it was given");
}

void checkEvent(Agent agent, const nlohmann::json& value) {
    const HookEvent event = parseHookEvent(agent, value, "/w", "/home/ann");
    require(event.command.has_value() == (event.kind == HookEvent::Kind::shell), "shell events have a command");
    require(event.paths.empty() == (event.kind != HookEvent::Kind::edit), "edits name files");
    for (const std::string& path : event.paths) require(path.starts_with('/'), "files are named in full");
    require(!event.cwd.empty(), "every event has a folder");
    require(event.kind == HookEvent::Kind::other || !event.name.empty(), "an event without a name is of no concern");
    checkRefusal(agent, event.command.value_or(event.name));
    const HookOutput allowed = allowReply(agent, event.kind);
    require(allowed.exitCode == 0 && !allowed.standardError, "what is allowed goes on");
}

} // namespace

FUZZ_TARGET(events) {
    const auto strict = parseJson(input);
    const auto value = parseJsonRepairingEscapes(input);
    require(!strict || value == strict, "sound text needs no repair");
    if (value)
        for (const Agent agent : allAgents) checkEvent(agent, *value);
    checkRefusal(Agent::cursor, std::string(input));
}
