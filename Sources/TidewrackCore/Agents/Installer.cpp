#include "Agents/Installer.hpp"

#include "Agents/ConfigFile.hpp"
#include "Agents/Plugin.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"

#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace tidewrack {

using nlohmann::json;

namespace {

bool isPlugin(Agent agent) {
    return traitsOf(agent).config == AgentTraits::Config::plugin;
}

bool isBlank(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    return text.find_first_not_of(" \t\r\n") == text.npos;
}

// The object in a configuration file; agents take a missing and an empty file for one without settings. None when
// the text is not plain JSON or no object.
std::optional<json> decoded(const std::optional<std::string>& bytes) {
    if (!bytes || isBlank(*bytes)) return json::object();
    auto config = parseJsonKeepingDigits(*bytes);
    if (!config || !config->is_object()) return std::nullopt;
    return config;
}

std::string encoded(const json& config) {
    return prettyJson(config, Slashes::plain) + '\n';
}

// A file that holds the events alone is worked on as if they stood under "hooks".
std::optional<json> decoded(const std::optional<std::string>& bytes, bool eventsAlone) {
    auto config = decoded(bytes);
    if (!config || !eventsAlone) return config;
    return json{{"hooks", std::move(*config)}};
}
std::string encoded(const json& config, bool eventsAlone) {
    return encoded(eventsAlone ? config.value("hooks", json::object()) : config);
}

std::string notPlainJson(const std::string& path, Agent agent) {
    return path + " isn't plain JSON (comments?). Add the hooks by hand: run `tidewrack hooks --print " +
           std::string(rawValue(agent)) + "`.";
}

// `left` names events of `path` whose values are no lists, or its "hooks" that is no object.
std::string leftAlone(const std::string& path, const std::vector<std::string>& left) {
    if (left.front() == "hooks") return "\"hooks\" in " + path + " isn't an object, so it was left as it is.";
    std::string names;
    for (const auto& event : left) names += (names.empty() ? "\"" : ", \"") + event + '"';
    return names + " in " + path + " isn't a list, so it was left as it is and has no hook of Tidewrack.";
}

void append(std::optional<std::string>& note, const std::string& text) {
    note = note ? *note + ' ' + text : text;
}

// What is left of a file of ours without our hooks, where nobody added anything.
json emptyHooks() {
    return {{"hooks", json::object()}, {"version", 1}};
}

// The hooks that are not among the others.
std::vector<OwnHook> without(std::vector<OwnHook> hooks, const std::vector<OwnHook>& others) {
    std::erase_if(hooks,
                  [&](const OwnHook& hook) { return std::find(others.begin(), others.end(), hook) != others.end(); });
    return hooks;
}

bool sameFile(const std::string& a, const std::string& b) {
    struct stat first {};
    struct stat second {};
    return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

// What an earlier edit of this configuration may have been writing.
std::vector<std::string> possibleTexts(const HookEntries& entries, const std::optional<std::string>& bytes,
                                       const std::optional<json>& config, bool eventsAlone) {
    std::vector<std::string> texts = {bytes.value_or("")};
    if (!config) return texts;
    json with = *config;
    json without = *config;
    (void)entries.addTo(with);
    entries.removeFrom(without);
    texts.push_back(encoded(with, eventsAlone));
    texts.push_back(encoded(without, eventsAlone));
    return texts;
}

constexpr const char* mend = "; mend with `tidewrack hooks install`";

// What is wrong with hooks that run `program` when `binary` is running; none when that is the same file.
std::optional<std::string> wrongProgram(const std::string& program, const std::string& binary) {
    const std::string run = "its hooks run " + program;
    // A name without a folder depends on where the agent looks for it.
    if (program.starts_with('/') && ::access(program.c_str(), X_OK) != 0) return run + ", which does not exist" + mend;
    if (program == binary || sameFile(program, binary)) return std::nullopt;
    return run + ", which is not this program (" + binary + ")" + mend;
}

} // namespace

std::string HookInstaller::agentFolder(Agent agent) const {
    std::string path = home;
    if (path.ends_with('/')) path.pop_back();
    return path.append(traitsOf(agent).folder);
}

std::string HookInstaller::configPath(Agent agent) const {
    const AgentTraits& traits = traitsOf(agent);
    return agentFolder(agent).append(holdsEventsAlone(agent) ? traits.eventsFile : traits.configFile);
}

bool HookInstaller::holdsEventsAlone(Agent agent) const {
    const std::string_view file = traitsOf(agent).eventsFile;
    return !file.empty() && exists(agentFolder(agent).append(file));
}

bool HookInstaller::agentPresent(Agent agent) const {
    struct stat status {};
    return ::stat(agentFolder(agent).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string HookInstaller::snippet(Agent agent) const {
    if (isPlugin(agent)) return opencodePlugin(binary, entries(agent).command());
    json config{{"hooks", entries(agent).block()}};
    if (holdsEventsAlone(agent)) config = config["hooks"];
    if (traitsOf(agent).config == AgentTraits::Config::hooks) config["version"] = 1;
    return prettyJson(config, Slashes::plain);
}

// What is not plain JSON counts as empty.
std::vector<std::string> HookInstaller::commandsIn(Agent agent, const std::optional<std::string>& bytes) const {
    if (isPlugin(agent)) {
        const std::string own = entries(agent).command();
        if (!bytes) return {};
        const std::string first = bytes->substr(0, bytes->find('\n'));
        if (first.ends_with(" " + own)) return {own}; // of whatever name
        return programOf(first) ? std::vector{first} : std::vector<std::string>();
    }
    const auto config = decoded(bytes, holdsEventsAlone(agent));
    return config ? entries(agent).commandsIn(*config) : std::vector<std::string>();
}

bool HookInstaller::isInstalled(Agent agent) const {
    return !commandsIn(agent, readConfig(configPath(agent))).empty();
}

std::optional<std::string> HookInstaller::installedBinary(Agent agent) const {
    const auto commands = commandsIn(agent, readConfig(configPath(agent)));
    if (commands.empty()) return std::nullopt;
    // A command line that names no "tidewrack" is ours only when it is this program's own.
    return programOf(commands.front()).value_or(binary);
}

bool HookInstaller::areWhole(Agent agent, const std::string& program) const {
    if (isPlugin(agent)) return false;
    const auto config = decoded(readConfig(configPath(agent)), holdsEventsAlone(agent));
    return config && HookEntries(program, agent).areWholeIn(*config, HookEntries::Version::current);
}

std::optional<std::string> HookInstaller::projectFile(Agent agent) const {
    if (agent == Agent::copilot || isPlugin(agent)) return std::nullopt; // a project's lie elsewhere
    const AgentTraits& traits = traitsOf(agent);
    const std::string own = agentFolder(agent);
    for (std::string_view at = folder; !at.empty() && at != "/"; at = parentOf(at)) {
        const std::string there = std::string(at).append(traits.folder);
        if (there == own) return std::nullopt; // the user's own, which is known
        for (const std::string_view name : {traits.configFile, traits.localFile, traits.eventsFile}) {
            std::string bytes;
            if (name.empty() || readFile(there + std::string(name), bytes) != 0) continue;
            const auto config = decoded(bytes, name == traits.eventsFile);
            if (config && !entries(agent).commandsIn(*config).empty()) return there + std::string(name);
        }
    }
    return std::nullopt;
}

HookInstaller::Status HookInstaller::status(Agent agent) const {
    if (!agentPresent(agent)) return {Status::State::agentNotFound, std::nullopt};
    const auto bytes = readConfig(configPath(agent));
    const auto config = isPlugin(agent) ? json::object() : decoded(bytes, holdsEventsAlone(agent));
    if (!isPlugin(agent))
        removeLeftoversBeside(configPath(agent), possibleTexts(entries(agent), bytes, config, holdsEventsAlone(agent)));
    if (!config) return {Status::State::notInstalled, notPlainJson(configPath(agent), agent)};
    const auto commands = commandsIn(agent, bytes);
    if (commands.empty()) return {Status::State::notInstalled, std::nullopt};

    Status status{Status::State::installed, std::nullopt};
    for (const auto& command : commands) {
        status.hint = wrongProgram(programOf(command).value_or(binary), binary);
        if (status.hint) return status;
    }
    const std::string program = programOf(commands.front()).value_or(binary);
    const HookEntries asInstalled(program, agent);
    if (isPlugin(agent)) {
        if (bytes != opencodePlugin(program, asInstalled.command()))
            status.hint = std::string("not as this version installs them") + mend;
        return status;
    }
    if (asInstalled.areWholeIn(*config, HookEntries::Version::current)) return status;
    const bool isOlder = asInstalled.areWholeIn(*config, HookEntries::Version::first) ||
                         asInstalled.areWholeIn(*config, HookEntries::Version::fileTools);
    status.hint = isOlder ? "hooks are of an earlier version: run tidewrack hooks install"
                          : std::string("not as this version installs them") + mend;
    return status;
}

HookInstaller::Result HookInstaller::install(Agent agent, Acting acting) const {
    return edit(agent, Edit::add, acting);
}

HookInstaller::Result HookInstaller::uninstall(Agent agent, Acting acting) const {
    return edit(agent, Edit::remove, acting);
}

std::optional<HookInstaller::Result> HookInstaller::repair(Agent agent) const {
    if (!isInstalled(agent)) return std::nullopt;
    return install(agent);
}

HookInstaller::Result HookInstaller::edit(Agent agent, Edit what, Acting acting) const {
    Result result;
    result.agent = agent;
    result.path = configPath(agent);
    const auto bytes = readConfig(result.path);
    if (isPlugin(agent)) return editPlugin(std::move(result), bytes, what, acting);
    const bool eventsAlone = holdsEventsAlone(agent);
    auto config = decoded(bytes, eventsAlone);
    if (acting == Acting::forReal)
        removeLeftoversBeside(result.path, possibleTexts(entries(agent), bytes, config, eventsAlone));
    if (!config) {
        result.note = notPlainJson(result.path, agent);
        return result;
    }
    const std::string before = encoded(*config, eventsAlone);
    const std::vector<OwnHook> hooksBefore = entries(agent).hooksIn(*config);
    if (what == Edit::remove) {
        entries(agent).removeFrom(*config);
    } else if (const auto left = entries(agent).addTo(*config); !left.empty()) {
        result.note = leftAlone(result.path, left);
    }
    const std::string after = encoded(*config, eventsAlone);
    if (after == before) return result;

    const std::vector<OwnHook> hooksAfter = entries(agent).hooksIn(*config);
    result.added = without(hooksAfter, hooksBefore);
    result.removed = without(hooksBefore, hooksAfter);
    result.changed = true;
    if (what == Edit::remove && traitsOf(agent).isOwnFile && after == encoded(emptyHooks())) {
        if (acting == Acting::forReal) removeConfig(result.path, *bytes);
        return result;
    }
    if (acting == Acting::forReal)
        result.backup = replaceConfig(result.path, bytes, after);
    else if (bytes)
        result.backup = backupPath(result.path);
    if (agent == Agent::codex && what == Edit::add)
        append(result.note,
               "Open Codex and run /hooks to trust Tidewrack's hooks; Codex skips new hooks until you do.");
    return result;
}

HookInstaller::Result HookInstaller::editPlugin(Result result, const std::optional<std::string>& bytes, Edit what,
                                                Acting acting) const {
    if (acting == Acting::forReal) removeLeftoversBeside(result.path, {bytes.value_or(""), snippet(result.agent)});
    const auto commands = commandsIn(result.agent, bytes);
    if (bytes && !isBlank(*bytes) && commands.empty()) {
        result.note = result.path + " isn't Tidewrack's, so it was left as it is.";
        return result;
    }
    const std::string wanted = what == Edit::add ? snippet(result.agent) : std::string();
    if (wanted == bytes.value_or("")) return result;
    for (const std::string& command : commands) result.removed.push_back({"plugin", "", command, *bytes});
    if (what == Edit::add) result.added.push_back({"plugin", "", entries(result.agent).command(), wanted});
    result.changed = true;
    if (acting == Acting::dryRun) return result;
    if (what == Edit::remove)
        removeConfig(result.path, *bytes);
    else
        result.backup = replaceConfig(result.path, bytes, wanted);
    return result;
}

} // namespace tidewrack
