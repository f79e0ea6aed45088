#include "Mcp/Tools.hpp"

#include "Mcp/Answers.hpp"
#include "Mcp/Plan.hpp"
#include "Platform/Process.hpp"
#include "SnapshotWord.hpp"
#include "Store/Store.hpp"
#include "Support/Errors.hpp"
#include "Support/Json.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack::mcp {

namespace {

using nlohmann::json;
using Words = std::vector<std::string>;

std::string textOf(const json& arguments, const char* key) {
    const json& value = arguments.at(key);
    return value.is_string() ? value.get<std::string>() : value.dump();
}

void addOption(Words& words, const json& arguments, const char* key, const char* option) {
    if (arguments.contains(key)) words.insert(words.end(), {option, textOf(arguments, key)});
}

void addFlag(Words& words, const json& arguments, const char* key, const char* option) {
    if (arguments.value(key, false)) words.emplace_back(option);
}

// Behind "--" no path is taken for an option.
void addPaths(Words& words, const json& arguments) {
    words.emplace_back("--");
    if (!arguments.contains("paths")) return;
    for (const json& path : arguments["paths"]) words.push_back(path.get<std::string>());
}

Words timelineWords(const json& arguments) {
    Words words{"timeline"};
    addOption(words, arguments, "limit", "-n");
    addOption(words, arguments, "agent", "--agent");
    addOption(words, arguments, "session", "--session");
    return words;
}

Words showWords(const json& arguments) {
    Words words{"show"};
    if (arguments.contains("turn")) words.push_back(textOf(arguments, "turn"));
    return words;
}

Words diffWords(const json& arguments) {
    Words words{"diff", textOf(arguments, "from")};
    if (arguments.contains("to")) words.push_back(textOf(arguments, "to"));
    addPaths(words, arguments);
    return words;
}

Words findWords(const json& arguments) {
    Words words{"find"};
    addFlag(words, arguments, "deleted", "--deleted");
    words.insert(words.end(), {"--", textOf(arguments, "text")});
    return words;
}

Words catWords(const json& arguments) {
    return {"cat", textOf(arguments, "snapshot"), "--", textOf(arguments, "path")};
}

Words versionsWords(const json& arguments) {
    Words words{"log"};
    addOption(words, arguments, "limit", "-n");
    words.insert(words.end(), {"--", textOf(arguments, "path")});
    return words;
}

Words statusWords(const json&) {
    return {"status"};
}

Words restoreWords(const json& arguments) {
    Words words{"restore", textOf(arguments, "snapshot")};
    addFlag(words, arguments, "keep_new", "--keep-new");
    addPaths(words, arguments);
    return words;
}

// Only what is in the project that is served.
Words undoWords(const json& arguments) {
    Words words{"undo", "--here"};
    if (arguments.contains("turn"))
        addOption(words, arguments, "turn", "--turn");
    else
        words.emplace_back("--last");
    addFlag(words, arguments, "keep_later", "--keep-later");
    addPaths(words, arguments);
    return words;
}

constexpr Tool table[] = {
    {.name = "timeline",
     .title = "What happened",
     .description = "What happened in this project, newest first: agents' turns with their prompts, changes by others, "
                    "restores. Any number from `first` to `last` names a turn.",
     .properties =
         R"json({"limit": {"type": "integer", "minimum": 1, "description": "at most so many rows (default 20)"},
        "agent": {"type": "string", "description": "only turns of this agent, such as claude"},
        "session": {"type": "string", "description": "only turns of this session; its beginning is enough"}})json",
     .words = timelineWords},
    {.name = "show",
     .title = "What a turn did",
     .description =
         "What one turn changed in all, and the commands that were run in it. With `patch` also line by line.",
     .properties =
         R"json({"turn": {"type": "integer", "minimum": 1, "description": "any snapshot of the turn (default: the newest turn)"},
        "patch": {"type": "boolean", "description": "also a patch of what changed"}})json",
     .words = showWords},
    {.name = "diff",
     .title = "What changed between two snapshots",
     .description =
         "The paths that were added, modified and deleted from one snapshot to another, or to the folder as it "
         "is now. With `patch` also line by line.",
     .properties = R"json({"from": {"$ref": "#/$defs/snapshot"}, "to": {"$ref": "#/$defs/snapshot"},
        "paths": {"$ref": "#/$defs/paths"}, "patch": {"type": "boolean", "description": "also a patch of what changed"}})json",
     .required = R"(["from"])",
     .words = diffWords},
    {.name = "find",
     .title = "Where a path was",
     .description = "Where a path was in any snapshot, when it went and in which turn, and what brings it back.",
     .properties =
         R"json({"text": {"type": "string", "minLength": 1, "description": "a part of the path, or a pattern such as *.c"},
        "deleted": {"type": "boolean", "description": "only what the folder has no longer"}})json",
     .required = R"(["text"])",
     .words = findWords},
    {.name = "cat",
     .title = "A file as it was",
     .description = "The text of a file as a snapshot holds it.",
     .properties = R"json({"snapshot": {"$ref": "#/$defs/snapshot"},
        "path": {"type": "string", "minLength": 1, "description": "relative to the project's root"}})json",
     .required = R"(["snapshot", "path"])",
     .words = catWords},
    {.name = "versions",
     .title = "The versions of a path",
     .description =
         "The snapshots after which a file or folder changed, newest first, also under the names that a file "
         "had before. With `patch` also what changed each time.",
     .properties = R"json({"path": {"type": "string", "minLength": 1, "description": "relative to the project's root"},
        "limit": {"type": "integer", "minimum": 1, "description": "at most so many (default 20)"},
        "patch": {"type": "boolean", "description": "also a patch for each"}})json",
     .required = R"(["path"])",
     .words = versionsWords},
    {.name = "status",
     .title = "Whether the history works",
     .description = "Whether this folder's history works, what it holds, and what mends what is wrong.",
     .properties = "{}",
     .words = statusWords},
    {.name = "restore",
     .title = "Put paths back",
     .description =
         "Puts some paths, or without `paths` the whole folder, back as a snapshot holds them. Without `plan` "
         "it only tells what it would do and gives the identifier of that plan; with the same arguments and "
         "that `plan` it does so, after a safety snapshot. A plan that would be another one by now is refused.",
     .properties = R"json({"snapshot": {"type": "integer", "minimum": 1, "description": "the snapshot's number"},
        "paths": {"$ref": "#/$defs/paths"},
        "keep_new": {"type": "boolean", "description": "leave what was added since"},
        "plan": {"type": "string", "description": "the plan that was told, to carry it out"}})json",
     .required = R"(["snapshot"])",
     .changes = true,
     .words = restoreWords},
    {.name = "undo",
     .title = "Take a turn back",
     .description =
         "Takes back what a turn changed in this project, or some paths of it; what was changed since stays. "
         "Without `plan` it only tells what it would do and gives the identifier of that plan; with the same "
         "arguments and that `plan` it does so, after a safety snapshot. A plan that would be another one by "
         "now is refused.",
     .properties = R"json({"turn": {"type": "integer", "minimum": 1,
            "description": "any snapshot of the turn (default: the newest turn that changed something)"},
        "paths": {"$ref": "#/$defs/paths"},
        "keep_later": {"type": "boolean", "description": "leave paths alone that were changed since"},
        "plan": {"type": "string", "description": "the plan that was told, to carry it out"}})json",
     .changes = true,
     .words = undoWords},
};

