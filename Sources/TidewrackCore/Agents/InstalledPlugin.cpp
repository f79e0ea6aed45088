#include "Agents/InstalledPlugin.hpp"

#include "Agents/ConfigFile.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <string_view>

namespace tidewrack {

namespace {

std::string textOf(const HookInstaller& installer, std::string_view path) {
    std::string text;
    return readFile(installer.home + std::string(path), text) == 0 ? text : std::string();
}

bool claudeHasPlugin(const HookInstaller& installer) {
    const auto settings = parseJson(textOf(installer, "/.claude/settings.json"));
    if (!settings || !settings->is_object() || !settings->contains("enabledPlugins")) return false;
    for (const auto& [name, enabled] : (*settings)["enabledPlugins"].items())
        if (name.starts_with("tidewrack@") && enabled == true) return true;
    return false;
}

// Codex writes a section for each plugin: [plugins."NAME@SHOP"], and enabled = true in it.
bool codexHasPlugin(const HookInstaller& installer) {
    const std::string settings = textOf(installer, "/.codex/config.toml");
    const std::size_t at = settings.find("[plugins.\"tidewrack@");
    if (at == settings.npos) return false;
    const std::string section = settings.substr(at, settings.find("\n[", at) - at);
    return section.find("\nenabled = true") != section.npos;
}

// Codex runs a hook of the user's only once it is trusted, and notes that by the file's path.
bool codexTrusts(const HookInstaller& installer) {
    return textOf(installer, "/.codex/config.toml")
               .find("[hooks.state.\"" + installer.configPath(Agent::codex) + ":") != std::string::npos;
}

} // namespace

bool hasPlugin(const HookInstaller& installer, Agent agent) {
    switch (agent) {
    case Agent::claude: return claudeHasPlugin(installer);
    case Agent::codex: return codexHasPlugin(installer);
    case Agent::gemini: return isFolder(installer.home + "/.gemini/extensions/tidewrack");
    case Agent::cursor:
    case Agent::copilot:
    case Agent::qwen:
    case Agent::opencode:
    case Agent::droid: return false; // there is none
    }
    return false;
}

bool ownHooksRun(const HookInstaller& installer, Agent agent) {
    try {
        const auto program = installer.installedBinary(agent);
        if (!program) return false;
        if (program->starts_with('/') && ::access(program->c_str(), X_OK) != 0) return false;
        // Those of an earlier version would leave some events to nobody.
        return installer.areWhole(agent, *program) && (agent != Agent::codex || codexTrusts(installer));
    } catch (const std::exception&) { // a file that can't be read runs nothing, as far as we know
        return false;
    }
}

} // namespace tidewrack
