#pragma once
// What changes files is told first, and done only as it was told.

#include "Surroundings.hpp"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace tidewrack::mcp {

// Without a plan's identifier: what the command would do in the current folder, which is the project's root, and that
// plan's identifier. With one: does it, unless the plan would be another one by now, be it that other paths would be
// touched or that one of them was changed since.
[[nodiscard]] nlohmann::json planOrDo(const std::vector<std::string>& words, const std::string& plan,
                                      const Surroundings& around);

} // namespace tidewrack::mcp
