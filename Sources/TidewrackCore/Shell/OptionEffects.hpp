#pragma once
// What the options and the text of a command say about whether it changes its files.

#include "Shell/Lexer.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace tidewrack::shell {

[[nodiscard]] bool isRecursive(std::span<const Word> arguments);
// Whether a command that removes takes folders with all they hold: rm -r, rimraf.
[[nodiscard]] bool takesFolders(std::span<const Word> command);

[[nodiscard]] bool editsInPlace(std::span<const Word> arguments);

// Whether a file is at least as large as before when truncate gives it this size: +1M, '>10K', or no less than it has.
[[nodiscard]] bool leavesSize(std::string_view size, const std::string& path);

// Whether a file's owner may read it in any case once chmod has given it this mode: 600, u+w, go-rwx.
[[nodiscard]] bool keepsReadable(std::string_view mode);

// Whether a perl program only reads its files line by line: perl -ne, perl --version.
[[nodiscard]] bool printsOnly(std::span<const Word> arguments);

} // namespace tidewrack::shell
