#pragma once
// JSON as this program writes it everywhere: keys sorted, forward slashes escaped in compact text.

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace tidewrack {

// Compact text with sorted keys; every "/" is written "\/". Invalid UTF-8 in strings is repaired.
[[nodiscard]] std::string compactJson(const nlohmann::json& value);

enum class Slashes { escaped, plain };

// Two-space indentation, one key per line, a space on each side of the colon, no final line feed.
[[nodiscard]] std::string prettyJson(const nlohmann::json& value, Slashes slashes);

// The decoded value, or none when `text` is not JSON or nests deeper than 512 levels. A UTF-8 byte order
// mark before the text is accepted.
[[nodiscard]] std::optional<nlohmann::json> parseJson(std::string_view text);

// As `parseJson`, for text from programs that cut texts in the middle of a character: the escape of half a character
// (\ud83d without its \udc4b) counts as U+FFFD.
[[nodiscard]] std::optional<nlohmann::json> parseJsonRepairingEscapes(std::string_view text);

// As `parseJson`, for text that will be written back: every number becomes a binary value that holds its literal
// (1.10, -0, 1e400), which `prettyJson` writes digit for digit. None also when an object has the same key twice,
// because only one of the two values could be written back.
[[nodiscard]] std::optional<nlohmann::json> parseJsonKeepingDigits(std::string_view text);

} // namespace tidewrack
