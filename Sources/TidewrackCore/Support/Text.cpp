#include "Support/Text.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace tidewrack {

namespace {

struct CodePoint {
    utf8proc_int32_t value = -1; // negative: not UTF-8
    std::size_t length = 1;
};

CodePoint codePointAt(std::string_view text, std::size_t at) {
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + at;
    CodePoint point;
    const auto length = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size() - at), &point.value);
    if (length <= 0) return {};
    point.length = static_cast<std::size_t>(length);
    return point;
}

// Two neighbouring ASCII bytes are always two characters, except CR LF.
bool plainAscii(std::string_view text, std::size_t at) {
    return at < text.size() && static_cast<unsigned char>(text[at]) < 0x80;
}

std::string mapped(std::string_view text, utf8proc_int32_t (*map)(utf8proc_int32_t)) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const CodePoint point = codePointAt(text, at);
        utf8proc_uint8_t encoded[4];
        const auto length = utf8proc_encode_char(map(point.value < 0 ? 0xFFFD : point.value), encoded);
        result.append(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(length));
        at += point.length;
    }
    return result;
}

} // namespace

bool isUtf8(std::string_view bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        if (plainAscii(bytes, at)) {
            ++at;
            continue;
        }
        const CodePoint point = codePointAt(bytes, at);
        if (point.value < 0) return false;
        at += point.length;
    }
    return true;
}

std::string repairedUtf8(std::string_view bytes) {
    if (isUtf8(bytes)) return std::string(bytes);
    return mapped(bytes, [](utf8proc_int32_t point) { return point; });
}

namespace {

// C1 control characters, line separators, and what overrides or isolates the direction of text.
bool isHarmfulPoint(utf8proc_int32_t point) {
    return (point >= 0x80 && point <= 0x9f) || (point >= 0x2028 && point <= 0x202e) ||
           (point >= 0x2066 && point <= 0x2069);
}

std::string escapedPoint(utf8proc_int32_t point) {
    switch (point) {
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    default: break;
    }
    char text[8];
    std::snprintf(text, sizeof text, point < 0x80 ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(point));
    return text;
}

} // namespace

std::string escapedControls(std::string_view text, Tabs tabs) {
    std::string result;
    const std::string repaired = repairedUtf8(text);
    for (std::size_t i = 0; i < repaired.size();) {
        const CodePoint point = codePointAt(repaired, i);
        const bool keptTab = point.value == '\t' && tabs == Tabs::kept;
        const bool control = (point.value < 0x20 && !keptTab) || point.value == 0x7f || isHarmfulPoint(point.value);
        if (control)
            result += escapedPoint(point.value);
        else
            result.append(repaired, i, point.length);
        i += point.length;
    }
    return result;
}

std::string singleQuoted(std::string_view text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + '\'';
}

std::size_t characterLength(std::string_view text) {
    if (text.empty()) return 0;
    if (plainAscii(text, 0) && (text.size() == 1 || plainAscii(text, 1)))
        return text[0] == '\r' && text.size() > 1 && text[1] == '\n' ? 2 : 1;
    CodePoint previous = codePointAt(text, 0);
    std::size_t length = previous.length;
    if (previous.value < 0) return length;
    utf8proc_int32_t state = 0;
    while (length < text.size()) {
        const CodePoint next = codePointAt(text, length);
        if (next.value < 0 || utf8proc_grapheme_break_stateful(previous.value, next.value, &state)) break;
        length += next.length;
        previous = next;
    }
    return length;
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (; !text.empty(); ++count) text.remove_prefix(characterLength(text));
    return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
    std::size_t length = 0;
    for (; count > 0 && length < text.size(); --count) length += characterLength(text.substr(length));
    return text.substr(0, length);
}

bool isLetterOrNumber(std::string_view character) {
    if (character.empty()) return false;
    const CodePoint point = codePointAt(character, 0);
    if (point.value < 0) return false;
    switch (utf8proc_category(point.value)) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_ND:
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO: return true;
    default: return false;
    }
}

std::string lowercased(std::string_view text) {
    const auto isAscii = [](char byte) { return static_cast<unsigned char>(byte) < 0x80; };
    if (!std::all_of(text.begin(), text.end(), isAscii)) return mapped(text, utf8proc_tolower);
    std::string result(text); // whole files are searched like this
    for (char& byte : result) byte = static_cast<char>(byte >= 'A' && byte <= 'Z' ? byte - 'A' + 'a' : byte);
    return result;
}

std::string caseFolded(std::string_view text) {
    utf8proc_uint8_t* folded = nullptr;
    const auto options = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD);
    const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                     static_cast<utf8proc_ssize_t>(text.size()), &folded, options);
    if (length < 0) return std::string(text);
    std::string result(reinterpret_cast<const char*>(folded), static_cast<std::size_t>(length));
    std::free(folded); // NOLINT: utf8proc allocates with malloc
    return result;
}

std::string hexText(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string hex;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        hex += digits[byte / 16];
        hex += digits[byte % 16];
    }
    return hex;
}

std::string hexText(std::span<const std::uint8_t> bytes) {
    return hexText(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::string countText(std::int64_t count, const std::string& word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

std::string bytesText(std::int64_t bytes) {
    if (bytes < 1000) return countText(bytes, "byte");
    double value = static_cast<double>(bytes);
    std::size_t unit = 0;
    constexpr const char* units[] = {"", "kB", "MB", "GB", "TB", "PB", "EB"};
    for (; value >= 999.5; ++unit) value /= 1000;
    char text[32];
    std::snprintf(text, sizeof text, value < 9.95 ? "%.1f %s" : "%.0f %s", value, units[unit]);
    return text;
}

} // namespace tidewrack
