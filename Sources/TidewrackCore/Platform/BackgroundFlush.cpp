#include "Platform/Flush.hpp"

#include <chrono>
#include <system_error>

namespace tidewrack {

namespace {

constexpr auto betweenFlushes = std::chrono::milliseconds(100);

} // namespace

BackgroundFlush::BackgroundFlush(int fd, std::size_t copies, PendingWrites& pending) {
    if (copies <= mostWrittenOutOneByOne) return;
    pending.copies = mostWrittenOutOneByOne; // none of them is written out by itself
    try {
        thread_ = std::thread([this, fd, &pending] { work(fd, pending); });
    } catch (const std::system_error&) {
        // No thread could be started: flush() does all the work.
    }
}

BackgroundFlush::~BackgroundFlush() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        over_ = true;
    }
    wakeUp_.notify_one();
    thread_.join();
}

void BackgroundFlush::work(int fd, PendingWrites& pending) {
    std::unique_lock lock(mutex_);
    while (!wakeUp_.wait_for(lock, betweenFlushes, [this] { return over_; })) {
        if (!pending.everything) continue;
        lock.unlock();
        if (const int error = flushVolume(fd)) pending.error = error;
        lock.lock();
    }
}

} // namespace tidewrack
