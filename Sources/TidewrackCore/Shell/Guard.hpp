#pragma once
// Judges a shell command before an agent runs it: what it may destroy, and whether it may run. Nothing is
// run; the disk is read only to match patterns, to tell folders from files and to recognise a protected
// folder under another spelling.

#include "Shell/Expansion.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

struct Context {
    std::string cwd;  // the agent's working folder: canonical, absolute
    std::string home; // the user's home folder
    Environment env;
    std::vector<std::string> projectRoots; // of all tracked projects
};

// What to tell the agent. A deny beats an ask beats an allow, and of two equals the first stands.
struct Verdict {
    enum class Kind { ask, deny, allow };

    Kind kind = Kind::allow;
    std::string reason; // empty for allow

    // Takes `other` when that is the stronger one.
    void raiseTo(Verdict other);

    bool operator==(const Verdict&) const = default;
};

struct Decision {
    Verdict verdict;
    std::vector<std::string> targets;    // absolute paths that may be deleted or overwritten: sorted, each once
    std::vector<std::string> followed;   // those of them that, where they are links, are not meant themselves: what
                                         // they lead to is; sorted, each once
    std::vector<std::string> removed;    // those of them that go with all they hold; sorted, each once
    bool opaque = false;                 // part of the effect cannot be known without running the command
    std::vector<std::string> opaqueDirs; // the folders in which such parts run: sorted, each once

    bool operator==(const Decision&) const = default;
};

// Judges one command line. Never fails, and takes milliseconds for any input; more than 10,000 targets are
// not listed one by one, the rest makes the decision opaque.
[[nodiscard]] Decision analyze(std::string_view command, const Context& context);

// The text of the refusal when `path` is one of the folders whose loss nobody wants: the system's, the home
// folder, or the home's well-known ones. What lies below them is not meant. Judged by the text alone.
[[nodiscard]] std::optional<std::string> catastrophic(std::string_view path, std::string_view home);

// Turns an allow into an ask when a tracked project is at or below `path`.
void askIfContainsProject(std::string_view path, const std::vector<std::string>& projectRoots, Verdict& verdict);

} // namespace tidewrack::shell
