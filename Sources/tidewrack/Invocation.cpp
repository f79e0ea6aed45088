#include "Invocation.hpp"

#include "Platform/Process.hpp"
#include "Support/Errors.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

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
    const std::string path = absolute(folder ? *folder : args.value("--project").value_or(around.currentFolder));
    auto found = store().projectContaining(path);
    if (!found) throw TidewrackError::notTracked(path);
    return *found;
}

bool Invocation::colour() const {
    const auto off = around.environment.find("NO_COLOR");
    return around.out.isTerminal() && (off == around.environment.end() || off->second.empty());
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
    for (const std::string& warning : warnings) around.err.line("warning: " + repairedUtf8(warning));
}

} // namespace tidewrack
