// A second copy of the store.

#include "Engine/Mirror.hpp"
#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Reports/MirrorReport.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack::commands {

namespace {

constexpr int incomplete = 3; // the exit status when something that can be read is not in the mirror

} // namespace

int mirror(Invocation& call) {
    const auto word = call.args.word(0);
    if (!word || word->empty()) throw CliError("missing folder");
    const bool dryRun = call.args.has("--dry-run");
    const MirrorResult result = mirrorStore(call.store(), call.absolute(*word), dryRun, call.engine().progress);
    if (call.json())
        call.printJson(mirrorJson(result, dryRun));
    else
        call.print(mirrorText(result, dryRun, call.look()));
    call.warn(result.warnings);
    call.warn(result.failures);
    return result.failures.empty() ? 0 : incomplete;
}

} // namespace tidewrack::commands
