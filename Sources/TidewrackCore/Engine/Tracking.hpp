#pragma once
// Which folders are taken into the registry.

#include "Store/Store.hpp"

#include <cstdint>
#include <string>

namespace tidewrack {

inline constexpr std::int64_t maxTrackedEntries = 250000;

// Whether a folder holds more than one project: the system's folders, the user's home and its largest parts.
[[nodiscard]] bool isTooBroad(const Store& store, const std::string& path);

// Registers a folder. Throws TidewrackError io or refused in the user's words. An already tracked folder comes back
// unchanged.
Project track(const Store& store, const std::string& path, bool force);

} // namespace tidewrack
