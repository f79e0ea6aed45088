#include "Reports/PathWords.hpp"

#include "Support/Paths.hpp"

#include <algorithm>

namespace tidewrack {

std::string seenFrom(const std::string& path, std::string from) {
    std::string up;
    while (!isAtOrBelow(path, from)) {
        from = parentOf(from);
        up += "../";
    }
    const std::string rest = path.substr(std::min(path.size(), from == "/" ? 1 : from.size() + 1));
    return rest.empty() ? (up.empty() ? "." : up.substr(0, up.size() - 1)) : up + rest;
}

std::string shellWord(std::string_view text) {
    const auto isPlain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("_./+-@,%:").find(c) != std::string_view::npos;
    };
    if (!text.empty() && std::all_of(text.begin(), text.end(), isPlain)) return std::string(text);
    std::string word = "'";
    for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

} // namespace tidewrack
