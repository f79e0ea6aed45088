#pragma once
// What the log of the hooks tells. docs/store-format.md has the form of its lines.

#include "Support/Dates.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewrack {

// A command, and a text that may hold anything, such as a folder's path, in the form in which a line has it: nothing in
// it looks like an end of it.
[[nodiscard]] std::string loggedCommand(std::string_view command);
[[nodiscard]] std::string loggedText(std::string_view text);

struct LoggedLine {
    Date time{};
    std::string_view agent;
    std::string_view event;
    std::string_view message; // what comes behind the time that it took
};

// The lines of the log, oldest first; what cannot be read, or is cut off, is passed over. They refer to its text.
[[nodiscard]] std::vector<LoggedLine> loggedLines(std::string_view log);

// One command.
struct LoggedHook {
    Date time{};
    std::string agent;
    std::string verdict;                                         // "allow", "ask" or "deny"
    std::string command;                                         // its beginning, as loggedCommand() has it
    std::vector<std::pair<std::int64_t, std::string>> snapshots; // number and project root, as loggedText() has it
    std::vector<std::string> vault;                              // ids of entries

    bool operator==(const LoggedHook&) const = default;
};

// The lines about commands, oldest first; all others are passed over, as is what cannot be read.
[[nodiscard]] std::vector<LoggedHook> loggedHooks(std::string_view log);

} // namespace tidewrack
