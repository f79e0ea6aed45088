#pragma once
// Bringing many copies to the disk while further ones are still being made.

#include "Platform/Flush.hpp"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace tidewrack {

// From construction to destruction a thread flushes the volume over and over as soon as some of the pending copies are
// left to such a flush. The one that must follow at the end then has little to wait for: of a first snapshot's copies
// it would wait two thirds as long as they take. What goes wrong is told by that last flush.
class FlushAlongside {
  public:
    // `folder`: an open folder on the volume; it and `pending` must outlive this.
    FlushAlongside(int folder, const PendingWrites& pending);
    FlushAlongside(const FlushAlongside&) = delete;
    FlushAlongside& operator=(const FlushAlongside&) = delete;
    ~FlushAlongside();

  private:
    void run();

    const int folder_;
    const PendingWrites& pending_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace tidewrack
