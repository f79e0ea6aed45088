#pragma once
// What xargs does with what it reads: a list that another command of the line prints.

#include "Shell/Effects.hpp"
#include "Shell/Program.hpp"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// The command that xargs runs, without the wrappers in front of it; empty where it has none.
[[nodiscard]] std::vector<Word> commandOfXargs(std::span<const Word> arguments);

// A command lists files, and others of the line may take or write what it lists: git's stores among that.
void reachListedGitStores(std::span<const Word> lister, const std::string& cwd, Effects& effects);

// Whether what this command prints are names of files: ls, find, fd.
[[nodiscard]] bool listsFiles(const Word& first);

// A command that prints the names of files in which it has found something: grep -l.
struct ListingGrep {
    std::vector<Word> roots; // files and folders in which it searches
    bool recursive = false;
    bool sparesGit = false; // git's own stores are left out
};

// None where it prints no names. There is at least one word.
[[nodiscard]] std::optional<ListingGrep> listingGrep(std::span<const Word> words);
[[nodiscard]] inline bool listsMatches(std::span<const Word> words) {
    return listingGrep(words).has_value();
}

// Adds what xargs does, called with `arguments`, to what the command `lister` prints, both in the folder `cwd`.
// Nobody is refused anything because of it; a question is asked where a project's root or what is Tidewrack's own goes.
void examineListed(std::span<const Word> lister, std::span<const Word> arguments, const std::string& cwd,
                   Effects& effects);

// The same for a list that is not known: it may name any file in the folder.
void examineUnknownList(std::span<const Word> arguments, const std::string& cwd, Effects& effects);

// The same for a text whose words it reads. It is only saved.
void examineItems(std::string_view text, std::span<const Word> arguments, const std::string& cwd, Effects& effects);

} // namespace tidewrack::shell
