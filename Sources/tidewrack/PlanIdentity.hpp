#pragma once
// Whether what was told about a change is still what would be done.

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace tidewrack {

// Stays the same as long as the command `words` would do what its dry run told, as JSON, and nobody has changed a path
// that it would touch. `root` is the folder that the told paths are relative to.
[[nodiscard]] std::string planIdentity(const std::vector<std::string>& words, nlohmann::json told,
                                       const std::string& root);

} // namespace tidewrack
