#pragma once
// What is said of paths that a snapshot does not have.

#include "Store/Manifest.hpp"
#include "Store/Records.hpp"
#include "Store/Store.hpp"

#include <string>
#include <vector>

namespace tidewrack {

class Invocation;

namespace commands {

// What may help whoever wrote `word` for a path that the listing lacks: "; did you mean ...?", that patterns mean
// nothing, or nothing.
[[nodiscard]] std::string adviceOn(const Invocation& call, const Project& project, const Manifest& manifest,
                                   const std::string& word);

// Throws where a path, which is one of the words from `first` on, is neither in the folder nor in any snapshot: then it
// was written wrong, and nothing is to be done by halves. `records`: all of the history's.
void refuseNeverThere(Invocation& call, const Project& project, const std::vector<SnapshotMeta>& records,
                      const std::vector<std::string>& paths, std::size_t first);

} // namespace commands

} // namespace tidewrack
