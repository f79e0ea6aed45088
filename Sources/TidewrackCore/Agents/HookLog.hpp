#pragma once
// "hooks.log" in the store: one line for everything a hook did.

#include "Platform/Descriptor.hpp"
#include "Store/Store.hpp"

#include <chrono>
#include <cstdint>
#include <string_view>

namespace tidewrack {

class HookLog {
  public:
    using Instant = std::chrono::steady_clock::time_point;

    // A longer log is emptied before the next line.
    static constexpr std::int64_t longest = 2'000'000; // bytes

    explicit HookLog(Store store) : store_(std::move(store)) {}

    // Appends "<now> <agent> <event> <milliseconds since start>ms <message>" as one write, creating the store's
    // folder when it is missing. Line breaks in the message become spaces. Every failure is passed over; nothing is
    // written into a store that is not ours.
    void append(std::string_view agent, std::string_view event, Instant start, std::string_view message) const;

  private:
    Store store_;
};

} // namespace tidewrack
