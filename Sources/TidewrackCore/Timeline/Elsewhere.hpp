#pragma once
// What turns did outside of the project that is asked about.

#include "Store/Store.hpp"
#include "Timeline/Timeline.hpp"
#include "Vault/VaultEntry.hpp"

#include <vector>

namespace tidewrack {

// The vault's entries, newest first. What cannot be read is passed over, here and below.
[[nodiscard]] std::vector<VaultEntry> readVaultEntries(const Store& store);

// Adds to those turns of a project's timeline that are among `rows` those of the vault's entries that were made in
// them: those that bear its session, else those made while no other session of its agent was at work here.
void addVaultEntries(const std::vector<VaultEntry>& entries, const Project& project, const Timeline& timeline,
                     std::vector<TimelineRow>& rows);

// Adds these as well as the other projects that each turn worked in, and the commands that no snapshot of this project
// was taken for.
void addElsewhere(const Store& store, const Project& project, const Timeline& timeline, std::vector<TimelineRow>& rows);

// Those of the vault's entries that the rows name, newest first, that bring back what was outside of projects before
// them: not those of which everything is as it was saved, nor those that saved anew what an older one had saved.
[[nodiscard]] std::vector<VaultEntry> entriesToPutBack(const Store& store, const std::vector<VaultEntry>& all,
                                                       const std::vector<TimelineRow>& rows);

// What the log of the hooks holds; empty where it cannot be read.
[[nodiscard]] std::vector<LoggedHook> readLoggedHooks(const Store& store);

} // namespace tidewrack
