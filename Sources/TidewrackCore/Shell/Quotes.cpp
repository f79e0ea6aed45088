#include "Shell/Quotes.hpp"

#include <charconv>
#include <cstdint>

namespace tidewrack::shell {

namespace {

void appendUtf8(std::uint32_t code, std::string& out) {
    const auto add = [&](std::uint32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (code < 0x80) return add(code);
    if (code < 0x800) {
        add(0xC0 | (code >> 6));
    } else if (code < 0x10000) {
        add(0xE0 | (code >> 12));
        add(0x80 | ((code >> 6) & 0x3F));
    } else if (code < 0x110000) {
        add(0xF0 | (code >> 18));
        add(0x80 | ((code >> 12) & 0x3F));
        add(0x80 | ((code >> 6) & 0x3F));
    } else {
        return;
    }
    add(0x80 | (code & 0x3F));
}

// A number of at most `digits` digits that `text` begins with; returns how many it has.
std::size_t readNumber(std::string_view text, std::size_t digits, int base, std::uint32_t& number) {
    const std::string_view most = text.substr(0, digits);
    const auto result = std::from_chars(most.data(), most.data() + most.size(), number, base);
    return static_cast<std::size_t>(result.ptr - most.data());
}

} // namespace

std::size_t decodeAnsiEscape(std::string_view text, std::string& out) {
    static constexpr std::string_view letters = "abefnrtvE";
    static constexpr std::string_view meanings = "\a\b\x1b\f\n\r\t\v\x1b";
    if (text.size() < 2) return text.size();
    const char kind = text[1];
    if (const std::size_t at = letters.find(kind); at != std::string_view::npos) {
        out += meanings[at];
        return 2;
    }
    if (kind == '\\' || kind == '\'' || kind == '"' || kind == '?') {
        out += kind;
        return 2;
    }
    const bool octal = kind >= '0' && kind <= '7';
    const bool unicode = kind == 'u' || kind == 'U';
    const std::size_t start = octal ? 1 : 2;
    std::uint32_t number = 0;
    std::size_t digits = 0;
    if (octal) digits = readNumber(text.substr(start), 3, 8, number);
    if (kind == 'x' || unicode)
        digits = readNumber(text.substr(start), kind == 'x' ? 2 : kind == 'u' ? 4 : 8, 16, number);
    if (digits == 0) {
        out += '\\';
        return 1;
    }
    if (number != 0 && unicode) appendUtf8(number, out);
    if (number != 0 && !unicode) out += static_cast<char>(static_cast<unsigned char>(number));
    return start + digits;
}

} // namespace tidewrack::shell
