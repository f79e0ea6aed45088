#include "Progress.hpp"

#include "Platform/Process.hpp"

namespace tidewrack {

void ProgressLine::show(const char* what, std::size_t count) {
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock) return; // another thread is just showing one
    const auto time = std::chrono::steady_clock::now();
    if (time < next_) return;
    next_ = time + std::chrono::milliseconds(100);
    shown_ = true;
    (void)writeAll(STDERR_FILENO, "\r\x1b[K" + std::to_string(count) + " files " + what);
}

void ProgressLine::wipe() {
    const std::lock_guard lock(mutex_);
    if (shown_) (void)writeAll(STDERR_FILENO, "\r\x1b[K");
    shown_ = false;
}

} // namespace tidewrack
