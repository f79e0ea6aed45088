#pragma once
// What differs between the volumes, and the systems, that tests run on.

#include <string>

namespace tidewrack::testing {

// False where the volume holds no such attributes.
[[nodiscard]] bool setExtendedAttribute(const std::string& path, const char* name, const std::string& value);
[[nodiscard]] std::string extendedAttribute(const std::string& path, const char* name); // "<none>" when it is missing

// A file name or path of any bytes, for use below a TemporaryFolder. Where volumes take UTF-8 only, each byte that is
// none becomes a character of its own.
[[nodiscard]] std::string ofAnyBytes(const std::string& path);
[[nodiscard]] bool volumesTakeAnyBytes();

} // namespace tidewrack::testing
