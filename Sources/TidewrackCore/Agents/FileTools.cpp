#include "Agents/FileTools.hpp"

#include "Agents/HookEvent.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>

namespace tidewrack {

namespace {

using nlohmann::json;

struct FileTool {
    Agent agent;
    std::string_view name;
};

// Those that name their files inside a patch are apart.
constexpr FileTool fileTools[] = {
    {Agent::claude, "Write"},        {Agent::claude, "Edit"},        {Agent::claude, "MultiEdit"},
    {Agent::claude, "NotebookEdit"}, {Agent::cursor, "Write"},       {Agent::cursor, "Edit"},
    {Agent::cursor, "Delete"},       {Agent::gemini, "write_file"},  {Agent::gemini, "replace"},
    {Agent::copilot, "Write"},       {Agent::copilot, "Edit"},       {Agent::qwen, "write_file"},
    {Agent::qwen, "edit"},           {Agent::qwen, "notebook_edit"}, {Agent::opencode, "write"},
    {Agent::opencode, "edit"},       {Agent::opencode, "multiedit"}, {Agent::droid, "Create"},
    {Agent::droid, "Write"},         {Agent::droid, "Edit"},         {Agent::droid, "MultiEdit"},
};

// What tools call the files that they work on.
constexpr const char* pathKeys[] = {"file_path", "notebook_path", "target_file", "filePath",   "path",
                                    "file",      "uri",           "source",      "destination"};
// And lists of them, or of objects that name one each.
constexpr const char* listKeys[] = {"paths", "files", "file_paths", "edits"};

// Words in the names of servers' tools that change something. A tool that reads must not pass for one that writes.
constexpr std::string_view removingWords[] = {"delete", "remove", "trash"};
constexpr std::string_view movingWords[] = {"move", "rename"};
constexpr std::string_view changingWords[] = {"write",  "edit",   "create", "replace", "append",   "patch",
                                              "insert", "update", "save",   "copy",    "truncate", "put_file"};

bool isFileTool(Agent agent, std::string_view tool) {
    return std::any_of(std::begin(fileTools), std::end(fileTools),
                       [&](const FileTool& known) { return known.agent == agent && known.name == tool; });
}

template <std::size_t size>
bool holdsAny(std::string_view name, const std::string_view (&words)[size]) {
    return std::any_of(std::begin(words), std::end(words),
                       [&](std::string_view word) { return name.find(word) != name.npos; });
}

// What a tool of a server of the Model Context Protocol does, by its name: "mcp__server__write_file", in gemini
// "mcp_server_write_file", in copilot "server-write_file".
std::optional<shell::FileAct> actOfServerTool(Agent agent, std::string_view tool) {
    const bool isCopilot = agent == Agent::copilot;
    const auto begin = isCopilot ? tool.find('-') : tool.rfind("__");
    if (isCopilot ? begin == tool.npos : !tool.starts_with("mcp_")) return std::nullopt;
    const std::string name = lowercased(begin == tool.npos ? tool : tool.substr(begin));
    if (holdsAny(name, removingWords)) return shell::FileAct::removes;
    if (holdsAny(name, movingWords)) return shell::FileAct::moves;
    return holdsAny(name, changingWords) ? std::optional(shell::FileAct::writes) : std::nullopt;
}

void addPath(const json& value, std::vector<std::string>& paths) {
    if (!value.is_string()) return;
    std::string path = value.get<std::string>();
    if (path.starts_with("file:///")) path.erase(0, std::string_view("file://").size());
    paths.push_back(std::move(path));
}

std::vector<std::string> namedPaths(const json& input) {
    std::vector<std::string> paths;
    const auto addNamed = [&](const json& object) {
        for (const char* key : pathKeys)
            if (const auto found = object.find(key); found != object.end()) addPath(*found, paths);
    };
    addNamed(input);
    for (const char* key : listKeys) {
        const auto list = input.find(key);
        if (list == input.end() || !list->is_array()) continue;
        for (const json& item : *list) {
            addPath(item, paths);
            if (item.is_object()) addNamed(item);
        }
    }
    return paths;
}

// The patch that the tool is given; none for a tool of another kind.
std::optional<std::string> patchFor(Agent agent, std::string_view tool, const json& input) {
    if (agent == Agent::codex && tool == "apply_patch") return shellCommand(&input, CommandWords::plain);
    if (agent != Agent::opencode || (tool != "apply_patch" && tool != "patch")) return std::nullopt;
    const auto text = input.find("patchText");
    return text != input.end() && text->is_string() ? std::optional(text->get<std::string>()) : std::nullopt;
}

} // namespace

std::vector<std::string> filesInPatch(std::string_view patch) {
    constexpr std::string_view headings[] = {
        "*** Add File: ", "*** Update File: ", "*** Delete File: ", "*** Move to: "};
    std::vector<std::string> paths;
    while (!patch.empty()) {
        std::string_view line = patch.substr(0, patch.find('\n'));
        patch.remove_prefix(std::min(patch.size(), line.size() + 1));
        while (line.ends_with('\r') || line.ends_with(' ')) line.remove_suffix(1);
        for (const std::string_view heading : headings)
            if (line.starts_with(heading)) paths.emplace_back(line.substr(heading.size()));
    }
    return paths;
}

ChangedFiles filesChangedBy(Agent agent, std::string_view tool, const json* toolInput, std::string_view cwd,
                            std::string_view home) {
    if (!toolInput || !toolInput->is_object()) return {};
    ChangedFiles changed;
    std::vector<std::string> named;
    bool relative = true; // a server's relative path may be one in a repository elsewhere
    if (const auto patch = patchFor(agent, tool, *toolInput)) {
        named = filesInPatch(*patch);
    } else if (isFileTool(agent, tool)) {
        named = namedPaths(*toolInput);
    } else if (const auto act = actOfServerTool(agent, tool)) {
        changed.act = *act;
        named = namedPaths(*toolInput);
        relative = false;
    }
    const auto add = [&files = changed.paths](std::string file) {
        if (std::find(files.begin(), files.end(), file) == files.end()) files.push_back(std::move(file));
    };
    for (const std::string& path : named) {
        if (path.empty() || path.find('\0') != path.npos) continue;
        if (path.starts_with("~/") && !home.empty()) add(absolutePath(path.substr(2), home));
        if (relative || path.starts_with('/')) add(absolutePath(path, absolutePath(cwd, "/")));
    }
    return changed;
}

} // namespace tidewrack
