// The history as tools for an agent.

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Mcp/Server.hpp"

namespace tidewrack::commands {

int mcp(Invocation& call) {
    Surroundings served = call.around;
    if (const auto folder = call.args.value("--project")) {
        if (folder->empty()) throw CliError("--project needs a value"); // a script's unset variable
        served.currentFolder = call.absolute(*folder);
    }
    tidewrack::mcp::Server(served, call.args.has("--write")).serve();
    return 0;
}

} // namespace tidewrack::commands
