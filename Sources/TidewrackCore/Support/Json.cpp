#include "Support/Json.hpp"

#include <nlohmann/json.hpp>

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

void appendPretty(const nlohmann::json& value, std::size_t indent, std::string& out) {
    if (!value.is_structured() || value.empty()) {
        out += scalarText(value);
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

} // namespace tidewrack
