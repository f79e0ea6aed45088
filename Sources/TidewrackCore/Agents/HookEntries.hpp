#pragma once
// Our entries inside an agent's configuration: what they are, how they are told from other tools' entries, and how
// they are put in and taken out. Works on decoded JSON alone and knows no disk.
//
// A configuration holds {"hooks": {EVENT: [ENTRY, ...]}}. An entry is a hook object with a "command" (cursor, copilot)
// or a group {"matcher": ..., "hooks": [hook object, ...]} (the other agents).

#include "Agents/Agent.hpp"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// `text` as one shell word: unchanged when it holds only ASCII letters, digits and "/._-+", else in single quotes.
[[nodiscard]] std::string shellQuote(std::string_view text);

// The program that a command line of ours runs: the shell word before " hook <agent>", without its quotes. None
// when the command is not ours.
[[nodiscard]] std::optional<std::string> programOf(std::string_view command);

// One of our hooks in a configuration.
struct OwnHook {
    std::string event;
    std::string matcher; // empty: it has none
    std::string command;
    std::string text; // all that is said of it, as JSON

    bool operator==(const OwnHook&) const = default;
};

// The entries of one agent that run the program `binary` (an absolute path).
class HookEntries {
  public:
    HookEntries(std::string binary, Agent agent) : binary_(std::move(binary)), agent_(agent) {}

    // "<binary, quoted> hook <agent>"; for copilot only where the program is there.
    [[nodiscard]] std::string command() const;

    // Which entries: those of the first version, which knew of no file tools, those of the next, which knew of no end
    // of a session, or those of this one.
    enum class Version { first, fileTools, current };
    // {EVENT: [ENTRY, ...]} as they are installed.
    [[nodiscard]] nlohmann::json block(Version version = Version::current) const;

    // True when `value` is a hook object of ours or holds one in its "hooks" lists. Ours is every command that runs
    // a "tidewrack" anywhere for any agent, so that entries of an older or moved binary are known, and `command()`.
    [[nodiscard]] bool areIn(const nlohmann::json& value) const;

    // Every hook of ours in the event lists of `config`, event by event in the order of their names.
    [[nodiscard]] std::vector<OwnHook> hooksIn(const nlohmann::json& config) const;
    // Their command lines.
    [[nodiscard]] std::vector<std::string> commandsIn(const nlohmann::json& config) const;

    // Puts `block()` into the object `config`. Our entries of an event are replaced at their places, each by the one
    // with its matcher; further ones are dropped, new ones go to the end; nothing else is moved or changed. Returns the
    // names of what was in the way and left alone: an event whose value is not a list, or "hooks" when that is not an
    // object.
    [[nodiscard]] std::vector<std::string> addTo(nlohmann::json& config, Version version = Version::current) const;

    // Whether `config` holds what a version installs.
    [[nodiscard]] bool areWholeIn(const nlohmann::json& config, Version version) const;

    // Takes our hooks out of the object `config`, and every group, event list and "hooks" object that this leaves
    // empty (cursor's and copilot's files keep their "hooks", which is half of what it consists of).
    void removeFrom(nlohmann::json& config) const;

  private:
    [[nodiscard]] nlohmann::json hook(std::string_view event, std::string_view matcher) const;
    [[nodiscard]] nlohmann::json mergedList(const nlohmann::json& list, const nlohmann::json& wanted) const;
    [[nodiscard]] std::optional<std::size_t> successorOf(const nlohmann::json& entry, const nlohmann::json& list,
                                                         const nlohmann::json& wanted,
                                                         const std::vector<bool>& placed) const;
    [[nodiscard]] std::optional<nlohmann::json> othersOf(const nlohmann::json& entry) const;
    [[nodiscard]] std::optional<nlohmann::json> replacedIn(const nlohmann::json& group,
                                                           const nlohmann::json& wanted) const;
    [[nodiscard]] bool isOurs(const nlohmann::json& hook) const;
    // `found`: the event and the matcher that `value` stands under.
    void collect(const nlohmann::json& value, OwnHook found, std::vector<OwnHook>& hooks) const;

    std::string binary_;
    Agent agent_;
};

} // namespace tidewrack
