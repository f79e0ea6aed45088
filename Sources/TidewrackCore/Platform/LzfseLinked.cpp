// The LZFSE library as a part of the program.

#include "Platform/Platform.hpp"

#include <lzfse.h>

namespace tidewrack {

const Lzfse& lzfse() {
    static constexpr Lzfse library{true, &lzfse_encode_buffer, &lzfse_decode_buffer};
    return library;
}

} // namespace tidewrack
