// Finds commands and options in the table.

#include "CommandTable.hpp"

#include "CommandOptions.hpp"

#include <algorithm>

namespace tidewrack {

using namespace options;

namespace {

const Command* named(std::string_view name) {
    const auto table = commandTable();
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const Command& command) { return command.name == name; });
    return found == table.end() ? nullptr : &*found;
}

} // namespace

const Option* Command::option(std::string_view optionName) const {
    const auto found =
        std::find_if(options.begin(), options.end(), [&](const Option& option) { return option.name == optionName; });
    return found == options.end() ? nullptr : &*found;
}

const Command* commandOf(const std::vector<std::string>& words) {
    if (words.empty() || words[0].find(' ') != std::string::npos) return nullptr;
    if (words.size() > 1)
        if (const Command* command = named(words[0] + " " + words[1])) return command;
    return named(words[0]);
}

std::span<const Option> globalOptions() {
    return globals;
}

bool isGlobalOption(std::string_view optionName) {
    return std::any_of(std::begin(globals), std::end(globals),
                       [&](const Option& option) { return option.name == optionName; });
}

bool takesValue(std::string_view optionName) {
    if (!optionName.starts_with('-')) return false;
    for (const Option& option : globals)
        if (option.name == optionName) return option.takesValue();
    for (const Command& command : commandTable())
        if (const Option* option = command.option(optionName)) return option->takesValue();
    return false;
}

} // namespace tidewrack
