#pragma once
// Copying many contents side by side.

#include "Engine/FolderBelow.hpp"
#include "Platform/Copies.hpp"

#include <cstddef>
#include <functional>
#include <vector>

namespace tidewrack {

// What one worker keeps between its jobs.
struct CloneWorker {
    FolderBelow project; // the project's folder, as this worker has it open
    CopyMemory memory;
};

// Runs `clone(job, worker)` for every job and returns its results: one errno value per job, in order. From 64 jobs on
// `threads` workers share them in contiguous slices; each writes its own results only. `root` is the open project
// folder.
[[nodiscard]] std::vector<int> cloneAll(std::size_t jobs, std::size_t threads, int root,
                                        const std::function<int(std::size_t, CloneWorker&)>& clone);

} // namespace tidewrack
