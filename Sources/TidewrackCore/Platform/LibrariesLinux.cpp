#include "Platform/Libraries.hpp"

#include <sha2.h>

namespace tidewrack {

std::array<std::uint8_t, 32> sha256(std::string_view bytes) {
    std::array<std::uint8_t, 32> digest{};
    SHA2_CTX context;
    SHA256Init(&context);
    SHA256Update(&context, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    SHA256Final(digest.data(), &context);
    return digest;
}

} // namespace tidewrack
