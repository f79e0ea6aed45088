#include "Reports/PathWords.hpp"

#include "Support/Paths.hpp"
#include "Support/Text.hpp"

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

namespace {

// $'...', which bash, zsh and ksh know, for what a terminal would obey and what is no text.
std::string ansiQuoted(std::string_view text) {
    std::string word = "$'";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\'' || c == '\\') {
            word += '\\';
            word += c;
        } else if (byte >= ' ' && byte < 0x7f) {
            word += c;
        } else { // three digits, so that none that follows counts as well
            word += '\\';
            for (const unsigned shift : {6U, 3U, 0U}) word += static_cast<char>('0' + ((byte >> shift) & 7U));
        }
    }
    return word + "'";
}

} // namespace

std::string movingTo(std::string_view from, std::string_view to) {
    return "tidewrack move " + shellWord(from) + " " + shellWord(to);
}

std::string shellWord(std::string_view text) {
    const auto isPlain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("_./+-@,%:").find(c) != std::string_view::npos;
    };
    if (!text.empty() && std::all_of(text.begin(), text.end(), isPlain)) return std::string(text);
    if (escapedControls(text) != text) return ansiQuoted(text);
    return singleQuoted(text);
}

std::string makingFolder(std::string_view path) {
    return "mkdir -p " + shellWord(path) + " && ";
}

} // namespace tidewrack
