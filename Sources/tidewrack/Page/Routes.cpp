#include "Page/Routes.hpp"

#include "Reports/PathWords.hpp"
#include "Store/History.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>

namespace tidewrack::page {

namespace {

using nlohmann::json;
using Words = std::vector<std::string>;

const std::string& given(const Values& values, std::string_view name) {
    const auto found = values.find(name);
    if (found == values.end() || found->second.empty()) throw BadRequest(std::string(name) + " is missing");
    return found->second;
}

std::string number(const std::string& text) {
    const auto value = parseSeq(text);
    if (!value) throw BadRequest("no number: " + text);
    return std::to_string(*value);
}

std::string numberAt(const Values& values, std::string_view name) {
    return number(given(values, name));
}

// "A", or "A B" where an end is given: a difference without one goes on until now.
Words ends(const Values& values) {
    Words words{numberAt(values, "from")};
    if (values.contains("to")) words.push_back(numberAt(values, "to"));
    return words;
}

Words joined(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

Words timelineWords(const Values& values) {
    Words words{"timeline", "-n", numberAt(values, "n")};
    for (const char* name : {"agent", "session"})
        if (values.contains(name)) words.push_back("--" + std::string(name) + "=" + given(values, name));
    return words;
}

CommandWords linesOf(const Values& values) {
    const Words path = values.contains("path") ? Words{"--", given(values, "path")} : Words{};
    if (values.contains("turn")) return {joined({"show", "--lines", numberAt(values, "turn")}, path)};
    return {joined(joined({"diff", "--lines"}, ends(values)), path)};
}

const json& member(const json& wish, const char* name) {
    const auto found = wish.find(name);
    if (found == wish.end()) throw BadRequest(std::string(name) + " is missing");
    return *found;
}

std::string numberIn(const json& wish, const char* name) {
    const json& value = member(wish, name);
    if (!value.is_number_unsigned()) throw BadRequest(std::string(name) + " is no number");
    return std::to_string(value.get<std::uint64_t>());
}

std::string textIn(const json& wish, const char* name) {
    const json& value = member(wish, name);
    if (!value.is_string() || value.get_ref<const std::string&>().empty())
        throw BadRequest(std::string(name) + " is no text");
    return value.get<std::string>();
}

// Behind "--", where nothing is taken for an option.
Words pathsIn(const json& wish) {
    if (!wish.contains("paths")) return {};
    const json& list = member(wish, "paths");
    if (!list.is_array() || list.empty()) throw BadRequest("paths is no list of paths");
    Words words{"--"};
    for (const json& path : list) {
        if (!path.is_string() || path.get_ref<const std::string&>().empty()) throw BadRequest("a path is no text");
        words.push_back(path.get<std::string>());
    }
    return words;
}

std::string hunksIn(const json& wish) {
    std::string text;
    for (const json& each : member(wish, "hunks")) {
        if (!each.is_number_unsigned()) throw BadRequest("a hunk is no number");
        text += (text.empty() ? "" : ",") + std::to_string(each.get<std::uint64_t>());
    }
    if (text.empty()) throw BadRequest("hunks is no list of numbers");
    return text;
}

// A turn where one is named, else what lies between two snapshots.
Words undoWords(const json& wish) {
    Words words{"undo"};
    if (wish.contains("turn"))
        words.insert(words.end(), {"--turn", numberIn(wish, "turn")});
    else
        words.push_back(numberIn(wish, "from") + ".." + numberIn(wish, "to"));
    if (wish.contains("hunks")) words.insert(words.end(), {"--hunk", hunksIn(wish)});
    return joined(std::move(words), pathsIn(wish));
}

} // namespace

std::string CommandWords::shown() const {
    std::string text = "tidewrack";
    for (const std::string& word : words) {
        if (word != "--lines")
            text += " " + shellWord(word);
        else if (words[0] == "diff")
            text += " --patch"; // show prints one anyway
    }
    return text;
}

std::vector<std::string> CommandWords::forProject(const std::string& root) const {
    Words all{words};
    const auto end = std::find(all.begin(), all.end(), "--"); // what is behind it is no option
    Words options;
    if (isJson) options.emplace_back("--json");
    if (words[0] != "vault") options.push_back("--project=" + root);
    all.insert(end, std::make_move_iterator(options.begin()), std::make_move_iterator(options.end()));
    return all;
}

std::optional<CommandWords> reading(std::string_view name, const Values& values) {
    if (name == "timeline") return CommandWords{timelineWords(values)};
    if (name == "show") return CommandWords{{"show", numberAt(values, "turn")}};
    if (name == "changes") return CommandWords{joined({"diff"}, ends(values))};
    if (name == "lines") return linesOf(values);
    if (name == "content") return CommandWords{{"cat", numberAt(values, "seq"), "--", given(values, "path")}, false};
    if (name == "log")
        return CommandWords{
            joined({"log", "-n", "1000000"}, values.contains("path") ? Words{"--", given(values, "path")} : Words{})};
    if (name == "find") return CommandWords{{"find", "--", given(values, "text")}};
    if (name == "vault") return CommandWords{{"vault"}};
    if (name == "status") return CommandWords{{"status"}};
    return std::nullopt;
}

Act actOf(const json& wish) {
    if (!wish.is_object()) throw BadRequest("no act");
    const std::string name = textIn(wish, "act");
    if (name == "undo") return {{undoWords(wish)}};
    if (name == "redo") return {{{"redo"}}};
    if (name == "restore") {
        const Words paths = pathsIn(wish); // never the whole folder by an omission
        if (paths.empty()) throw BadRequest("paths is missing");
        return {{joined({"restore", numberIn(wish, "seq")}, paths)}};
    }
    if (name == "putback") return {{{"vault", "restore", "--", textIn(wish, "id")}}};
    if (name == "pin" || name == "unpin") return {{{name, numberIn(wish, "seq")}}, false};
    if (name == "label") return {{{"snap", "--label=" + textIn(wish, "label")}}, false};
    throw BadRequest("unknown act " + name);
}

} // namespace tidewrack::page
