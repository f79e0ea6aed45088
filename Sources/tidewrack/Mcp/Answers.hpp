#pragma once
// A command run inside of the server, and what it gives as the answer to `tools/call`.

#include "Surroundings.hpp"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::mcp {

// More than this is no help to a model, and may be more than its client takes.
constexpr std::size_t mostText = std::size_t{1} << 20;

struct Ran {
    int status = 0;
    std::string out;
    std::string err;
};

// Runs one command in the environment and the folder of `around`, with no input and nothing to print on.
[[nodiscard]] Ran runInside(const std::vector<std::string>& words, const Surroundings& around);

// The words of a command with an option, which stands before any "--".
[[nodiscard]] std::vector<std::string> withOption(std::vector<std::string> words, const char* option);

// What a command wrote on standard error, without the program's name before an error.
[[nodiscard]] std::string errorIn(std::string text);

// A part of an answer; of a long text its beginning, up to a line's end where there is one.
[[nodiscard]] nlohmann::json textBlock(std::string_view text);

// The call failed: `text` tells the model why.
[[nodiscard]] nlohmann::json failure(const std::string& text);

// A value as structured content and as text, with the command's warnings; a failure where it is too large.
[[nodiscard]] nlohmann::json answered(const nlohmann::json& value, const std::string& warnings);

} // namespace tidewrack::mcp
