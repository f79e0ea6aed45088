#pragma once
// An old state put somewhere else: into a folder of its own, or into an archive. Neither the project nor its history
// is touched.

#include "Engine/Engine.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct ExportResult {
    std::size_t files = 0;            // written, links included
    std::vector<PathOutcome> missing; // what should be there and is not, with the reason
    std::vector<std::string> leftOut; // folders that history leaves out, since git ignores them

    bool operator==(const ExportResult&) const = default;
};

// `paths`: relative to the root; none: all of the snapshot. Folders on the way to them come along.
// Throws TidewrackError refused "<path> isn't in snapshot #<seq>.", noSnapshot.

// `folder`, absolute, is made, or is empty. Throws TidewrackError refused when it is neither, or inside of a tracked
// project or the store: nothing is ever overwritten.
[[nodiscard]] ExportResult exportToFolder(const Engine& engine, const Project& project, std::int64_t seq,
                                          const std::vector<std::string>& paths, const std::string& folder);

// `write` gets a tar archive, and tells whether it can take more.
[[nodiscard]] ExportResult exportAsTar(const Engine& engine, const Project& project, std::int64_t seq,
                                       const std::vector<std::string>& paths,
                                       const std::function<bool(std::string_view)>& write);

} // namespace tidewrack
