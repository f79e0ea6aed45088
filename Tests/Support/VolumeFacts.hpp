#pragma once
// What differs between the volumes, and the systems, that tests run on.

#include <string>

namespace tidewrack::testing {

// A file name or path of any bytes, for use below a TemporaryFolder. Where volumes take UTF-8 only, each byte that is
// none becomes a character of its own.
[[nodiscard]] std::string ofAnyBytes(const std::string& path);
[[nodiscard]] bool volumesTakeAnyBytes();

} // namespace tidewrack::testing
