#pragma once
// Replacing and removing a file or link without loss. Another program may write to it right after a check. So it is
// renamed to a temporary name in one step and checked once more there; what has changed gets its name back.

#include "Engine/PathOutcome.hpp"
#include "Engine/Temporaries.hpp"
#include "Platform/Copies.hpp"

namespace tidewrack {

// Puts the finished new file `made` into the place of the old one, which is `recorded`; `wanted` describes the new one.
// Nothing is left at `made` afterwards, but for somebody's file that could not be put back.
[[nodiscard]] Obstacle replaceUnchanged(Temporaries& names, Place made, Place place, const Entry& recorded,
                                        const Entry& wanted);
// Puts `made` where nothing stands. A new name never takes the place of what somebody puts there at the last moment, as
// a rename would. Nothing is left at `made`.
[[nodiscard]] Obstacle putIntoGap(Temporaries& names, Place made, Place place);
// Removes what is `recorded`. ENOENT when somebody was faster.
[[nodiscard]] Obstacle removeUnchanged(Temporaries& names, Place place, const Entry& recorded);

// Whether a file or link has the size and time that it was written with. Volumes cut times down to what they keep; a
// change would have a later one.
[[nodiscard]] bool isAsWritten(const Attributes& attributes, const Entry& wanted);

} // namespace tidewrack
