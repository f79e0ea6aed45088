#include "Mcp/Answers.hpp"

#include "CommandLine.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack::mcp {

using nlohmann::json;

Ran runInside(const std::vector<std::string>& words, const Surroundings& around) {
    Ran ran;
    Sink out(ran.out);
    Sink err(ran.err);
    Surroundings inside{around.environment, around.currentFolder, around.calledAs, out, err, -1};
    ran.status = run(words, inside);
    return ran;
}

std::vector<std::string> withOption(std::vector<std::string> words, const char* option) {
    words.insert(words.begin() + 1, option);
    return words;
}

std::string errorIn(std::string text) {
    constexpr std::string_view name = "tidewrack: ";
    if (const auto at = text.rfind(name); at != text.npos && (at == 0 || text[at - 1] == '\n'))
        text.erase(at, name.size());
    while (text.ends_with('\n')) text.pop_back();
    return text;
}

json textBlock(std::string_view text) {
    std::string shown = repairedUtf8(text.substr(0, mostText));
    if (text.size() > mostText) {
        if (const auto end = shown.rfind('\n'); end != shown.npos) shown.resize(end);
        shown += "\n[the beginning; there are " + bytesText(static_cast<std::int64_t>(text.size())) + " in all]\n";
    }
    return {{"type", "text"}, {"text", std::move(shown)}};
}

json failure(const std::string& text) {
    return {{"content", json::array({textBlock(text)})}, {"isError", true}};
}

json answered(const json& value, const std::string& warnings) {
    const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
    if (text.size() > mostText)
        return failure("That is too much: " + bytesText(static_cast<std::int64_t>(text.size())) +
                       ". Ask for fewer rows or for some paths only.");
    json result{{"content", json::array({textBlock(text)})}, {"isError", false}, {"structuredContent", value}};
    if (!warnings.empty()) result["content"].push_back(textBlock(warnings));
    return result;
}

} // namespace tidewrack::mcp
