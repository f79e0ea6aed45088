#include "Agents/HookEntries.hpp"

#include "Support/Json.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack {

using nlohmann::json;

namespace {

bool isAsciiWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// Letters beyond ASCII count as part of a word too: a longer word than an agent's name is another name.
bool continuesWord(std::string_view text) {
    return !text.empty() && (isAsciiWord(text[0]) || text[0] == '_' || static_cast<unsigned char>(text[0]) >= 0x80);
}

bool beginsWithAgent(std::string_view text) {
    return std::any_of(allAgents.begin(), allAgents.end(), [&](Agent agent) {
        return text.starts_with(rawValue(agent)) && !continuesWord(text.substr(rawValue(agent).size()));
    });
}

// The length of the part before " hook <agent>" of the first "tidewrack hook <agent>" (the path may be quoted).
std::optional<std::size_t> programEnd(std::string_view command) {
    constexpr std::string_view name = "tidewrack";
    constexpr std::string_view verb = " hook ";
    for (std::size_t at = command.find(name); at != command.npos; at = command.find(name, at + 1)) {
        std::size_t end = at + name.size();
        if (command.substr(end).starts_with('\'')) ++end;
        const std::string_view rest = command.substr(end);
        if (rest.starts_with(verb) && beginsWithAgent(rest.substr(verb.size()))) return end;
    }
    return std::nullopt;
}

// The last word of `text` as a shell would see it; quotes and backslashes are undone.
std::string lastShellWord(std::string_view text) {
    std::string word;
    char quote = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '\\' && quote != '\'' && at + 1 < text.size())
            word += text[++at];
        else if (c == quote)
            quote = 0;
        else if (quote == 0 && (c == '\'' || c == '"'))
            quote = c;
        else if (quote == 0 && c == ' ')
            word.clear();
        else
            word += c;
    }
    return word;
}

const json* listIn(const json& object, const char* key) {
    if (!object.is_object()) return nullptr;
    const auto found = object.find(key);
    return found != object.end() && found->is_array() ? &*found : nullptr;
}

bool sameMatcher(const json& entry, const json& wanted) {
    return entry.is_object() && entry.value("matcher", json()) == wanted.value("matcher", json());
}

using Version = HookEntries::Version;

// One entry of an agent's configuration.
struct EntryRow { // NOLINT(clang-analyzer-optin.performance.Padding): in the order in which rows are read
    Agent agent;
    std::string_view event;
    std::string_view matcher; // the tools that it is for; empty: it has none
    Version since = Version::first;
};

constexpr EntryRow entryRows[] = {
    {Agent::claude, "UserPromptSubmit", ""},
    {Agent::claude, "PreToolUse", "Bash"},
    {Agent::claude, "PreToolUse", "Write|Edit|MultiEdit|NotebookEdit|ExitWorktree", Version::fileTools},
    {Agent::claude, "PreToolUse", "mcp__.*", Version::fileTools},
    {Agent::claude, "Stop", ""},
    {Agent::claude, "SessionEnd", "", Version::current},
    {Agent::codex, "UserPromptSubmit", ""},
    {Agent::codex, "PreToolUse", "^Bash$"},
    {Agent::codex, "PreToolUse", "^apply_patch$", Version::fileTools},
    {Agent::codex, "Stop", ""},
    {Agent::codex, "Interrupt", "", Version::fileTools},
    {Agent::codex, "SessionEnd", "", Version::current},
    {Agent::cursor, "beforeSubmitPrompt", ""},
    {Agent::cursor, "beforeShellExecution", ""},
    {Agent::cursor, "preToolUse", "Write|Edit|Delete", Version::fileTools},
    {Agent::cursor, "stop", ""},
    {Agent::gemini, "BeforeAgent", ""},
    {Agent::gemini, "BeforeTool", "run_shell_command"},
    {Agent::gemini, "BeforeTool", "write_file|replace|mcp_.*", Version::fileTools},
    {Agent::gemini, "AfterAgent", ""},
    {Agent::gemini, "SessionEnd", "", Version::current},
    {Agent::copilot, "UserPromptSubmit", ""},
    {Agent::copilot, "PreToolUse", "Bash|Write|Edit"},
    {Agent::copilot, "PreToolUse", ".*-.*", Version::current}, // of servers
    {Agent::copilot, "Stop", ""},
    {Agent::copilot, "SessionEnd", "", Version::current},
    {Agent::qwen, "UserPromptSubmit", ""},
    {Agent::qwen, "PreToolUse", "^(run_shell_command|write_file|edit|notebook_edit)$"},
    {Agent::qwen, "PreToolUse", "^mcp__", Version::current},
    {Agent::qwen, "Stop", ""},
    {Agent::qwen, "SessionEnd", "", Version::current},
    {Agent::droid, "UserPromptSubmit", ""},
    {Agent::droid, "PreToolUse", "Execute|Bash|Create|Write|Edit|MultiEdit"},
    {Agent::droid, "Stop", ""},
};

