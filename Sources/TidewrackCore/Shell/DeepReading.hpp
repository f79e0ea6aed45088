#pragma once
// What can be told of a line whose effect is not fully known. Guesses only save: nobody is asked or refused anything
// because of them.

#include "Shell/Decision.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// Paths that the line's text mentions and something stands at: absolute ones, those below the home folder and those
// that climb out of the working folder. Left out are programs, protected folders, what the system owns, and folders
// that hold more than 2,000 files.
[[nodiscard]] std::vector<std::string> mentionedPaths(std::string_view line, const Context& context);

// Whether a folder is small enough, and nobody's but the user's, to be kept on suspicion.
[[nodiscard]] bool isWorthKeeping(const std::string& path, const Context& context);

} // namespace tidewrack::shell
