#pragma once
// Failures that no errno value stands for.

namespace tidewrack {

// Operations that return errno values return these as well where they say so; errorText() has words for them.
enum OwnError : int { pastDeadline = -1, keptChanging = -2 };

} // namespace tidewrack
