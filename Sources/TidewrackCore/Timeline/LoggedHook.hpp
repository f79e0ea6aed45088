#pragma once
// What the log of the hooks tells of one command. docs/store-format.md has the form of its lines.

#include "Support/Dates.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewrack {

struct LoggedHook {
    Date time{};
    std::string agent;
    std::string verdict;                                         // "allow", "ask" or "deny"
    std::string command;                                         // its beginning
    std::vector<std::pair<std::int64_t, std::string>> snapshots; // number and project root
    std::vector<std::string> vault;                              // ids of entries

    bool operator==(const LoggedHook&) const = default;
};

// The lines about commands, oldest first; all others are passed over, as is what cannot be read.
[[nodiscard]] std::vector<LoggedHook> loggedHooks(std::string_view log);

} // namespace tidewrack
