#pragma once
// One project's exclusive lock between processes.

#include "Platform/Deadline.hpp"
#include "Platform/Descriptor.hpp"

#include <string>

namespace tidewrack {

// Holds an exclusive flock on the project's "lock" file until destroyed; the kernel releases it when the process
// dies. Not re-entrant: taking it twice in one process waits for ever. Operations that must run under it take one
// as a parameter.
class [[nodiscard]] ProjectLock {
  public:
    // Waits as long as it takes, or until the deadline. Throws TidewrackError io "can't open lock <path>" or
    // "can't lock <path>", the latter with the reason when another process held it until the deadline.
    [[nodiscard]] explicit ProjectLock(const std::string& path, const Deadline& deadline = std::nullopt);
    ProjectLock(const ProjectLock&) = delete;
    ProjectLock& operator=(const ProjectLock&) = delete;
    ~ProjectLock();

    // Whether nobody holds it at this moment.
    [[nodiscard]] static bool isFree(const std::string& path);

  private:
    Descriptor fd_;
};

} // namespace tidewrack
