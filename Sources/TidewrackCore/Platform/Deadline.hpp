#pragma once
// The moment by which work must be done.

#include <chrono>
#include <optional>

namespace tidewrack {

// None: the work may take as long as it needs.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

[[nodiscard]] inline bool passed(const Deadline& deadline) {
    return deadline && std::chrono::steady_clock::now() >= *deadline;
}

} // namespace tidewrack
