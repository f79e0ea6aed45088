#pragma once
// Copying one content into the history so that it is what its entry says.

#include "Engine/CloneAll.hpp"
#include "Store/Manifest.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace tidewrack {

struct KeepJob {
    ManifestBuilder::Handle item;
    std::string blob;
    Entry entry; // as walked; as copied, once it was
    bool tooLarge = false;
    bool growing = false; // it got longer while it was copied
    KeepFailure failure;
    std::string earlier{};  // a blob kept before that may hold the same; empty: there is none
    bool isEarlier = false; // it is, and nothing was copied
};

// When a file changes while it is copied it is copied again, with fresh attributes.
class Keeper {
  public:
    // `folder`: the open content folder, which takes each job's blob under its last component.
    Keeper(int folder, std::int64_t maxFileSize) : folder_(folder), maxFileSize_(maxFileSize) {}

    // Tells in the job how it went.
    void keep(KeepJob& job, std::string_view path, CloneWorker& worker) const;

  private:
    KeepFailure tryToKeep(KeepJob& job, std::string_view path, CloneWorker& worker) const;
    KeepFailure keepFile(KeepJob& job, Place source, Place target, CloneWorker& worker, bool& consistent) const;

    int folder_;
    std::int64_t maxFileSize_;
};

} // namespace tidewrack
