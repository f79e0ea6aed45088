#include "Support/Json.hpp"

#include <nlohmann/json.hpp>

#include <charconv>
#include <set>
#include <vector>

namespace tidewrack {

namespace {

constexpr int maxDepth = 512;

// A slash can stand only inside a string of JSON text, so escaping it needs no parsing.
std::string withEscapedSlashes(const std::string& text) {
    std::string result;
    result.reserve(text.size() + text.size() / 8);
    for (const char c : text) {
        if (c == '/') result += '\\';
        result += c;
    }
    return result;
}

std::string scalarText(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

nlohmann::json keptLiteral(const std::string& literal) {
    return nlohmann::json::binary(std::vector<std::uint8_t>(literal.begin(), literal.end()));
}

std::string literalOf(const nlohmann::json& value) {
    const auto& bytes = value.get_binary();
    return {bytes.begin(), bytes.end()};
}

void appendPretty(const nlohmann::json& value, std::size_t indent, std::string& out) {
    if (!value.is_structured() || value.empty()) {
        out += value.is_binary() ? literalOf(value) : scalarText(value);
        return;
    }
    const bool object = value.is_object();
    const std::string margin(indent + 2, ' ');
    out += object ? "{\n" : "[\n";
    bool first = true;
    for (auto item = value.begin(); item != value.end(); ++item) {
        if (!first) out += ",\n";
        first = false;
        out += margin;
        if (object) out += scalarText(item.key()) + " : ";
        appendPretty(*item, indent + 2, out);
    }
    out += '\n' + std::string(indent, ' ') + (object ? '}' : ']');
}

// Refuses text that would nest so deep that walking the value could exhaust the stack.
bool nestsTooDeep(std::string_view text) {
    int depth = 0;
    bool inString = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (inString) {
            if (c == '\\')
                ++at;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maxDepth) return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

// The position after a run of digits.
std::size_t afterDigits(std::string_view text, std::size_t at) {
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') ++at;
    return at;
}

// The length of the JSON number that `text` begins with; 0 when it begins with none.
std::size_t numberLength(std::string_view text) {
    const std::size_t whole = text.starts_with('-') ? 1 : 0;
    std::size_t end = text.substr(whole).starts_with('0') ? whole + 1 : afterDigits(text, whole);
    if (end == whole) return 0;
    if (end < text.size() && text[end] == '.') {
        const std::size_t fraction = afterDigits(text, end + 1);
        if (fraction > end + 1) end = fraction;
    }
    if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
        std::size_t exponent = end + 1;
        if (exponent < text.size() && (text[exponent] == '+' || text[exponent] == '-')) ++exponent;
        if (const std::size_t digits = afterDigits(text, exponent); digits > exponent) end = digits;
    }
    return end;
}

// `text` with " 0 " for every number, and the numbers' literals in their order. The spaces keep a malformed number
// malformed ("1.2.3" becomes " 0 . 0 "). The parser itself would round the digits away and refuse 1e400.
struct NumbersTakenOut {
    std::string text;
    std::vector<std::string> literals;
};

NumbersTakenOut takeNumbersOut(std::string_view text) {
    NumbersTakenOut result;
    bool inString = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t number = inString ? 0 : numberLength(text.substr(at));
        if (number > 0) {
            result.literals.emplace_back(text.substr(at, number));
            result.text += " 0 ";
            at += number;
            continue;
        }
        const std::size_t length = inString && text[at] == '\\' ? 2 : 1;
        if (text[at] == '"') inString = !inString;
        result.text += text.substr(at, length);
        at += length;
    }
    return result;
}

// The code unit of the escape \uXXXX that `text` begins with; none when it begins with no such escape.
std::optional<unsigned> escapedUnit(std::string_view text) {
    unsigned unit = 0;
    if (text.size() < 6 || !text.starts_with("\\u")) return std::nullopt;
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + 6, unit, 16);
    return error == std::errc() && end == text.data() + 6 ? std::optional(unit) : std::nullopt;
}

// `text` with U+FFFD for every escaped surrogate that lacks its other half.
std::string withWholeCharacters(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view rest = text.substr(at);
        const unsigned unit = escapedUnit(rest).value_or(0);
        const bool first = unit >= 0xD800 && unit < 0xDC00;
        const unsigned next = first ? escapedUnit(rest.substr(6)).value_or(0) : 0;
        const bool pair = next >= 0xDC00 && next < 0xE000;
        const std::size_t length = pair ? 12 : unit > 0 ? 6 : rest.starts_with('\\') ? 2 : 1;
        if (unit >= 0xD800 && unit < 0xE000 && !pair)
            result += "\\ufffd";
        else
            result += rest.substr(0, length);
        at += length;
    }
    return result;
}

} // namespace

std::string compactJson(const nlohmann::json& value) {
    return withEscapedSlashes(scalarText(value));
}

std::string prettyJson(const nlohmann::json& value, Slashes slashes) {
    std::string text;
    appendPretty(value, 0, text);
    return slashes == Slashes::escaped ? withEscapedSlashes(text) : text;
}

std::optional<nlohmann::json> parseJson(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    if (nestsTooDeep(text)) return std::nullopt;
    auto value = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    if (value.is_discarded()) return std::nullopt;
    return value;
}

std::optional<nlohmann::json> parseJsonRepairingEscapes(std::string_view text) {
    if (auto value = parseJson(text)) return value;
    return parseJson(withWholeCharacters(text));
}

std::optional<nlohmann::json> parseJsonKeepingDigits(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    if (nestsTooDeep(text)) return std::nullopt;
    const NumbersTakenOut input = takeNumbersOut(text);
    std::vector<std::set<std::string>> keys; // of the objects that are open
    std::size_t numbers = 0;
    bool repeatedKey = false;
    const auto observe = [&](int, nlohmann::json::parse_event_t event, nlohmann::json& value) {
        using Event = nlohmann::json::parse_event_t;
        if (event == Event::object_start) keys.emplace_back();
        if (event == Event::object_end) keys.pop_back();
        if (event == Event::key && !keys.back().insert(value.get<std::string>()).second) repeatedKey = true;
        if (event == Event::value && value.is_number()) value = keptLiteral(input.literals[numbers++]);
        return true;
    };
    auto value = nlohmann::json::parse(input.text.begin(), input.text.end(), observe, false);
    if (value.is_discarded() || repeatedKey) return std::nullopt;
    return value;
}

} // namespace tidewrack
