#pragma once
// Functions of libraries that differ between systems.

#include <array>
#include <cstdint>
#include <string_view>

namespace tidewrack {

[[nodiscard]] std::array<std::uint8_t, 32> sha256(std::string_view bytes);

} // namespace tidewrack
