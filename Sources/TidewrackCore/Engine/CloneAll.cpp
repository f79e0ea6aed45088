#include "Engine/CloneAll.hpp"

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>
#include <thread>

namespace tidewrack {

namespace {

constexpr std::size_t jobsForThreads = 64;

} // namespace

std::vector<int> cloneAll(std::size_t jobs, std::size_t threads, int root,
                          const std::function<int(std::size_t, CloneWorker&)>& clone) {
    std::vector<int> results(jobs, 0);
    const std::size_t workers = jobs >= jobsForThreads ? threads : 1;
    const std::size_t slice = (jobs + workers - 1) / workers;
    const auto run = [&](std::size_t i) {
        CloneWorker worker{FolderBelow(root), {}};
        for (std::size_t job = i * slice; job < std::min((i + 1) * slice, jobs); ++job) {
            try {
                results[job] = clone(job, worker);
            } catch (const std::bad_alloc&) {
                results[job] = ENOMEM;
            }
        }
    };
    std::vector<std::thread> pool;
    std::size_t next = 1;
    try {
        for (; next < workers; ++next) pool.emplace_back(run, next);
    } catch (const std::system_error&) {
        // No more threads could be started: this one does the rest.
    }
    run(0);
    for (; next < workers; ++next) run(next);
    for (std::thread& thread : pool) thread.join();
    return results;
}

} // namespace tidewrack
