#pragma once
// Looking over a store: whether what its records and listings name is there, can be read, and is as they say.
//
// Only reads, and takes no lock: what another command removes meanwhile is told from a damage by its record, which goes
// before all that the record needs.

#include "Engine/Engine.hpp"
#include "Store/Store.hpp"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace tidewrack {

struct Damage {
    enum class Part { project, record, listing, content, vaultRecord, vaultItem };
    enum class Fault {
        missing,
        unreadable, // `error` says why
        malformed,  // `detail` says how
        misplaced,  // a record that is another one's, or of no snapshot at all; `detail` names whose
        unrecorded, // a whole listing without a record
        badName,    // a listing names what can't be, in `detail`
        otherCount, // a listing has `is` files, and its record says `was`
        otherKind,  // not a file any more, or not a link
        otherSize,  // `is` bytes, and `was`
        otherMode,  // permission bits
        otherTime,  // of the latest change, nanoseconds since the epoch
    };

    Part part = Part::record;
    Fault fault = Fault::missing;
    std::string place; // relative to the store's folder
    std::string detail{};
    int error = 0; // an errno value
    std::int64_t is = 0;
    std::int64_t was = 0;
    // What it costs: whole snapshots, or these paths in them. Paths are relative to the project, those of a vault entry
    // absolute.
    std::vector<std::int64_t> snapshots{}; // ascending
    std::vector<std::string> paths{};
};

struct CheckedProject {
    std::string id;
    std::string root; // empty where its record doesn't tell
    std::int64_t snapshots = 0;
    std::int64_t listings = 0;
    std::int64_t contents = 0;
    std::int64_t bytes = 0; // of the contents
    std::vector<Damage> damages;
};

struct CheckedVault {
    std::int64_t entries = 0;
    std::int64_t items = 0;
    std::vector<Damage> damages;
};

// How closely contents are looked at: what the system tells of them, or also every byte of them, so that a disk that
// can't read one is noticed.
enum class CheckDepth { attributes, bytes };

// The names of the folders in which projects have, or had, their history; ascending.
[[nodiscard]] std::vector<std::string> projectFolders(const Store& store);
// A check by whoever holds the project's lock, and knows which contents are worth reading.
struct CheckUnderLock {
    const ProjectLock& lock;
    std::set<std::string> read; // places of contents, as in Damage
};
// `held`: of a check under the lock; every other one is `depth` alone. Throws TidewrackError only where the folders of
// the history can't be listed.
[[nodiscard]] CheckedProject checkProject(const Store& store, const std::string& id, CheckDepth depth,
                                          const Progress& progress = {}, const CheckUnderLock* held = nullptr);
[[nodiscard]] CheckedVault checkVault(const Store& store, CheckDepth depth);

} // namespace tidewrack
