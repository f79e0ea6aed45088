#pragma once
// Failures that no errno value stands for, and those that several do.

#include <cerrno>

namespace tidewrack {

// Operations that return errno values return these as well where they say so; errorText() has words for them.
enum OwnError : int { pastDeadline = -1, keptChanging = -2 };

// For want of room on a volume, or within a user's share of it.
[[nodiscard]] inline bool isOutOfRoom(int error) {
    return error == ENOSPC || error == EDQUOT;
}

} // namespace tidewrack
