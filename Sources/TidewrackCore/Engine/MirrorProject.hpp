#pragma once
// One project's history gets into a mirror: contents, listings, records; and out of it in the order in which a prune
// removes.

#include "Engine/MirrorFiles.hpp"
#include "Store/History.hpp"
#include "Store/MirrorNotes.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tidewrack {

// The names of the folders that can be histories, in the store or the mirror at `home`.
[[nodiscard]] std::vector<std::string> projectsIn(const std::string& home);

// Removes from the mirror's folder `to` what is not in `from`, in folders that both have as well.
void removeMissing(MirrorFiles& files, const std::string& from, const std::string& to);

class MirrorProject {
  public:
    // What all projects of one run share.
    struct Run {
        MirrorNote& note;
        MirrorFiles& files;
        bool dryRun = false;
    };

    MirrorProject(const std::string& home, const std::string& folder, const std::string& id, const Run& run);

    // The numbers of snapshots that are in the mirror alone and were not there when it was last written.
    [[nodiscard]] std::vector<std::int64_t> ownSnapshots() const;
    // Throws TidewrackError io and refused; what was recorded in the mirror before then is still there.
    void bring();
    // Takes the history out of the mirror.
    void removeAll();

    std::int64_t snapshots = 0;
    std::int64_t added = 0;
    std::int64_t removed = 0;

  private:
    struct Record {
        std::string name;
        std::string text;
        std::int64_t mtime = 0;
        bool isNew = false;
    };
    // A folder of contents as it was when it was compared.
    struct Compared {
        Attributes seen;
        std::vector<std::string> missing; // names that only the mirror has
    };

    void refuseOwn() const;
    void announce();
    void bringContents(bool all);
    void compareContents(const std::string& name, bool all);
    void bringListings();
    void readRecords();
    void writeRecords();
    void removeRecords();
    void removeRest();
    [[nodiscard]] std::string createdOf(const History& history) const;

    std::string id_;
    History from_;
    History to_;
    Run run_;
    MirroredProject& noted_;
    std::int64_t complete_ = 0; // contents up to this number were mirrored whole
    std::map<std::string, Compared> contents_;
    std::vector<Record> records_;
    std::vector<std::string> oldRecords_;
    std::vector<std::string> oldListings_;
};

} // namespace tidewrack
