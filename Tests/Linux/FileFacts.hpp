#pragma once
// Everything about files that a copy must keep, in a form that two trees can be compared by.

#include <cstdint>
#include <string>

namespace tidewrack::testing {

// Every path below `root`, sorted, one a line: kind, mode, owner, modification time, size, extended attributes, and the
// content's checksum or the link's destination.
[[nodiscard]] std::string factsOf(const std::string& root);

// Bytes that look random and depend on nothing but `seed` and their position.
[[nodiscard]] std::string contentFrom(std::uint64_t seed, std::size_t size);

// Bytes that a file takes on its volume.
[[nodiscard]] std::int64_t allocated(const std::string& path);

// Whether files in this folder can have attributes like "user.note".
[[nodiscard]] bool holdsUserAttributes(const std::string& folder);

void setAttribute(const std::string& path, const char* name, const std::string& value);
[[nodiscard]] std::string attribute(const std::string& path, const char* name); // "<none>" when it is missing

// The attribute "system.posix_acl_access" for: owner read and write, user 1234 read, group and mask as `mask` (one
// octal digit), others nothing.
[[nodiscard]] std::string accessList(unsigned owner, unsigned mask);

} // namespace tidewrack::testing
