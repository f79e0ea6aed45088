#include "Commands/Hook.hpp"

#include "Agents/HookHandler.hpp"
#include "Engine/Trace.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tidewrack {

namespace {

// Far more than an event with a long prompt takes. What is longer is read to its end, so that the agent can finish
// writing, but not kept: cut short it is no JSON and gets the answer to unreadable input.
constexpr std::size_t longestEvent = std::size_t{32} << 20;

std::string readEvent(int input) {
    std::string event;
    char piece[65536];
    while (true) {
        const ssize_t count = ::read(input, piece, sizeof piece);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return event;
        const auto room = longestEvent - event.size();
        event.append(piece, std::min(room, static_cast<std::size_t>(count)));
    }
}

} // namespace

HookOutput runHook(const std::vector<std::string>& words, const Surroundings& around) {
    TerminationDelayed delayed; // some clients end the hook of a turn's end before it has read what it is about
    const auto agent = words.empty() ? std::nullopt : agentNamed(words[0]);
    if (!agent) throw CliError("usage: tidewrack hook claude|codex|cursor|gemini");
    Trace::silence();
    const std::string event = readEvent(around.input);
    try {
        const HookHandler handler(Store::fromEnvironment(around.environment), around.environment,
                                  homeFolder(around.environment));
        return handler.handle(*agent, event, around.currentFolder, &delayed);
    } catch (const std::exception&) { // no home folder: there is no store, and no log to tell it to
        return {};
    }
}

} // namespace tidewrack
