#pragma once
// A second copy of the whole store in another folder, which can take the store's place. docs/mirror.md tells what it
// promises.

#include "Engine/MirrorFiles.hpp"
#include "Store/Store.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tidewrack {

struct MirrorResult {
    std::string folder; // canonical
    std::int64_t projects = 0;
    std::int64_t snapshots = 0; // in the mirror from now on
    std::int64_t addedSnapshots = 0;
    std::int64_t removedSnapshots = 0;
    std::int64_t addedEntries = 0; // of the vault
    std::int64_t removedEntries = 0;
    MirrorCounts counts;
    std::vector<std::string> warnings; // what could not be read or written; the rest is there
    std::vector<std::string> failures; // why what can be read is not there
};

// Makes the folder a mirror of the store, or brings it up to date. Each project is taken under its lock, which is held
// while names are compared and what is new since a moment ago is copied. At any instant the folder is a store in which
// every record has what it names. Throws TidewrackError refused where the folder is none for it or has something of its
// own, io and corrupt. A dry run takes no lock and changes nothing.
using MirrorProgress = std::function<void(const char* what, std::size_t count)>;
MirrorResult mirrorStore(const Store& store, const std::string& folder, bool dryRun, const MirrorProgress& progress);

} // namespace tidewrack
