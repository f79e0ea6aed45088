#pragma once
// What is said of paths that a snapshot does not have.

#include "Store/Manifest.hpp"
#include "Store/Store.hpp"

#include <string>

namespace tidewrack {

class Invocation;

namespace commands {

// What may help whoever wrote `word` for a path that the listing lacks: "; did you mean ...?", that patterns mean
// nothing, or nothing.
[[nodiscard]] std::string adviceOn(const Invocation& call, const Project& project, const Manifest& manifest,
                                   const std::string& word);

} // namespace commands

} // namespace tidewrack
