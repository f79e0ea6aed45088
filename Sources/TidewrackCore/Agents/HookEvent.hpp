#pragma once
// What one hook event of a coding agent means. Pure: no file, no clock, no store.

#include "Agents/Agent.hpp"
#include "Shell/Decision.hpp"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct HookEvent {
    enum class Kind {
        prompt,  // the user submitted a prompt; a turn begins
        shell,   // the agent is about to run a shell command
        stop,    // the agent finished its turn, was interrupted, or is left
        edit,    // the agent is about to write, move or delete files with a tool of its own
        discard, // the agent is about to throw away the work tree that it works in
        other,   // nothing of concern
    };

    Kind kind = Kind::other;
    std::string name; // the agent's own event name; empty when absent
    std::string cwd;  // the folder the agent works in; for a shell event the one its command starts in
    std::optional<std::string> prompt;
    std::optional<std::string> command;              // only for `shell`
    std::vector<std::string> paths;                  // only for `edit`: the files, absolute, in the event's order
    shell::FileAct fileAct = shell::FileAct::writes; // only for `edit`
    bool interrupted = false;                        // only for `stop`
    bool endsSession = false;                        // only for `stop`: the turn may have ended before
    std::optional<std::string> session;
    std::optional<std::string> turn;

    bool operator==(const HookEvent&) const = default;
};

// Reads the decoded top-level object of one event. Never fails: what is missing or of another type than
// expected counts as absent, and an event without a folder gets `fallbackCwd`. `home`: the user's home folder.
[[nodiscard]] HookEvent parseHookEvent(Agent agent, const nlohmann::json& object, std::string_view fallbackCwd,
                                       std::string_view home);

// The command in a tool's input: its "command" as text, or as an array of texts joined with one space, each so quoted
// that a shell would take it for one word. `toolInput` may be null or no object.
enum class CommandWords { quoted, plain };
[[nodiscard]] std::optional<std::string> shellCommand(const nlohmann::json* toolInput,
                                                      CommandWords words = CommandWords::quoted);

} // namespace tidewrack
