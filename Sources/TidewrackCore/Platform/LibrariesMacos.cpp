#include "Platform/Libraries.hpp"

#include <CommonCrypto/CommonDigest.h>

namespace tidewrack {

std::array<std::uint8_t, 32> sha256(std::string_view bytes) {
    std::array<std::uint8_t, 32> digest{};
    CC_SHA256(bytes.data(), static_cast<CC_LONG>(bytes.size()), digest.data());
    return digest;
}

} // namespace tidewrack
