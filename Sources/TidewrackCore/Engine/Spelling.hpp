#pragma once
// What a path that a user typed means on a volume that takes several spellings for one name.

#include "Store/Manifest.hpp"

#include <initializer_list>
#include <string>
#include <vector>

namespace tidewrack {

// Every path in all the spellings that the listings have for it: those that differ from it in case or in how their
// characters are composed. A path without any stays as it is.
[[nodiscard]] std::vector<std::string> asListed(const std::vector<std::string>& paths,
                                                std::initializer_list<const Manifest*> listings);

} // namespace tidewrack
