#pragma once
// One call of a command: its words, what it acts on, and the one way of output.

#include "Args.hpp"
#include "CommandTable.hpp"
#include "Engine/Engine.hpp"
#include "Progress.hpp"
#include "SnapshotWord.hpp"
#include "Surroundings.hpp"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

class Invocation {
  public:
    // `args`: the words without those of the command's name.
    Invocation(const Command& called, Args words, Surroundings& surroundings);
    Invocation(const Invocation&) = delete;
    Invocation& operator=(const Invocation&) = delete;

    const Command& command;
    const Args args;
    Surroundings& around;

    // Opened when they are first asked for: not every command needs a store.
    [[nodiscard]] const Engine& engine();
    [[nodiscard]] const Store& store() { return engine().store; }

    // `path`, from the current folder unless it is absolute.
    [[nodiscard]] std::string absolute(const std::string& path) const;
    // The project that contains `folder` (default: --project, else the current folder).
    [[nodiscard]] Project project(const std::optional<std::string>& folder = std::nullopt);

    // The words from `first` on as paths relative to the project's root. Throws CliError for an empty one.
    [[nodiscard]] std::vector<std::string> relativePaths(const Project& project, std::size_t first) const;

    // The word at `index` in a snapshot's place. Throws CliError; `name` is what it is called there.
    [[nodiscard]] SnapshotWord snapshotWord(std::size_t index, const char* name) const;
    // The number that it stands for; printed on standard error where the word is no number. Throws CliError when no
    // snapshot is meant.
    [[nodiscard]] std::int64_t number(const Project& project, const SnapshotWord& word);

    [[nodiscard]] bool json() const { return args.has("--json"); }
    [[nodiscard]] const Look& look() const { return look_; }
    // Text that others chose, as standard output may show it.
    [[nodiscard]] std::string shown(std::string_view text) const { return look_.shown(text); }

    // On a terminal, what is printed from here on goes through the user's pager, unless --no-pager is given.
    void page();
    void print(std::string_view text);
    void printJson(const nlohmann::json& value);
    // One line on standard error for each.
    void warn(const std::vector<std::string>& warnings);
    void warn(const std::vector<Warning>& warnings);
    // The same of records that cost what they alone tell.
    void warnOfUnread(const std::vector<UnreadRecord>& unread, const std::string& root = {}); // of another project

  private:
    Look look_;
    ProgressLine progress_;
    std::optional<Engine> engine_;
};

// Whether a person's answer to a question is a yes: "y" or "yes" in any case.
[[nodiscard]] bool isYes(const std::string& answer);

} // namespace tidewrack
