#pragma once
// What find and fd do with the trees that it searches.

#include "Shell/CommandRules.hpp"
#include "Shell/Effects.hpp"
#include "Shell/Program.hpp"

#include <span>
#include <string>
#include <vector>

namespace tidewrack::shell {

// Whether the word stands for what was found, or holds that: {}.
[[nodiscard]] bool isFound(const Word& word);

// Adds what find does with these arguments in the folder `cwd`.
void examineFind(std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// The same for fd.
void examineFd(std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// Adds what a command does that is given what find or fd prints, `lister` being its words: `act` to each of it, with
// all that it holds where it is `recursive`.
void examineFound(std::span<const Word> lister, Act act, bool recursive, const std::string& cwd, Effects& effects);

// The same where only the line as a whole tells what becomes of the list: git's stores that it may name files of.
void reachFoundGitStores(std::span<const Word> lister, const std::string& cwd, Effects& effects);

// What fd does to what it finds.
[[nodiscard]] Act fdAct(std::span<const Word> arguments, std::size_t nesting = 0);

// The same for find.
[[nodiscard]] Act findAct(std::span<const Word> arguments, std::size_t nesting = 0);

// The commands that find runs.
[[nodiscard]] std::vector<std::vector<Word>> commandsOfFind(std::span<const Word> arguments);

// The one that fd runs, and the folder in which it works.
[[nodiscard]] std::vector<std::vector<Word>> commandsOfFd(std::span<const Word> arguments);
[[nodiscard]] std::string folderOfFd(std::span<const Word> arguments, const std::string& cwd);

} // namespace tidewrack::shell
