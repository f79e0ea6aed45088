#include "Engine/FlushAlongside.hpp"

#include <chrono>
#include <system_error>

namespace tidewrack {

namespace {

constexpr auto betweenFlushes = std::chrono::milliseconds(20);

} // namespace

FlushAlongside::FlushAlongside(int folder, const PendingWrites& pending) : folder_(folder), pending_(pending) {
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        // No thread is to be had here: all is left to the flush at the end.
    }
}

FlushAlongside::~FlushAlongside() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void FlushAlongside::run() {
    std::unique_lock lock(mutex_);
    while (!changed_.wait_for(lock, betweenFlushes, [this] { return stopping_; })) {
        if (!pending_.everything) continue;
        lock.unlock();
        (void)flush(folder_, pending_);
        lock.lock();
    }
}

} // namespace tidewrack
