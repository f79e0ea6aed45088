#pragma once
// The words in which a command is put to the user.

#include "Agents/SaveBefore.hpp"
#include "Shell/Decision.hpp"

#include <string>

namespace tidewrack {

// The question as it stands after saving: what the guard's reason promises must be true, and what can't be saved is
// said. The verdict has no reason where that alone is the reason.
[[nodiscard]] std::string question(const shell::Verdict& verdict, const SavedBefore& saved);

} // namespace tidewrack
