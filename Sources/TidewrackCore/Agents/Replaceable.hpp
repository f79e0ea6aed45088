#pragma once
// What nobody needs to be asked about: it was never meant to stay, or the next build or download makes it anew.

#include "Store/Store.hpp"

#include <string>

namespace tidewrack {

// Whether the path lies in a folder for temporary things or, by the folder's name, in a cache or among packages and
// build products. What lies in the folder `lasting`, the user's home or a tracked project, is so by such a name only.
[[nodiscard]] bool isReplaceable(const std::string& path, const Environment& environment, const std::string& lasting);

} // namespace tidewrack
