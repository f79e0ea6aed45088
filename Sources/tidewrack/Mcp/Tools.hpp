#pragma once
// What `tidewrack mcp` offers: each tool is a command of this program, whose words are made of the tool's arguments.

#include "Surroundings.hpp"

#include <nlohmann/json_fwd.hpp>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::mcp {

struct Tool {
    std::string_view name;
    std::string_view title;
    std::string_view description;
    std::string_view properties; // of its arguments, as JSON schema
    std::string_view required = "[]";
    bool changes = false; // offered with `--write` only, and asked for twice: first for the plan
    // The command, without --json. `arguments` fit the schema.
    std::vector<std::string> (*words)(const nlohmann::json& arguments) = nullptr;
};

[[nodiscard]] std::span<const Tool> toolTable();

// As `tools/list` gives it.
[[nodiscard]] nlohmann::json describe(const Tool& tool);

// What keeps the arguments from fitting the tool's schema, in one sentence; empty when they fit.
[[nodiscard]] std::string unfit(const Tool& tool, const nlohmann::json& arguments);

// Runs the tool's command in the root of a project and gives what `tools/call` answers: for what goes wrong the
// command's own words. `around` tells the environment and the folder that the project contains.
[[nodiscard]] nlohmann::json call(const Tool& tool, const nlohmann::json& arguments, const Surroundings& around);

} // namespace tidewrack::mcp
