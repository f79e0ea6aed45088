#include "Agents/HookEvent.hpp"

#include "Agents/FileTools.hpp"
#include "Agents/HookEntries.hpp"
#include "Support/Paths.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <initializer_list>

namespace tidewrack {

namespace {

using nlohmann::json;

const json* member(const json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> asText(const json* value) {
    if (!value || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

// The first key that is present decides, even when its value is no text.
std::optional<std::string> firstPresent(const json& object, std::initializer_list<const char*> keys) {
    for (const char* key : keys)
        if (const json* value = member(object, key)) return asText(value);
    return std::nullopt;
}

bool isTextArray(const json& value) {
    return value.is_array() &&
           std::all_of(value.begin(), value.end(), [](const json& item) { return item.is_string(); });
}

std::string workingFolder(const json& object, std::string_view fallbackCwd) {
    if (auto cwd = asText(member(object, "cwd")); cwd && !cwd->empty()) return *cwd;
    const json* roots = member(object, "workspace_roots");
    if (roots && isTextArray(*roots) && !roots->empty()) {
        auto first = roots->front().get<std::string>();
        if (!first.empty()) return first;
    }
    return std::string(fallbackCwd);
}

std::optional<std::string> eventCommand(const json& object, const AgentTraits& names) {
    if (names.shellTool.empty()) return asText(member(object, "command"));
    const auto tool = asText(member(object, "tool_name"));
    if (!tool || (tool != names.shellTool && (names.shellAlias.empty() || tool != names.shellAlias)))
        return std::nullopt;
    return shellCommand(member(object, "tool_input"));
}

bool throwsWorkTreeAway(Agent agent, std::string_view tool, const json* toolInput) {
    return agent == Agent::claude && tool == "ExitWorktree" && toolInput && toolInput->is_object() &&
           asText(member(*toolInput, "action")) == "remove";
}

// What the tool is about to do.
void readTool(Agent agent, const json& object, std::string_view home, HookEvent& event) {
    const std::string tool = asText(member(object, "tool_name")).value_or("");
    const json* input = member(object, "tool_input");
    ChangedFiles changed = filesChangedBy(agent, tool, input, event.cwd, home);
    event.paths = std::move(changed.paths);
    event.fileAct = changed.act;
    if (!event.paths.empty())
        event.kind = HookEvent::Kind::edit;
    else if (throwsWorkTreeAway(agent, tool, input))
        event.kind = HookEvent::Kind::discard;
}

// Whether a shell would take the word of a list for several, or for a part of another. Patterns, variables and "~" stay
// as they are, because nobody knows whether a shell gets to see them; and so do operators, which no list for a program
// would hold.
bool needsQuotes(std::string_view word) {
    constexpr std::array<std::string_view, 8> operators = {"&&", "||", "|", ">", ">>", "<", "2>", "&>"};
    if (std::find(operators.begin(), operators.end(), word) != operators.end()) return false;
    return word.empty() || word.starts_with('#') || word.find_first_of(" \t\n\r'\"\\`;&|<>()") != word.npos;
}

} // namespace

std::optional<std::string> shellCommand(const json* toolInput, CommandWords words) {
    if (!toolInput || !toolInput->is_object()) return std::nullopt;
    const json* command = member(*toolInput, "command");
    if (!command || !isTextArray(*command)) return asText(command);
    const bool quotes = words == CommandWords::quoted && command->size() > 1; // one alone is a whole command line
    std::string joined;
    for (const json& word : *command) {
        if (&word != &command->front()) joined += ' ';
        const auto& text = word.get_ref<const std::string&>();
        joined += quotes && needsQuotes(text) ? shellQuote(text) : text;
    }
    return joined;
}

HookEvent parseHookEvent(Agent agent, const json& object, std::string_view fallbackCwd, std::string_view home) {
    HookEvent event;
    event.cwd = fallbackCwd;
    if (!object.is_object()) return event;
    event.name = firstPresent(object, {"hook_event_name", "hookEventName"}).value_or("");
    event.cwd = workingFolder(object, fallbackCwd);
    event.session = firstPresent(object, {"session_id", "conversation_id", "sessionId"});
    event.turn = firstPresent(object, {"prompt_id", "turn_id", "generation_id"});
    event.prompt = asText(member(object, "prompt"));

    const AgentTraits& names = traitsOf(agent);
    if (event.name == names.prompt) {
        // Qwen repeats the event, with nothing in it, after every tool of a turn.
        const bool isRepeated = agent == Agent::qwen && event.prompt && event.prompt->empty();
        event.kind = isRepeated ? HookEvent::Kind::other : HookEvent::Kind::prompt;
    } else if (event.name == names.stop) {
        event.kind = HookEvent::Kind::stop;
    } else if (!names.interrupt.empty() && event.name == names.interrupt) {
        event.kind = HookEvent::Kind::stop;
        event.interrupted = true;
    } else if (!names.sessionEnd.empty() && event.name == names.sessionEnd) {
        event.kind = HookEvent::Kind::stop;
        event.endsSession = true;
    } else if (event.name == names.shell) {
        event.command = eventCommand(object, names);
        if (event.command) event.kind = HookEvent::Kind::shell;
    }
    if (event.kind == HookEvent::Kind::other && event.name == names.tool) readTool(agent, object, home, event);
    // Some leave "cwd" at the project and name the command's own folder in the tool's input.
    if (event.kind == HookEvent::Kind::shell && !names.shellFolder.empty()) {
        const auto folder = asText(member(*member(object, "tool_input"), std::string(names.shellFolder).c_str()));
        if (folder && !folder->empty()) event.cwd = absolutePath(*folder, absolutePath(event.cwd, "/"));
    }
    return event;
}

} // namespace tidewrack
