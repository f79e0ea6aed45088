#pragma once
// Brace lists, which a shell expands before anything else: a{b,c} is ab and ac, {1..3} is 1, 2 and 3.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

// False when a word certainly holds no list.
[[nodiscard]] inline bool holdsBraceList(std::string_view source) {
    return source.find('}') != std::string_view::npos &&
           (source.find(',') != std::string_view::npos || source.find("..") != std::string_view::npos);
}

// The words that one word stands for, all as they were written, quotes and escapes included: the word itself when it
// holds no list. What is quoted, ${...}, and braces without a comma are no lists. None when there would be more than
// 1,000 words or 256 KiB of them. A "#" at the beginning of a new word is escaped, so that it begins no comment.
[[nodiscard]] std::optional<std::vector<std::string>> expandBraces(std::string_view source);

} // namespace tidewrack::shell
