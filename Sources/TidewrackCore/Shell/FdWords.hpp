#pragma once
// The words that fd is given, and what they let it find.

#include "Shell/FoundFiles.hpp"
#include "Shell/Program.hpp"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tidewrack::shell {

// What stands before fd's command. The operands are those words: they must outlive this.
struct FdWords {
    std::vector<const Word*> operands;
    std::string flags; // the letters of its options
    std::vector<std::string> extensions;
    std::vector<Word> roots; // --search-path
    std::string depth;
    std::optional<Word> folder; // --base-directory
    bool isLimited = false;     // an option may leave out more than hidden and ignored files

    explicit FdWords(std::span<const Word> arguments);
    // Whether every name that isn't hidden or ignored passes.
    [[nodiscard]] bool takesAll() const;

  private:
    std::size_t takeOption(std::span<const Word> arguments, std::size_t index);
};

// Where fd is told what to run: -x COMMAND. The number of words where it is not.
[[nodiscard]] std::size_t fdCommandAt(std::span<const Word> arguments);

// In which fd works: `cwd` unless it is told another one.
[[nodiscard]] std::string folderOf(const FdWords& all, const std::string& cwd);

// What stands behind the pattern, or `cwd`.
[[nodiscard]] std::vector<Word> rootsOfFd(const FdWords& all, const std::string& cwd);

// What fd's pattern, extensions and depth let pass. What else leaves files out is not read: the rest passes.
[[nodiscard]] FoundFiles testsOfFd(const FdWords& all, std::span<const Word> arguments);

} // namespace tidewrack::shell
