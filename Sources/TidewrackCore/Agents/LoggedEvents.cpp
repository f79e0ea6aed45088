#include "Agents/LoggedEvents.hpp"

#include "Timeline/LoggedHook.hpp"

namespace tidewrack {

LoggedEvents loggedEvents(std::string_view log) {
    LoggedEvents result;
    for (const LoggedLine& line : loggedLines(log)) {
        const LoggedEvent event{line.time, std::string(line.agent), std::string(line.event), std::string(line.message)};
        result.latest[event.agent] = event;
        if (event.isFailure()) result.failures.push_back(event);
    }
    return result;
}

} // namespace tidewrack
