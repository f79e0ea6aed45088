#pragma once
// What git's subcommands change, told by their words alone.

#include "Shell/Program.hpp"

#include <cstddef>
#include <initializer_list>
#include <span>
#include <string_view>

namespace tidewrack::shell {

// Whether one of the words is one of these.
[[nodiscard]] bool hasAny(std::span<const Word> words, std::initializer_list<std::string_view> texts);

// Whether one of the words before "--" is this option, its long name perhaps cut short as git allows, or the letter in
// a cluster.
[[nodiscard]] bool hasOption(std::span<const Word> words, std::string_view option, std::size_t shortest,
                             char letter = 0);

// checkout, restore, switch
[[nodiscard]] bool isCheckout(std::string_view subcommand);

// What git does to the tree where no rule says it: an alias may do anything, and so may some subcommands.
[[nodiscard]] bool mayChangeTree(std::string_view subcommand, std::span<const Word> arguments);
[[nodiscard]] bool changesWorkTree(std::string_view subcommand, std::span<const Word> arguments);
[[nodiscard]] bool takesUntracked(std::string_view subcommand, std::span<const Word> arguments);

// Whether it leaves the work tree as it is, whatever words follow.
[[nodiscard]] bool onlyReadsTree(std::string_view subcommand, std::span<const Word> arguments);

// Whether refs, index, settings and ref logs stay as they are.
[[nodiscard]] bool leavesStore(std::string_view subcommand, std::span<const Word> arguments);
[[nodiscard]] bool losesObjects(std::string_view subcommand, std::span<const Word> arguments);

} // namespace tidewrack::shell
