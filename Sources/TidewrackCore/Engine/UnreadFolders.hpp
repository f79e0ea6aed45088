#pragma once
// What becomes of places that a walk could not read: the listing keeps what the previous one knows of them, for a
// folder that can't be opened for a moment must not be recorded as empty.

#include "Store/Manifest.hpp"
#include "Walk/Walker.hpp"

#include <string>
#include <vector>

namespace tidewrack {

// Adds what `previous` lists at and below the unread places to the listing that is built upon it, as far as the walk
// has not added it. What may not be read is passed over: whoever has no right to a folder has nothing of it kept.
void keepUnread(const std::vector<Walker::Unread>& unread, const Manifest& previous, ManifestBuilder& builder);

// One warning per folder, and one where git was too slow.
[[nodiscard]] std::vector<std::string> warningsOf(const Walker& walker);

} // namespace tidewrack
