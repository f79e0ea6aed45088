#pragma once
// What became of a vault entry that was put back, in words.

#include "Vault/Vault.hpp"

#include <string>
#include <vector>

namespace tidewrack {

// Why a path is not in an entry, in words.
[[nodiscard]] std::string reasonText(NotSaved reason);

// Of a path that has its name back.
[[nodiscard]] std::string givenBackText(const std::string& path);
// What was done and what failed, one sentence without a full stop each.
[[nodiscard]] std::vector<std::string> messagesOf(const VaultRestored& result);
// How to use git's own state that was put beside the live one: a look at the ref logs, a branch of it, its removal.
[[nodiscard]] std::vector<std::string> gitStateCommands(const VaultRestored& result);
// Why an item is not back; empty when it is.
[[nodiscard]] std::string failureText(const RestoredItem& item);
// One for each part of a folder that could not be copied.
[[nodiscard]] std::vector<std::string> missingTexts(const RestoredItem& item);

} // namespace tidewrack
