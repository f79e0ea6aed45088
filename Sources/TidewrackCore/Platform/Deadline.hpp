#pragma once
// The moment by which work must be done, and the time that it took.

#include <chrono>
#include <cstdint>
#include <optional>

namespace tidewrack {

// None: the work may take as long as it needs.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

[[nodiscard]] inline bool passed(const Deadline& deadline) {
    return deadline && std::chrono::steady_clock::now() >= *deadline;
}

[[nodiscard]] inline std::int64_t millisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
}

} // namespace tidewrack
