#pragma once
// Commands that run another one: sudo, env, timeout, uv run.

#include "Shell/Program.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// The name a command goes by: the last component of its path, and without the "g" that GNU's tools have elsewhere.
[[nodiscard]] std::string_view commandName(const Word& word);

// What a command runs, once assignments, unknown words and wrappers in front of it are gone.
struct Unwrapped {
    std::optional<Word> text;        // to be run by a shell: su -c TEXT
    std::optional<Word> folder;      // to be run in: env -C FOLDER
    std::vector<Word> outputs{};     // files that a wrapper writes: strace -o FILE
    std::vector<Word> assignments{}; // that hold for it alone
};

// Removes them from the front of `words`, with the options and operands that are theirs.
Unwrapped unwrap(std::vector<Word>& words);

// Whether a command of this name runs another one.
[[nodiscard]] bool isWrapper(std::string_view name);

} // namespace tidewrack::shell
