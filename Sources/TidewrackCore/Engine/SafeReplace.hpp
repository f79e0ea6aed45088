#pragma once
// Replacing and removing a file or link without loss. Another program may write to it right after a check. So it is
// renamed to a temporary name in one step and checked once more there. What has changed gets its name back or, where
// another program has used that name by then, a name beside it: it may be the only copy.

#include "Engine/PathOutcome.hpp"
#include "Engine/Temporaries.hpp"
#include "Platform/Copies.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace tidewrack {

// Replaces the old file, which is `recorded`, by the finished new file `made`. Nothing is left at `made` afterwards.
// The obstacle's `detail` names a version that had changed and could not get its own name back.
[[nodiscard]] Obstacle replaceUnchanged(Temporaries& names, Place made, Place place, const Entry& recorded);
// Puts `made` where nothing is. It never replaces what another program puts there at the last moment. Nothing is left
// at `made`.
[[nodiscard]] Obstacle putIntoGap(Temporaries& names, Place made, Place place);
// Gives what is `recorded` a temporary name, `name`; it is removed where there is no room even for that, and `name`
// stays empty. ENOENT when another program was faster; `detail` as above. The second removes it at once.
[[nodiscard]] Obstacle moveUnchanged(Temporaries& names, Place place, const Entry& recorded, std::string& name);
[[nodiscard]] Obstacle removeUnchanged(Temporaries& names, Place place, const Entry& recorded);
// Removes what the first one moved `aside`, unless somebody who has it open wrote to it meanwhile.
[[nodiscard]] Obstacle removeMoved(Temporaries& names, Place aside, Place place, const Entry& recorded);

// Gives a file another name. Returns an errno value: EEXIST when the name is taken. `bothNames` is set where the volume
// can only add a second name and the first one could not be removed afterwards.
[[nodiscard]] int giveName(Place from, Place to, bool& bothNames);
// "<name>.tidewrack-<number>", with the name cut to what the folder's volume takes.
[[nodiscard]] std::string numberedName(int folder, std::string_view name, std::int64_t number);
// Gives a file with a temporary name the first such name that is free in its folder, so that people find it. Returns
// that name; empty on failure.
[[nodiscard]] std::string giveFreeName(Place aside, std::string_view name, bool& bothNames);

} // namespace tidewrack
