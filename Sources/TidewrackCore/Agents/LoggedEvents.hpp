#pragma once
// What the log of the hooks tells of their health.

#include "Support/Dates.hpp"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct LoggedEvent {
    Date time{};
    std::string agent;
    std::string event;
    std::string message;

    [[nodiscard]] bool isFailure() const { return message.starts_with("error: "); }
};

struct LoggedEvents {
    std::map<std::string, LoggedEvent> latest; // by agent
    std::vector<LoggedEvent> failures;         // oldest first
};

// Lines that cannot be read are passed over.
[[nodiscard]] LoggedEvents loggedEvents(std::string_view log);

} // namespace tidewrack
