#pragma once
// What each of our programs does before anything else.

#include "Store/Store.hpp"

namespace tidewrack {

// Opens what is closed of the standard streams, and lets a write past a limit on the size of files fail in place of
// ending the process in the middle of its work.
void prepareProcess();

[[nodiscard]] Environment environmentOfProcess();

} // namespace tidewrack
