#pragma once
// What commands print that print the same whenever they run: pwd, dirname, which.

#include "Shell/Effects.hpp"

#include <optional>
#include <span>
#include <string>

namespace tidewrack::shell {

// What a command of these words prints in the folder `folder`, without the line's end; none where only running would
// show. `words` is not empty.
[[nodiscard]] std::optional<std::string> printedBy(std::span<const std::string> words, const std::string& folder,
                                                   Effects& effects);

} // namespace tidewrack::shell
