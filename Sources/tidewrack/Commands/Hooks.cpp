#include "Commands/Hooks.hpp"

#include "Agents/InstalledPlugin.hpp"
#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Platform/Process.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"

#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <ostream>
#include <sstream>

namespace tidewrack {

namespace {

enum class Change { install, uninstall };

[[noreturn]] void usageError(const std::string& message) {
    throw CliError(message);
}

Agent knownAgent(const std::string& name) {
    if (const auto agent = agentNamed(name)) return *agent;
    usageError("unknown agent " + name + "; use claude, codex, cursor, gemini or all");
}

// The others are told of only where they are on this machine.
bool isAlwaysTold(Agent agent) {
    return agent <= Agent::gemini;
}

std::vector<Agent> chosenAgents(const std::string& name, Change change, const HookInstaller& installer) {
    if (name != "all") return {knownAgent(name)};
    std::vector<Agent> chosen;
    for (const Agent agent : allAgents)
        if ((change == Change::uninstall && isAlwaysTold(agent)) || installer.agentPresent(agent))
            chosen.push_back(agent);
    return chosen;
}

std::string hookText(const OwnHook& hook) {
    return hook.event + (hook.matcher.empty() ? "" : " (" + hook.matcher + ")") + ": " + hook.command;
}

void report(const HookInstaller::Result& result, Change change, HookInstaller::Acting acting, std::ostream& out,
            const Look& look) {
    const bool installing = change == Change::install;
    const bool isDryRun = acting == HookInstaller::Acting::dryRun;
    const auto name = rawValue(result.agent);
    if (!result.changed) {
        out << name << ": " << look.shown(result.note.value_or(installing ? "already installed" : "already removed"))
            << '\n';
        return;
    }
    const char* verb =
        installing ? (isDryRun ? "Would install " : "Installed ") : (isDryRun ? "Would remove " : "Removed ");
    out << verb << name << (installing ? " hooks in " : " hooks from ") << look.shown(result.path) << '\n';
    if (isDryRun) {
        for (const OwnHook& hook : result.removed) out << "  - " << look.shown(hookText(hook)) << '\n';
        for (const OwnHook& hook : result.added) out << "  + " << look.shown(hookText(hook)) << '\n';
    }
    if (result.backup) out << "  backup: " << look.shown(*result.backup) << '\n';
    if (result.note) out << "  " << look.shown(*result.note) << '\n';
}

nlohmann::json asJson(const std::vector<OwnHook>& hooks) {
    nlohmann::json list = nlohmann::json::array();
    for (const OwnHook& hook : hooks) {
        nlohmann::json object = {{"event", hook.event}, {"command", hook.command}};
        if (!hook.matcher.empty()) object["matcher"] = hook.matcher;
        list.push_back(std::move(object));
    }
    return list;
}

nlohmann::json asJson(const HookInstaller::Result& result) {
    nlohmann::json object = {{"agent", rawValue(result.agent)},
                             {"path", result.path},
                             {"changed", result.changed},
                             {"added", asJson(result.added)},
                             {"removed", asJson(result.removed)}};
    if (result.backup) object["backup"] = *result.backup;
    if (result.note) object["note"] = *result.note;
    return object;
}

// The plugin does not step back for a project's file: the agent may not trust the project, and then nobody answers.
std::string twiceBy(const std::string& projectFile) {
    return projectFile + " has hooks of Tidewrack too: what happens there is answered twice";
}

void changeAgents(const std::string& name, Change change, const HookInstaller& installer, std::ostream& out,
                  const Look& look, const HooksWay& way) {
    const auto agents = chosenAgents(name, change, installer);
    nlohmann::json list = nlohmann::json::array();
    std::exception_ptr failure; // the first; it does not keep the other agents from their turn
    for (const Agent agent : agents) {
        try {
            const auto result = change == Change::install ? installer.install(agent, way.acting)
                                                          : installer.uninstall(agent, way.acting);
            if (way.asJson)
                list.push_back(asJson(result));
            else
                report(result, change, way.acting, out, look);
            if (!way.asJson && change == Change::install && hasPlugin(installer, agent))
                out << "  The plugin that is there as well leaves everything to these hooks.\n";
            const auto file = change == Change::install ? installer.projectFile(agent) : std::nullopt;
            if (!way.asJson && file) out << "  " << look.shown(twiceBy(*file)) << ".\n";
        } catch (const std::exception&) {
            if (!failure) failure = std::current_exception();
        }
    }
    const bool isDryRun = way.acting == HookInstaller::Acting::dryRun;
    if (way.asJson)
        out << prettyJson({{"version", 1}, {"dryRun", isDryRun}, {"agents", std::move(list)}}, Slashes::escaped)
            << '\n';
    else if (agents.empty())
        out << "No supported agents found (looked for ~/.claude, ~/.codex, ~/.cursor, ~/.gemini).\n";
    if (failure) std::rethrow_exception(failure);
}

const char* stateText(HookInstaller::Status::State state) {
    switch (state) {
    case HookInstaller::Status::State::installed: return "installed";
    case HookInstaller::Status::State::notInstalled: return "not installed";
    case HookInstaller::Status::State::agentNotFound: return "agent not found";
    }
    return "";
}

struct StatusText {
    std::string state;
    std::optional<std::string> hint;
    std::exception_ptr failure; // why the state is unknown
    bool isPlugin = false;      // it brings its hooks, beside those of the user or alone
    std::optional<std::string> projectFile{};
};

StatusText statusText(const HookInstaller& installer, Agent agent) {
    try {
        auto status = installer.status(agent);
        const bool plugin = hasPlugin(installer, agent);
        const bool alone = plugin && status.state == HookInstaller::Status::State::notInstalled && !status.hint;
        return {stateText(alone ? HookInstaller::Status::State::installed : status.state), std::move(status.hint),
                nullptr, plugin, installer.projectFile(agent)};
    } catch (const std::exception& error) {
        return {"unknown", error.what(), std::current_exception(), false};
    }
}

void printStatus(const HookInstaller& installer, std::ostream& out, const Look& look) {
    std::exception_ptr failure;
    for (const Agent agent : allAgents) {
        if (!isAlwaysTold(agent) && !installer.agentPresent(agent)) continue;
        const StatusText status = statusText(installer, agent);
        std::string line(rawValue(agent));
        line.resize(std::max<std::size_t>(8, line.size() + 1), ' ');
        line += status.state;
        if (status.isPlugin)
            line += !installer.isInstalled(agent) ? " as a plugin"
                    : status.hint                 ? "; the plugin as well"
                                                  : "; the plugin as well, which leaves everything to them";
        if (status.hint) line += ", " + look.shown(*status.hint);
        out << line << '\n';
        const bool isTwice = status.projectFile && status.state == "installed";
        if (isTwice) out << "        " << look.shown(twiceBy(*status.projectFile)) << '\n';
        if (!failure) failure = status.failure;
    }
    if (failure) std::rethrow_exception(failure);
}

// Below what npx, `pnpm dlx`, `yarn dlx` and bunx keep until it is cleared; hooks that run a program there die with it.
bool isInPackageCache(std::string_view path) {
    const auto package = path.rfind("/node_modules/");
    std::string_view folders = path.substr(0, package == path.npos ? 0 : package);
    while (!folders.empty()) {
        const std::string_view name = lastComponent(folders);
        if (name == "_npx" || name == "dlx" || name.starts_with("dlx-") || name.starts_with("bunx-")) return true;
        folders.remove_suffix(std::min(folders.size(), name.size() + 1));
    }
    return false;
}

bool isProgram(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

std::string absoluteIn(const std::string& folder, std::string_view path) {
    if (path.starts_with('/')) return std::string(path);
    while (path.starts_with("./")) path.remove_prefix(2);
    return (folder == "/" ? "" : folder) + '/' + std::string(path);
}

} // namespace

void runHooks(const std::vector<std::string>& words, const HookInstaller& installer, std::ostream& out,
              const Look& look, const HooksWay& way) {
    const std::string verb = words.empty() ? "" : words[0];
    const std::string agent = words.size() > 1 ? words[1] : "";
    if (verb == "status")
        printStatus(installer, out, look);
    else if (verb == "install" && isInPackageCache(installer.binary))
        throw CliError("tidewrack lies in a cache that is cleared some day (" + installer.binary +
                       "), and hooks would go with it. Install it first: npm install -g tidewrack");
    else if (verb == "install")
        changeAgents(agent.empty() ? "all" : agent, Change::install, installer, out, look, way);
    else if (verb == "uninstall")
        changeAgents(agent.empty() ? "all" : agent, Change::uninstall, installer, out, look, way);
    else if (verb == "print" && agent.empty())
        usageError("which agent?");
    else if (verb == "print")
        out << installer.snippet(knownAgent(agent)) << '\n';
    else
        usageError("usage: tidewrack hooks status|install|uninstall|print");
}

std::string hooksStatusJson(const HookInstaller& installer) {
    nlohmann::json list = nlohmann::json::array();
    for (const Agent agent : allAgents) {
        if (!isAlwaysTold(agent) && !installer.agentPresent(agent)) continue;
        const StatusText status = statusText(installer, agent);
        nlohmann::json object = {
            {"agent", rawValue(agent)}, {"state", status.state}, {"path", installer.configPath(agent)}};
        if (status.hint) object["hint"] = *status.hint;
        if (status.isPlugin) object["plugin"] = true;
        if (status.projectFile) object["projectFile"] = *status.projectFile;
        list.push_back(object);
    }
    return prettyJson(list, Slashes::escaped) + "\n";
}

std::optional<std::string> calledProgram(std::string_view calledAs, std::string_view searchPath,
                                         const std::string& folder) {
    if (calledAs.empty()) return std::nullopt;
    if (calledAs.find('/') != calledAs.npos) {
        std::string path = absoluteIn(folder, calledAs);
        return isProgram(path) ? std::optional(path) : std::nullopt;
    }
    for (;;) {
        const auto colon = searchPath.find(':');
        const std::string_view entry = searchPath.substr(0, colon);
        std::string path = absoluteIn(folder, std::string(entry.empty() ? "." : entry) + '/' + std::string(calledAs));
        if (isProgram(path)) return path;
        if (colon == searchPath.npos) return std::nullopt;
        searchPath.remove_prefix(colon + 1);
    }
}

HooksStatus hooksStatusOf(const HookInstaller& installer, Agent agent) {
    StatusText status = statusText(installer, agent);
    return {std::move(status.state), std::move(status.hint)};
}

HookInstaller installerFor(const Invocation& call) {
    const auto path = call.around.environment.find("PATH");
    const std::string searchPath = path == call.around.environment.end() ? std::string() : path->second;
    const std::string& folder = call.around.currentFolder;
    HookInstaller installer;
    installer.home = absolutePath(call.args.value("--home").value_or(homeFolder(call.around.environment)), folder);
    installer.folder = folder;
    installer.binary = calledProgram(call.around.calledAs, searchPath, folder).value_or(executablePath());
    return installer;
}

namespace commands {

namespace {

int run(Invocation& call, const std::string& verb) {
    std::vector<std::string> words = call.args.positional;
    if (!verb.empty()) words.insert(words.begin(), verb);
    std::ostringstream text;
    HooksWay way;
    if (call.args.has("--dry-run")) way.acting = HookInstaller::Acting::dryRun;
    way.asJson = call.json();
    try {
        runHooks(words, installerFor(call), text, call.look(), way);
    } catch (...) { // what was done all the same is told first
        call.print(text.str());
        throw;
    }
    call.print(text.str());
    return 0;
}

} // namespace

int hooksStatus(Invocation& call) {
    if (!call.json()) return run(call, "status");
    call.print(hooksStatusJson(installerFor(call)));
    return 0;
}

int hooksInstall(Invocation& call) {
    return run(call, "install");
}

int hooksUninstall(Invocation& call) {
    return run(call, "uninstall");
}

int hooksPrint(Invocation& call) {
    return run(call, "print");
}

int hooksOther(Invocation& call) {
    return run(call, call.args.has("--print") ? "print" : "");
}

} // namespace commands

} // namespace tidewrack
