#pragma once
// One line on a terminal that tells how far a long command is.

#include "Engine/Engine.hpp"

#include <atomic>
#include <chrono>
#include <mutex>

namespace tidewrack {

// Writes to standard error, from the first second on and at most ten times a second; wiped when destroyed.
class ProgressLine {
  public:
    ProgressLine() : started_(std::chrono::steady_clock::now()), next_(started_ + std::chrono::seconds(1)) {}
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() { wipe(); }

    // May be called from several threads.
    void show(const char* what, std::size_t count);
    void wipe();

  private:
    std::mutex mutex_;
    std::chrono::steady_clock::time_point started_;
    std::chrono::steady_clock::time_point next_;
    bool shown_ = false;
};

} // namespace tidewrack
