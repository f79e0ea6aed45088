#pragma once
// Which command answers what the page asks for. The page knows nothing that a command does not print.

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::page {

using Values = std::map<std::string, std::string, std::less<>>;

// What was asked for makes no sense; the text is for whoever asked.
struct BadRequest : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The words of one command, as `run` takes them.
struct CommandWords {
    std::vector<std::string> words;  // without those that only this page needs, such as --json
    bool isJson = true;              // else it prints bytes
    std::vector<std::string> part{}; // of a long answer, which is read in pieces: more such words

    // As it would be typed in the project's folder.
    [[nodiscard]] std::string shown() const;
    // With what makes it act on that project and print what the page reads.
    [[nodiscard]] std::vector<std::string> forProject(const std::string& root) const;
};

// What is read; none for an unknown name. Throws BadRequest.
[[nodiscard]] std::optional<CommandWords> reading(std::string_view name, const Values& values);

// A hunk as the page showed it: its number alone may stand for another one by now.
struct ChosenHunk {
    std::uint64_t number = 0; // from 1
    std::string digest;       // as `show --lines` and `diff --lines` print it
};

// What changes something.
struct Act {
    CommandWords command;
    bool hasDryRun = true; // the command itself tells what it would do
    std::vector<ChosenHunk> hunks;
    CommandWords hunkLines; // what prints the hunks of their file
};

// `wish`: {"act": NAME, ...}; of an undo of hunks {"hunks": [{"number", "digest"}]}. Throws BadRequest.
[[nodiscard]] Act actOf(const nlohmann::json& wish);

} // namespace tidewrack::page
