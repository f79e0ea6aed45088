#include "Agents/LoggedEvents.hpp"

#include <optional>

namespace tidewrack {

namespace {

std::string_view nextWord(std::string_view& rest) {
    const std::size_t end = rest.find(' ');
    const std::string_view word = rest.substr(0, end);
    rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    return word;
}

std::optional<LoggedEvent> readLine(std::string_view line) {
    LoggedEvent event;
    const auto time = parseIsoDate(nextWord(line));
    if (!time) return std::nullopt;
    event.time = *time;
    event.agent = nextWord(line);
    event.event = nextWord(line);
    (void)nextWord(line); // how long it took
    event.message = line;
    return event;
}

} // namespace

LoggedEvents loggedEvents(std::string_view log) {
    LoggedEvents result;
    for (std::size_t end = log.find('\n'); end != log.npos; end = log.find('\n')) {
        if (const auto event = readLine(log.substr(0, end))) {
            result.latest[event->agent] = *event;
            if (event->isFailure()) result.failures.push_back(*event);
        }
        log.remove_prefix(end + 1);
    }
    return result;
}

} // namespace tidewrack
