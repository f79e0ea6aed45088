#pragma once
// Which folders are taken into the registry.

#include "Store/Store.hpp"

#include <cstdint>
#include <string>

namespace tidewrack {

inline constexpr std::int64_t maxTrackedEntries = 250000;

// Whether a folder holds more than one project: the system's folders, the user's home and its largest parts.
[[nodiscard]] bool isTooBroad(const Store& store, const std::string& path);

// What is waited for when a folder is tracked without being asked for.
struct TrackPatience {
    Deadline lock;
    Deadline count; // of the files
};

// Throws TidewrackError refused where a folder can have no history, not even by force.
void refuseUnsuitable(const Store& store, const std::string& path);

// Registers a folder. Throws TidewrackError io or refused in the user's words. An already tracked folder comes back
// unchanged. With `patience`, that a folder has too many files is noted in the store: for a day, or for a few minutes
// where they could not all be counted.
Project track(const Store& store, const std::string& path, bool force, const TrackPatience& patience = {});

// Whether such a note holds, so that the files need not be counted anew.
[[nodiscard]] bool wasRefusedLately(const Store& store, const std::string& path);

} // namespace tidewrack
