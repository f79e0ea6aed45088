#pragma once
// What turns did outside of the project that is asked about.

#include "Store/Store.hpp"
#include "Timeline/Timeline.hpp"

#include <vector>

namespace tidewrack {

// Adds to each turn the other projects that it worked in, and the vault entries that were made in it: those that bear
// its session, else those made while it was the only turn of its agent at work here. What cannot be read is passed
// over.
void addElsewhere(const Store& store, const Project& project, std::vector<TimelineRow>& rows);

// What the log of the hooks holds; empty where it cannot be read.
[[nodiscard]] std::vector<LoggedHook> readLoggedHooks(const Store& store);

} // namespace tidewrack
