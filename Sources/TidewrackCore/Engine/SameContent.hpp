#pragma once
// Whether two files hold the same bytes.

#include "Platform/Copies.hpp"

namespace tidewrack {

// Of two regular files; false as well when one of them can't be read to its end. No link is followed.
[[nodiscard]] bool sameContent(Place a, Place b);

} // namespace tidewrack
