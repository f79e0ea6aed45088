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
    if (found->second.find('\0') != std::string::npos) throw BadRequest(std::string(name) + " holds a NUL");
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

std::uint64_t valueIn(const json& wish, const char* name) {
    const json& value = member(wish, name);
    if (!value.is_number_unsigned()) throw BadRequest(std::string(name) + " is no number");
    return value.get<std::uint64_t>();
}

std::string numberIn(const json& wish, const char* name) {
    return std::to_string(valueIn(wish, name));
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

std::vector<ChosenHunk> hunksIn(const json& wish) {
    std::vector<ChosenHunk> hunks;
    if (!wish.contains("hunks")) return hunks;
    if (!wish["hunks"].is_array() || wish["hunks"].empty()) throw BadRequest("hunks is no list of hunks");
    for (const json& each : wish["hunks"]) {
        if (!each.is_object()) throw BadRequest("a hunk is told by its number and its digest");
        hunks.push_back({valueIn(each, "number"), textIn(each, "digest")});
        if (hunks.back().digest.find_first_not_of("0123456789abcdef") != std::string::npos)
            throw BadRequest("a hunk's digest is none");
    }
    return hunks;
}

Act actBy(Words words, bool hasDryRun = true) {
    Act act;
    act.command.words = std::move(words);
    act.hasDryRun = hasDryRun;
    return act;
}

// A turn where one is named, else what lies between two snapshots.
Act undoOf(const json& wish) {
    const bool isTurn = wish.contains("turn");
    Words words{"undo"};
    if (isTurn)
        words.insert(words.end(), {"--turn", numberIn(wish, "turn")});
    else
        words.push_back(numberIn(wish, "from") + ".." + numberIn(wish, "to"));
    const Words paths = pathsIn(wish);
    Act act;
    act.hunks = hunksIn(wish);
    if (!act.hunks.empty()) {
        if (paths.size() != 2) throw BadRequest("hunks are of one path");
        std::string names;
        for (const ChosenHunk& hunk : act.hunks)
            names += (names.empty() ? "" : ",") + std::to_string(hunk.number) + ":" + hunk.digest;
        words.insert(words.end(), {"--hunk", names});
        act.hunkLines.words = isTurn ? Words{"show", "--lines", numberIn(wish, "turn")}
                                     : Words{"diff", "--lines", numberIn(wish, "from"), numberIn(wish, "to")};
        act.hunkLines.words = joined(std::move(act.hunkLines.words), paths);
    }
    act.command.words = joined(std::move(words), paths);
    return act;
}

} // namespace

std::string CommandWords::shown() const {
    std::string text = "tidewrack";
    for (const std::string& word : words) {
        if (word != "--lines" || words[0] == "find")
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
    options.insert(options.end(), part.begin(), part.end());
    if (words[0] != "vault") options.push_back("--project=" + root);
    all.insert(end, std::make_move_iterator(options.begin()), std::make_move_iterator(options.end()));
    return all;
}

std::optional<CommandWords> reading(std::string_view name, const Values& values) {
    if (name == "timeline") return CommandWords{timelineWords(values)};
    if (name == "show") return CommandWords{{"show", numberAt(values, "turn")}};
    if (name == "elsewhere") return CommandWords{{"undo", "--turn", numberAt(values, "turn"), "--dry-run"}};
    if (name == "changes") return CommandWords{joined({"diff"}, ends(values))};
    if (name == "lines") return linesOf(values);
    if (name == "content") return CommandWords{{"cat", numberAt(values, "seq"), "--", given(values, "path")}, false};
    if (name == "log")
        return CommandWords{
            joined({"log", "-n", "1000000"}, values.contains("path") ? Words{"--", given(values, "path")} : Words{})};
    if (name == "find") return CommandWords{{"find", "--", given(values, "text")}};
    if (name == "search")
        return CommandWords{{"find", "--lines", "--", given(values, "text")},
                            true,
                            {"-n", numberAt(values, "n"), "--skip", numberAt(values, "skip")}};
    if (name == "vault") return CommandWords{{"vault"}};
    if (name == "status") return CommandWords{{"status"}};
    return std::nullopt;
}

Act actOf(const json& wish) {
    if (!wish.is_object()) throw BadRequest("no act");
    const std::string name = textIn(wish, "act");
    if (name == "undo") return undoOf(wish);
    if (name == "redo") return actBy({"redo"});
    if (name == "restore") {
        const Words paths = pathsIn(wish); // never the whole folder by an omission
        if (paths.empty()) throw BadRequest("paths is missing");
        return actBy(joined({"restore", numberIn(wish, "seq")}, paths));
    }
    if (name == "putback") return actBy({"vault", "restore", "--", textIn(wish, "id")});
    if (name == "pin" || name == "unpin") return actBy({name, numberIn(wish, "seq")}, false);
    if (name == "label") return actBy({"snap", "--label=" + textIn(wish, "label")}, false);
    throw BadRequest("unknown act " + name);
}

} // namespace tidewrack::page
