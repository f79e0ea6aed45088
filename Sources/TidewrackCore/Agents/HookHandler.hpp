#pragma once
// Answers one event of an agent: snapshots before a prompt, before a risky command and at the end of a turn, vault
// copies of what lies outside projects, and the guard's verdict on shell commands. A hook must never break the
// agent: whatever fails inside is logged and answered with "allow".

#include "Agents/HookLog.hpp"
#include "Agents/Replies.hpp"
#include "Engine/Engine.hpp"
#include "Platform/Process.hpp"
#include "Shell/Decision.hpp"
#include "Vault/Vault.hpp"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

class HookHandler {
  public:
    // `home`: the user's home folder. The environment serves the guard to expand variables.
    HookHandler(const Store& owner, Environment variables, std::string userHome);
    HookHandler(const HookHandler&) = delete;
    HookHandler& operator=(const HookHandler&) = delete;

    const Store store;
    const Engine engine;
    Vault vault; // its limits may be set
    const HookLog log;
    const Environment environment;
    const std::string home;

    bool autoTrack = true;      // may start tracking a git repository that an agent works in
    bool backupDotfiles = true; // at the end of a turn, when due
    // After 30 seconds agents run the command without waiting for the answer. What could not be saved within this
    // time is named as skipped.
    std::chrono::milliseconds budget{25000};
    // When saving takes longer than this, since a slow disk keeps to no budget, the answer is given without waiting for
    // its end. Saving is then done in a process of its own. None: it is waited for.
    std::optional<std::chrono::milliseconds> patience;

    // `input` is all of standard input. Never throws. For the end of a turn the work is finished even when the process
    // is told to end meanwhile. `delayed` (may be null) is released once that is ensured or not needed.
    [[nodiscard]] HookOutput handle(Agent agent, std::string_view input, const std::string& processFolder,
                                    TerminationDelayed* delayed = nullptr) const;

    // The same for a command that a person typed in `folder`: what it may destroy is saved, and the verdict comes with
    // the words to ask or to refuse with. Never throws.
    [[nodiscard]] shell::Verdict beforeCommand(const std::string& command, const std::string& folder) const;
};

// The nearest folder at or above `path` that holds ".git", a folder or a file, of this user or root.
[[nodiscard]] std::optional<std::string> gitRoot(std::string path);

// `text` with every run of line breaks as one space, trimmed, and cut to `longest` user-perceived characters, the
// last of which is then "…". Empty for none.
[[nodiscard]] std::string oneLine(const std::optional<std::string>& text, std::size_t longest);

} // namespace tidewrack
