#include "Agents/FileTools.hpp"

#include "Agents/HookEvent.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack {

namespace {

using nlohmann::json;

struct FileTool {
    Agent agent;
    std::string_view name;
};

// Codex's apply_patch, which names its files inside a text, is apart.
constexpr FileTool fileTools[] = {
    {Agent::claude, "Write"},        {Agent::claude, "Edit"},        {Agent::claude, "MultiEdit"},
    {Agent::claude, "NotebookEdit"}, {Agent::cursor, "Write"},       {Agent::cursor, "Edit"},
    {Agent::cursor, "Delete"},       {Agent::gemini, "write_file"},  {Agent::gemini, "replace"},
    {Agent::copilot, "Write"},       {Agent::copilot, "Edit"},       {Agent::qwen, "write_file"},
    {Agent::qwen, "edit"},           {Agent::qwen, "notebook_edit"}, {Agent::opencode, "write"},
    {Agent::opencode, "edit"},       {Agent::droid, "Create"},       {Agent::droid, "Write"},
    {Agent::droid, "Edit"},          {Agent::droid, "MultiEdit"},
};

// What tools call the files that they work on.
constexpr const char* pathKeys[] = {"file_path", "notebook_path", "target_file", "filePath",
                                    "path",      "source",        "destination"};

// Words in the names of servers' tools that change something. A tool that reads must not pass for one that writes.
constexpr std::string_view changingWords[] = {"write",   "edit",   "create", "move",   "delete", "remove", "rename",
                                              "replace", "append", "patch",  "insert", "update", "save",   "copy"};

bool isFileTool(Agent agent, std::string_view tool) {
    return std::any_of(std::begin(fileTools), std::end(fileTools),
                       [&](const FileTool& known) { return known.agent == agent && known.name == tool; });
}

// A tool of a server of the Model Context Protocol: "mcp__server__write_file", in gemini "mcp_server_write_file", in
// copilot "server-write_file".
bool isChangingServerTool(Agent agent, std::string_view tool) {
    const bool isCopilot = agent == Agent::copilot;
    const auto begin = isCopilot ? tool.find('-') : tool.rfind("__");
    if (isCopilot ? begin == tool.npos : !tool.starts_with("mcp_")) return false;
    const std::string name = lowercased(begin == tool.npos ? tool : tool.substr(begin));
    return std::any_of(std::begin(changingWords), std::end(changingWords),
                       [&](std::string_view word) { return name.find(word) != name.npos; });
}

std::vector<std::string> namedPaths(const json& input) {
    std::vector<std::string> paths;
    for (const char* key : pathKeys) {
        const auto found = input.find(key);
        if (found != input.end() && found->is_string()) paths.push_back(found->get<std::string>());
    }
    return paths;
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

std::vector<std::string> filesChangedBy(Agent agent, std::string_view tool, const json* toolInput,
                                        std::string_view cwd) {
    if (!toolInput || !toolInput->is_object()) return {};
    std::vector<std::string> named;
    bool relative = true; // a server's relative path may be one in a repository elsewhere
    if (agent == Agent::codex && tool == "apply_patch") {
        named = filesInPatch(shellCommand(toolInput, CommandWords::plain).value_or(""));
    } else if (isFileTool(agent, tool)) {
        named = namedPaths(*toolInput);
    } else if (isChangingServerTool(agent, tool)) {
        named = namedPaths(*toolInput);
        relative = false;
    }
    std::vector<std::string> files;
    for (const std::string& path : named) {
        if (path.empty() || path.find('\0') != path.npos || (!relative && !path.starts_with('/'))) continue;
        std::string file = absolutePath(path, absolutePath(cwd, "/"));
        if (std::find(files.begin(), files.end(), file) == files.end()) files.push_back(std::move(file));
    }
    return files;
}

} // namespace tidewrack