// What several schemas share.
json definitions() {
    return json::parse(R"({
        "snapshot": {"anyOf": [{"type": "integer"}, {"type": "string"}], "description":
            "a snapshot's number, `last`, `last-turn`, or a time such as 2h, yesterday, 14:00 or 2026-11-19T13:40"},
        "paths": {"type": "array", "minItems": 1, "items": {"type": "string", "minLength": 1},
            "description": "files or folders, relative to the project's root"}})");
}

bool isSnapshot(const json& value) {
    if (value.is_string()) return snapshotWord(value.get<std::string>(), now()).has_value();
    return value.is_number_integer() && value >= 0;
}

// A command's words and names of files have no NUL.
bool isWord(const json& value, std::size_t leastLength) {
    if (!value.is_string()) return false;
    const auto& text = value.get_ref<const std::string&>();
    return text.size() >= leastLength && text.find('\0') == std::string::npos;
}

bool fits(const json& value, const json& schema) {
    if (schema.contains("$ref")) {
        if (schema["$ref"] == "#/$defs/snapshot") return isSnapshot(value);
        const auto isPath = [](const json& path) { return isWord(path, 1); };
        return value.is_array() && !value.empty() && std::all_of(value.begin(), value.end(), isPath);
    }
    const std::string type = schema["type"];
    if (type == "boolean") return value.is_boolean();
    if (type == "integer") return value.is_number_integer() && value >= schema.value("minimum", 0);
    return isWord(value, schema.value("minLength", 0U));
}

