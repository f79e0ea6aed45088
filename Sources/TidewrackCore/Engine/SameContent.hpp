#pragma once
// Whether two files hold the same bytes, or two links lead to the same place.

#include "Platform/Copies.hpp"

#include <string>

namespace tidewrack {

// Of two regular files; false as well when one of them can't be read to its end. No link is followed.
[[nodiscard]] bool sameContent(Place a, Place b);
[[nodiscard]] bool sameContent(const std::string& a, const std::string& b);
// Of two links by their texts; false as well when one of them is none.
[[nodiscard]] bool sameLink(Place a, Place b);
[[nodiscard]] bool sameLink(const std::string& a, const std::string& b);

} // namespace tidewrack
