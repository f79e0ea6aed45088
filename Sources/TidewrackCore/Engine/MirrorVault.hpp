#pragma once
// The vault gets into a mirror, an entry at a time: its copies, then its record.

#include "Engine/MirrorFiles.hpp"
#include "Store/MirrorNotes.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace tidewrack {

class MirrorVault {
  public:
    MirrorVault(const std::string& home, const std::string& folder, MirrorNote& note, MirrorFiles& files);

    // The entries that are in the mirror alone and were not there when it was last written.
    [[nodiscard]] std::vector<std::string> ownEntries() const;
    // Notes what the mirror is about to get. Whether that is more or less than was noted.
    [[nodiscard]] bool announce();
    // What can't be read or written is warned of, and its entry is not there.
    void bring();

    std::int64_t added = 0;
    std::int64_t removed = 0;

  private:
    [[nodiscard]] FilesOfManyNames knownNames() const;
    void addNames(const std::string& from, const std::string& to, FilesOfManyNames& names) const;
    [[nodiscard]] bool bringCopies(const std::string& id, FilesOfManyNames& names);

    std::string from_;
    std::string to_;
    MirrorNote& note_;
    MirrorFiles& files_;
    std::vector<std::string> entries_; // that are whole, ascending; ids begin with their time
};

} // namespace tidewrack