// A text with a NUL is none, as `diff` has it.
bool isText(const std::string& bytes) {
    return isUtf8(bytes) && bytes.find('\0') == std::string::npos;
}

// `cat` prints bytes.
json contents(const Words& words, const Surroundings& around) {
    const Ran ran = runInside(words, around);
    if (ran.status != 0) return failure(errorIn(ran.err));
    if (!isText(ran.out))
        return failure(words.back() + " is no text: " + bytesText(static_cast<std::int64_t>(ran.out.size())) +
                       ". `restore` and `tidewrack export` write it as it was.");
    return {{"content", json::array({textBlock(ran.out)})}, {"isError", false}};
}

} // namespace

std::span<const Tool> toolTable() {
    return table;
}

json describe(const Tool& tool) {
    json schema{{"type", "object"},
                {"properties", json::parse(tool.properties)},
                {"required", json::parse(tool.required)},
                {"additionalProperties", false}};
    if (tool.properties.find("$ref") != tool.properties.npos) schema["$defs"] = definitions();
    return {{"name", tool.name},
            {"title", tool.title},
            {"description", tool.description},
            {"inputSchema", std::move(schema)},
            {"annotations",
             {{"readOnlyHint", !tool.changes},
              {"destructiveHint", tool.changes},
              {"idempotentHint", !tool.changes},
              {"openWorldHint", false}}}};
}

std::string unfit(const Tool& tool, const json& arguments) {
    const std::string name(tool.name);
    if (!arguments.is_object()) return name + " takes an object of arguments";
    const json properties = json::parse(tool.properties);
    for (const auto& [key, value] : arguments.items()) {
        if (!properties.contains(key)) return name + " has no argument " + key;
        if (!fits(value, properties[key])) return name + ": " + key + " does not fit its schema";
    }
    for (const json& key : json::parse(tool.required))
        if (!arguments.contains(key)) return name + " needs the argument " + key.get<std::string>();
    return "";
}

json call(const Tool& tool, const json& arguments, const Surroundings& around) {
    Surroundings inside = around;
    try {
        if (const auto project = Store::fromEnvironment(around.environment).projectContaining(around.currentFolder))
            inside.currentFolder = project->root; // paths count from there
        const Words words = tool.words(arguments);
        if (tool.name == "cat") return contents(words, inside);
        if (tool.changes) return planOrDo(words, arguments.value("plan", std::string()), inside);
        Ran ran = runInside(withOption(words, "--json"), inside);
        auto value = parseJson(ran.out);
        if (!value) return failure(errorIn(ran.err));
        if (value->is_array()) value = json{{"snapshots", std::move(*value)}}; // the protocol wants an object
        json result = answered(*value, ran.err);
        if (!arguments.value("patch", false)) return result;
        const Ran patch = runInside(tool.name == "show" ? words : withOption(words, "--patch"), inside);
        if (patch.status != 0) return failure(errorIn(patch.err));
        result["content"].push_back(textBlock(patch.out));
        return result;
    } catch (const TidewrackError& error) {
        return failure(error.what());
    }
}

} // namespace tidewrack::mcp
