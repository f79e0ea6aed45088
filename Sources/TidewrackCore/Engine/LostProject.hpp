#pragma once
// Projects whose folder was renamed or moved away.

#include "Store/Store.hpp"

#include <optional>
#include <string>

namespace tidewrack {

// The project that is not where it was, and that the folder looks like: most of what its newest snapshot lists is here.
// Of several the one with the most. What can't be read is passed over.
[[nodiscard]] std::optional<Project> lostProjectLike(const Store& store, const std::string& folder);

// Throws TidewrackError refused where the history of `project` can't become that of the folder `root`: its own folder
// is still there, `root` is none, has a history of its own, or is unsuitable.
void refuseMove(const Store& store, const Project& project, const std::string& root);

} // namespace tidewrack
