// Copies of contents, by two threads.
#pragma once

#include "Listing.hpp"

namespace limits {

/// One content to copy, from and to full paths. `temporary`, when not empty, is where it is written first.
struct CopyJob {
    std::string source;
    std::string destination;
    std::string temporary;
    char kind = 'f';
    uint16_t mode = 0;
    int64_t mtime = 0;
    Item* written = nullptr; // when set: takes the attributes of what was written
};

/// Clones where the volume can, else copies. Throws std::system_error at the first failure.
void copyAll(const std::vector<CopyJob>& jobs);

} // namespace limits
