#pragma once
// Text as people see it: UTF-8, user-perceived characters, letters and numbers, lower case.
// Paths are byte strings; only text that is shown or put into JSON passes through here.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tidewrack {

// True when `bytes` is well-formed UTF-8.
[[nodiscard]] bool isUtf8(std::string_view bytes);

// `bytes` with every invalid sequence replaced by U+FFFD; well-formed text comes back unchanged.
[[nodiscard]] std::string repairedUtf8(std::string_view bytes);

// The same with escapes for characters that a terminal would obey or that change the direction of text: control
// characters as `\n`, `\t`, `\x1b` or `\u009b`, line separators and changes of direction as `\u202e`.
enum class Tabs { escaped, kept };
[[nodiscard]] std::string escapedControls(std::string_view text, Tabs tabs = Tabs::escaped);

// The text as one word for a shell, in single quotes.
[[nodiscard]] std::string singleQuoted(std::string_view text);

// The length in bytes (1 or more) of the user-perceived character (extended grapheme cluster, UAX #29)
// that `text` begins with; 0 when `text` is empty. Bytes that are not UTF-8 count one character each.
// A CR LF pair is one character.
[[nodiscard]] std::size_t characterLength(std::string_view text);

// The number of user-perceived characters.
[[nodiscard]] std::size_t characterCount(std::string_view text);

// The longest prefix of at most `count` user-perceived characters.
[[nodiscard]] std::string_view firstCharacters(std::string_view text, std::size_t count);

// True when the user-perceived character is a letter or a number (Unicode categories L and N, judged by
// its first code point).
[[nodiscard]] bool isLetterOrNumber(std::string_view character);

// Lower case by code point, for the whole of Unicode.
[[nodiscard]] std::string lowercased(std::string_view text);

// Two hexadecimal digits for each byte, in lower case.
[[nodiscard]] std::string hexText(std::string_view bytes);
[[nodiscard]] std::string hexText(std::span<const std::uint8_t> bytes);

// "1 file", "2 files", of any word that takes an s.
[[nodiscard]] std::string countText(std::int64_t count, const std::string& word);

// "999 bytes", "1.0 kB", "300 MB"
[[nodiscard]] std::string bytesText(std::int64_t bytes);

// The form that texts share when they differ only in case or in how their characters are composed. Text that is not
// UTF-8 comes back unchanged.
[[nodiscard]] std::string caseFolded(std::string_view text);

} // namespace tidewrack
