#pragma once
// git, asked for something that only git knows.
//
// Anybody may have written a repository's settings. The child is started so that none of them makes it run a program,
// open a connection or write a file, and it reads no GIT_ variable of this process. It must not be asked what it would
// have to read files of the work tree for: a repository may name programs that these pass through.

#include "Platform/ChildProcess.hpp"

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tidewrack {

// git with these words, to be run in `folder`.
[[nodiscard]] ChildCommand gitCommand(const std::string& folder, const std::vector<std::string>& words);

using GitPatience = std::chrono::steady_clock::duration; // what answers may take; what one took is taken off

// The untracked paths that "git clean" with these words would remove when run in the folder: absolute, a folder with
// all that is in it. None where git gave no answer in time, here and below.
[[nodiscard]] std::optional<std::set<std::string>>
cleanedByGit(const std::string& folder, const std::vector<std::string>& words, GitPatience& patience);

// Those of the absolute paths, which lie in the folder, that git tracks and that are not as git last saw them, by their
// sizes and times.
[[nodiscard]] std::optional<std::set<std::string>>
changedForGit(const std::string& folder, const std::vector<std::string>& paths, GitPatience& patience);

} // namespace tidewrack