bool hasGroups(Agent agent) {
    return traitsOf(agent).config == AgentTraits::Config::groups;
}

} // namespace

std::string shellQuote(std::string_view text) {
    const auto plain = [](char c) { return isAsciiWord(c) || std::string_view("/._-+").find(c) != std::string::npos; };
    if (std::all_of(text.begin(), text.end(), plain)) return std::string(text);
    return singleQuoted(text);
}

std::optional<std::string> programOf(std::string_view command) {
    const auto end = programEnd(command);
    if (!end) return std::nullopt;
    return lastShellWord(command.substr(0, *end));
}

std::string HookEntries::command() const {
    const std::string program = shellQuote(binary_);
    const std::string call = program + " hook " + std::string(rawValue(agent_));
    // Copilot refuses every tool whose hook fails, and reads our own refusals from standard output: our program must
    // not take the agent along when it is gone, or can't be run.
    return agent_ == Agent::copilot ? "[ ! -x " + program + " ] || " + call + " || :" : call;
}

json HookEntries::hook(std::string_view event, std::string_view matcher) const {
    json hook{{"command", command()}};
    hook[agent_ == Agent::copilot ? "timeoutSec" : "timeout"] = 30;
    if (!hasGroups(agent_) && !matcher.empty()) hook["matcher"] = matcher;
    if (agent_ == Agent::cursor) return hook;
    hook["type"] = "command";
    if (agent_ == Agent::gemini || agent_ == Agent::qwen) hook["name"] = "tidewrack";
    if (agent_ == Agent::gemini) hook["timeout"] = 30000; // milliseconds; every other agent counts in seconds
    // Codex gives these no more, and warns at every start where an entry asks for it.
    if (agent_ == Agent::codex && (event == "Interrupt" || event == "SessionEnd")) hook["timeout"] = 3;
    if (agent_ == Agent::codex && event == "PreToolUse")
        hook["statusMessage"] = matcher == "^Bash$" ? "Tidewrack: checking command" : "Tidewrack: checking edit";
    if (agent_ == Agent::claude && event == "Stop") {
        hook.erase("timeout");
        hook["async"] = true;
    }
    return hook;
}

json HookEntries::block(Version version) const {
    json block = json::object();
    for (const EntryRow& row : entryRows) {
        if (row.agent != agent_ || version < row.since) continue;
        json entry = hook(row.event, row.matcher);
        if (hasGroups(agent_)) {
            entry = {{"hooks", json::array({std::move(entry)})}};
            if (!row.matcher.empty()) entry["matcher"] = row.matcher;
        }
        block[std::string(row.event)].push_back(std::move(entry));
    }
    return block;
}

bool HookEntries::isOurs(const json& hook) const {
    if (!hook.is_object()) return false;
    const auto text = hook.find("command");
    if (text == hook.end() || !text->is_string()) return false;
    const auto& line = text->get_ref<const std::string&>();
    // The second test is for a program that was given another file name.
    return programEnd(line).has_value() || line == command();
}

bool HookEntries::areIn(const json& value) const {
    const auto holdsOurs = [this](const json& item) { return areIn(item); };
    if (value.is_array()) return std::any_of(value.begin(), value.end(), holdsOurs);
    if (isOurs(value)) return true;
    const json* hooks = listIn(value, "hooks");
    return hooks && areIn(*hooks);
}

void HookEntries::collect(const json& value, OwnHook found, std::vector<OwnHook>& hooks) const {
    if (value.is_array()) {
        for (const json& item : value) collect(item, found, hooks);
        return;
    }
    if (!value.is_object()) return;
    if (const auto matcher = value.find("matcher"); matcher != value.end() && matcher->is_string())
        found.matcher = matcher->get<std::string>();
    if (isOurs(value)) {
        found.command = value["command"].get<std::string>();
        found.text = compactJson(value);
        hooks.push_back(std::move(found));
    } else if (const json* inner = listIn(value, "hooks")) {
        collect(*inner, std::move(found), hooks);
    }
}

std::vector<OwnHook> HookEntries::hooksIn(const json& config) const {
    std::vector<OwnHook> hooks;
    if (!config.is_object()) return hooks;
    const auto events = config.find("hooks");
    if (events == config.end() || !events->is_object()) return hooks;
    for (const auto& [event, list] : events->items())
        if (list.is_array()) collect(list, {event, "", "", ""}, hooks);
    return hooks;
}

std::vector<std::string> HookEntries::commandsIn(const json& config) const {
    std::vector<std::string> commands;
    for (OwnHook& hook : hooksIn(config)) commands.push_back(std::move(hook.command));
    return commands;
}

