#pragma once
// Programs that change no file of the user's: they read, print, or talk to something else. The table of writers
// (Writers.hpp) goes first: what stands there is not listed here.

#include "Shell/Program.hpp"

#include <span>
#include <string_view>

namespace tidewrack::shell {

// Whether a program of this name never changes a file, or only when an argument says so.
[[nodiscard]] bool isReader(std::string_view name);

// Whether a reader is told by its arguments to write a file after all, or to run something.
[[nodiscard]] bool isToldToWrite(std::string_view name, std::span<const Word> arguments);

// Whether the subcommand of a program such as npm only reads: npm ls, go env.
[[nodiscard]] bool hasReadingSubcommand(std::string_view name, std::span<const Word> arguments);

// Whether the program is told first of all that it is only to check its operands: bash -n, black --check.
[[nodiscard]] bool onlyChecks(std::string_view name, std::span<const Word> arguments);

// Whether a program with these arguments only tells of itself: --version, --help; -v where it is known to mean that.
// A script of the project's own may mean anything by them: only what is installed, or known by its name, is believed.
[[nodiscard]] bool onlyTellsOfItself(std::string_view name, std::span<const Word> arguments, bool isInstalled = true);

// Whether the command only looks at files or at the system. Readers that act elsewhere do not: kubectl, ssh, git push.
[[nodiscard]] bool onlyLooks(std::span<const Word> words);

} // namespace tidewrack::shell
