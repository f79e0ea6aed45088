#pragma once
// `tidewrack hooks`: installs, removes, reports and prints the agents' hooks.

#include "Agents/Installer.hpp"
#include "Output.hpp"

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct HooksWay {
    HookInstaller::Acting acting = HookInstaller::Acting::forReal;
    bool asJson = false;
};

// Runs `tidewrack hooks WORDS...` and writes what it did to `out`. Throws for wrong words, and for the first file
// that cannot be read or written; what was done for the other agents is in `out`.
void runHooks(const std::vector<std::string>& words, const HookInstaller& installer, std::ostream& out,
              const Look& look = {}, const HooksWay& way = {});

// `hooks status` for programs: a list of objects with "agent", "state" ("installed", "not installed", "agent not
// found" or, where the file cannot be read, "unknown"), "path" and, where something is wrong, "hint".
[[nodiscard]] std::string hooksStatusJson(const HookInstaller& installer);

// One agent's row of `hooks status`.
struct HooksStatus {
    std::string state;
    std::optional<std::string> hint;
};
[[nodiscard]] HooksStatus hooksStatusOf(const HookInstaller& installer, Agent agent);

class Invocation;
// For the home folder and the program that the call is about.
[[nodiscard]] HookInstaller installerFor(const Invocation& call);

// The absolute path of a program that was called as `calledAs` in `folder`: a bare name is looked up in the
// colon-separated `searchPath` as a shell does. Links are not resolved. None when nothing is found.
[[nodiscard]] std::optional<std::string> calledProgram(std::string_view calledAs, std::string_view searchPath,
                                                       const std::string& folder);

} // namespace tidewrack
