#include "Invocation.hpp"

#include "Platform/Process.hpp"
#include "Support/Errors.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

namespace {

Look lookOf(const Surroundings& around) {
    const auto variable = [&](std::string_view name) {
        const auto found = around.environment.find(name);
        return found == around.environment.end() ? std::string() : found->second;
    };
    const bool terminal = around.out.isTerminal();
    return {terminal, terminal && variable("NO_COLOR").empty() && variable("TERM") != "dumb"};
}

} // namespace

Invocation::Invocation(const Command& called, Args words, Surroundings& surroundings)
    : command(called), args(std::move(words)), around(surroundings), look_(lookOf(surroundings)) {}

const Engine& Invocation::engine() {
    if (engine_) return *engine_;
    engine_.emplace(Store::fromEnvironment(around.environment));
    if (around.err.isTerminal())
        engine_->progress = [this](const char* what, std::size_t count) { progress_.show(what, count); };
    return *engine_;
}

std::string Invocation::absolute(const std::string& path) const {
    if (path.starts_with('/')) return path;
    if (around.currentFolder.empty())
        throw TidewrackError::io("Can't tell the current folder; it may have been deleted.");
    return absolutePath(path, around.currentFolder);
}

Project Invocation::project(const std::optional<std::string>& folder) {
    if (args.value("--project") == "") throw CliError("--project needs a value"); // a script's unset variable
    const std::string path = absolute(folder ? *folder : args.value("--project").value_or(around.currentFolder));
    auto found = store().projectContaining(path);
    if (!found) throw TidewrackError::notTracked(path);
    return *found;
}

void Invocation::print(std::string_view text) {
    progress_.wipe();
    around.out.write(text);
}

void Invocation::printJson(const nlohmann::json& value) {
    print(prettyJson(value, Slashes::escaped) + "\n");
}

void Invocation::warn(const std::vector<std::string>& warnings) {
    progress_.wipe();
    for (const std::string& warning : warnings) around.err.line("warning: " + around.err.shown(warning));
}

} // namespace tidewrack
