#pragma once
// `tidewrack vault`: lists what the vault holds and puts an entry back.

#include "Vault/Vault.hpp"

#include <string>
#include <vector>

namespace tidewrack {

// Runs `tidewrack vault WORDS...` and returns its output. Throws CliError for wrong words, TidewrackError when there
// is no such entry.
[[nodiscard]] std::string runVault(const std::vector<std::string>& words, const Vault& vault, Date now);

// All entries as a JSON list, newest first.
[[nodiscard]] std::string vaultJson(const Vault& vault);

} // namespace tidewrack
