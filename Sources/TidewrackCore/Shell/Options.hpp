#pragma once
// Sorts the arguments of a command into options and operands.

#include "Shell/Program.hpp"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

[[nodiscard]] bool isOption(const Word& word);

// Whether the word is one or more options of one letter each: -rf.
[[nodiscard]] bool isShortCluster(const Word& word);

struct Operands {
    std::vector<const Word*> words; // that are neither options nor what options take
    std::optional<Word> folder;     // into which all of them go: -t FOLDER
    std::string flags;              // the letters of the options that take no word
    std::vector<std::string_view> longOptions;

    // Whether an option is there that takes no word, by its letter or its long name.
    [[nodiscard]] bool has(char letter, std::string_view name) const;
};

// `letters` are the short options that take a word, `options` the long ones, each between blanks.
[[nodiscard]] Operands operandsOf(std::span<const Word> arguments, std::string_view letters, std::string_view options);

// Whether an option is there that takes no word, under its long name or as a letter, perhaps of a cluster.
[[nodiscard]] bool hasOption(std::span<const Word> arguments, char letter, std::string_view name);

// The word that an option takes: -s WORD, -sWORD, --size WORD, --size=WORD; the last one's. Empty where it is not
// there.
[[nodiscard]] std::string valueOf(std::span<const Word> arguments, char letter, std::string_view name);

} // namespace tidewrack::shell
