#pragma once
// Commands that run a text as commands: sh -c TEXT, eval, trap, parallel.

#include "Shell/Program.hpp"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// A text that is run as commands.
struct NestedText {
    std::string text;
    bool unknown = false;                          // only running would show it
    bool ownShell = false;                         // in a shell of its own: its folder and variables end with it
    std::optional<std::vector<Word>> parameters{}; // $0, $1, ... of that shell, where they are known
};

// The text that a command's words make it run; none where they do not.
[[nodiscard]] std::optional<NestedText> nestedText(const std::vector<Word>& words);

// `text` with the item in place of every `sign`, as far as it is not too long to be read as commands.
[[nodiscard]] std::string withItem(std::string_view text, std::string_view sign, std::string_view item);

// Texts that git runs because its options or variables say so, and the folder in which it does.
struct RunByGit {
    std::vector<NestedText> texts;
    std::string folder;

    // A name alone is a program that works on git's own files.
    void add(std::string text);
};
[[nodiscard]] RunByGit textsRunByGit(const std::vector<Word>& words, const std::string& folder);
inline constexpr std::array variablesRunByGit = {
    std::string_view("GIT_EDITOR"),      std::string_view("GIT_SEQUENCE_EDITOR"),
    std::string_view("GIT_PAGER"),       std::string_view("GIT_EXTERNAL_DIFF"),
    std::string_view("GIT_SSH_COMMAND"), std::string_view("EDITOR"),
    std::string_view("VISUAL"),          std::string_view("PAGER")};

// Whether the words start a shell that reads its commands from its input.
[[nodiscard]] bool readsCommands(const std::vector<Word>& words);

// What a command such as echo or printf writes; none where that is not known.
[[nodiscard]] std::optional<std::string> literalOutput(const std::vector<Word>& words);

} // namespace tidewrack::shell
