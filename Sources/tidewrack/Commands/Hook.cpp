// Answers one event of an agent, read from standard input.

#include "Agents/HookHandler.hpp"
#include "Agents/InstalledPlugin.hpp"
#include "Commands/Commands.hpp"
#include "Commands/Hooks.hpp"
#include "Engine/Trace.hpp"
#include "Invocation.hpp"
#include "Platform/Process.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace tidewrack::commands {

namespace {

// Far more than an event with a long prompt takes. What is longer is read to its end, so that the agent can finish
// writing, but not kept: cut short it is no JSON and gets the answer to unreadable input.
constexpr std::size_t longestEvent = std::size_t{32} << 20;

// Two seconds less than agents wait for an answer.
constexpr auto patienceOfAgents = std::chrono::seconds(28);

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

HookOutput answer(Agent agent, const Surroundings& around, TerminationDelayed& delayed) {
    Trace::silence();
    const std::string event = readEvent(around.input);
    try {
        HookHandler handler(Store::fromEnvironment(around.environment), around.environment,
                            homeFolder(around.environment));
        handler.patience = patienceOfAgents;
        return handler.handle(agent, event, around.currentFolder, &delayed);
    } catch (const std::exception&) { // no home folder: there is no store, and no log to tell it to
        return {};
    }
}

} // namespace

int hook(Invocation& call) {
    TerminationDelayed delayed; // some clients end the hook of a turn's end before it has read what it is about
    const auto agent = agentNamed(call.args.word(0).value_or(""));
    if (!agent) throw CliError("usage: tidewrack hook claude|codex|cursor|gemini");
    if (call.args.has("--plugin") && ownHooksRun(installerFor(call), *agent)) {
        (void)readEvent(call.around.input); // the agent can finish writing
        return 0;
    }
    const HookOutput reply = answer(*agent, call.around, delayed);
    if (reply.standardOutput) call.around.out.line(*reply.standardOutput);
    if (reply.standardError) call.around.err.line(*reply.standardError);
    return reply.exitCode;
}

} // namespace tidewrack::commands
