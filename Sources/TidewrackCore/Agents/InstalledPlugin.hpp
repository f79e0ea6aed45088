#pragma once
// This program's plugin for an agent (packaging/plugins), which brings the same hooks as an install does: what is done
// when both are there.

#include "Agents/Installer.hpp"

namespace tidewrack {

// Whether the agent's own configuration has the plugin switched on.
[[nodiscard]] bool hasPlugin(const HookInstaller& installer, Agent agent);

// Whether the hooks in the user's configuration run, for all that this version's are run for: then the plugin's leave
// everything to them, and nothing happens twice. False where that can't be told, since twice is better than not at all.
[[nodiscard]] bool ownHooksRun(const HookInstaller& installer, Agent agent);

} // namespace tidewrack
