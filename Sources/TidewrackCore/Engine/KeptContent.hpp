#pragma once
// A kept content put to a new place.

#include "Engine/PathOutcome.hpp"
#include "Platform/Copies.hpp"

namespace tidewrack {

// Writes a file or link whose content was kept, with its mode and times, to `to`, where nothing may stand. `blobs` is
// the open folder of the kept contents. A content that is not as large as it was is damaged, and written nowhere.
[[nodiscard]] Obstacle putKept(int blobs, const Entry& entry, Place to, CopyMemory& memory);

} // namespace tidewrack
