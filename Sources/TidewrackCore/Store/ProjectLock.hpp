#pragma once
// One project's exclusive lock between processes.

#include "Platform/Descriptor.hpp"

#include <string>

namespace tidewrack {

// Holds an exclusive flock on the project's "lock" file until destroyed; the kernel releases it when the process
// dies. Not re-entrant: taking it twice in one process waits for ever. Operations that must run under it take one
// as a parameter.
class [[nodiscard]] ProjectLock {
  public:
    // Waits as long as it takes. Throws TidewrackError io "can't open lock <path>" or "can't lock <path>".
    [[nodiscard]] explicit ProjectLock(const std::string& path);
    ProjectLock(const ProjectLock&) = delete;
    ProjectLock& operator=(const ProjectLock&) = delete;
    ~ProjectLock();

  private:
    Descriptor fd_;
};

} // namespace tidewrack