// What remains of an entry without our hooks; none when nothing does.
std::optional<json> HookEntries::othersOf(const json& entry) const {
    if (isOurs(entry)) return std::nullopt;
    if (!areIn(entry)) return entry;
    if (entry.is_array()) {
        json rest = json::array();
        for (const json& item : entry)
            if (auto kept = othersOf(item)) rest.push_back(std::move(*kept));
        return rest.empty() ? std::nullopt : std::optional(std::move(rest));
    }
    json rest = entry;
    json& hooks = rest["hooks"];
    hooks = json::array();
    for (const json& hook : entry["hooks"])
        if (auto kept = othersOf(hook)) hooks.push_back(std::move(*kept));
    // What has a command of its own is more than the group of its hooks.
    if (hooks.empty() && !entry.contains("command")) return std::nullopt;
    return rest;
}

// A group that other tools' hooks share with ours, with our first hook replaced by the one of `wanted` and our
// others dropped; none when the group fires on something else than `wanted`.
std::optional<json> HookEntries::replacedIn(const json& group, const json& wanted) const {
    const json* wantedHooks = listIn(wanted, "hooks");
    if (!wantedHooks || !group.is_object() || !sameMatcher(group, wanted)) return std::nullopt;
    json result = group;
    result["hooks"] = json::array();
    bool placed = false;
    for (const json& hook : group["hooks"]) {
        if (areIn(hook) && !placed) {
            result["hooks"].push_back(wantedHooks->front());
            placed = true;
        }
        if (auto kept = othersOf(hook)) result["hooks"].push_back(std::move(*kept)); // also what ours were within
    }
    return result;
}

// Which of the entries `wanted` replaces our `entry`: the one with its matcher, else one whose matcher none of ours in
// the list has. None when all are placed.
std::optional<std::size_t> HookEntries::successorOf(const json& entry, const json& list, const json& wanted,
                                                    const std::vector<bool>& placed) const {
    for (std::size_t index = 0; index < wanted.size(); ++index)
        if (!placed[index] && sameMatcher(entry, wanted[index])) return index;
    for (std::size_t index = 0; index < wanted.size(); ++index) {
        const auto isItsOwn = [&](const json& other) { return areIn(other) && sameMatcher(other, wanted[index]); };
        if (!placed[index] && std::none_of(list.begin(), list.end(), isItsOwn)) return index;
    }
    return std::nullopt;
}

// One event's list with our entries replaced by the entries `wanted`, of which there may be none.
json HookEntries::mergedList(const json& list, const json& wanted) const {
    json merged = json::array();
    std::vector<bool> placed(wanted.size());
    for (const json& entry : list) {
        auto rest = othersOf(entry);
        const auto index = areIn(entry) ? successorOf(entry, list, wanted, placed) : std::nullopt;
        if (index) {
            auto replaced = rest ? replacedIn(entry, wanted[*index]) : std::optional<json>(wanted[*index]);
            if (replaced) {
                merged.push_back(std::move(*replaced));
                placed[*index] = true;
                continue;
            }
        }
        if (rest) merged.push_back(std::move(*rest));
    }
    for (std::size_t index = 0; index < wanted.size(); ++index)
        if (!placed[index]) merged.push_back(wanted[index]);
    return merged;
}

std::vector<std::string> HookEntries::addTo(json& config, Version version) const {
    json& hooks = config.emplace("hooks", json::object()).first.value();
    if (!hooks.is_object()) return {"hooks"};
    const json wanted = block(version);
    std::vector<std::string> inTheWay;
    json merged = json::object();
    for (const auto& [event, list] : hooks.items()) {
        const auto ours = wanted.find(event);
        if (!list.is_array()) {
            if (ours != wanted.end()) inTheWay.push_back(event);
            merged[event] = list;
            continue;
        }
        json kept = mergedList(list, ours == wanted.end() ? json::array() : *ours);
        if (!kept.empty() || list.empty()) merged[event] = std::move(kept);
    }
    for (const auto& [event, list] : wanted.items()) merged.emplace(event, list);
    hooks = std::move(merged);
    if (!hasGroups(agent_)) config.emplace("version", 1);
    return inTheWay;
}

bool HookEntries::areWholeIn(const json& config, Version version) const {
    json added = config;
    // Compared as text, because numbers that were read are kept as their digits, and ours are numbers.
    return addTo(added, version).empty() && prettyJson(added, Slashes::plain) == prettyJson(config, Slashes::plain);
}

void HookEntries::removeFrom(json& config) const {
    if (commandsIn(config).empty()) return;
    json& hooks = config["hooks"];
    json kept = json::object();
    for (const auto& [event, list] : hooks.items()) {
        json rest = list.is_array() ? mergedList(list, json::array()) : list;
        if (rest != list && rest.empty()) continue;
        kept[event] = std::move(rest);
    }
    if (kept.empty() && hasGroups(agent_))
        config.erase("hooks");
    else
        hooks = std::move(kept);
}

} // namespace tidewrack
