#include "Support/TestFolders.hpp"

#include "Agents/HookEvent.hpp"
#include "Agents/Replies.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>

using namespace tidewrack;
using nlohmann::json;
using tidewrack::testing::inCheckout;

namespace {

std::string readData(const std::string& name) {
    std::string text;
    EXPECT_EQ(readFile(inCheckout("Tests/Data/events/" + name), text), 0) << name;
    return text;
}

HookEvent parsed(Agent agent, const char* object) {
    return parseHookEvent(agent, *parseJson(object), "/w");
}

using Kind = HookEvent::Kind;

Kind kindNamed(const std::string& name) {
    static const std::map<std::string, Kind> kinds = {
        {"prompt", Kind::prompt}, {"shell", Kind::shell},     {"stop", Kind::stop},  {"interrupt", Kind::stop},
        {"edit", Kind::edit},     {"discard", Kind::discard}, {"other", Kind::other}};
    return kinds.at(name);
}

std::optional<std::string> optionalText(const json& value) {
    return value.is_null() ? std::nullopt : std::optional(value.get<std::string>());
}

} // namespace

TEST(Hook, readsTheEventsThatAgentsReallySend) {
    const auto table = parseJson(readData("expected.json"));
    ASSERT_TRUE(table && table->size() > 40);
    for (const json& row : *table) {
        const auto file = row.at("file").get<std::string>();
        SCOPED_TRACE(file);
        const auto agent = agentNamed(row.at("agent").get<std::string>());
        const auto object = parseJson(readData(file));
        ASSERT_TRUE(agent && object);
        HookEvent expected;
        expected.kind = kindNamed(row.at("kind").get<std::string>());
        expected.interrupted = row.at("kind") == "interrupt";
        expected.paths = row.value("paths", std::vector<std::string>());
        expected.name = row.at("name").get<std::string>();
        expected.cwd = row.at("cwd").get<std::string>();
        expected.prompt = optionalText(row.at("prompt"));
        expected.command = optionalText(row.at("command"));
        expected.session = optionalText(row.at("session"));
        expected.turn = optionalText(row.at("turn"));
        EXPECT_EQ(parseHookEvent(*agent, *object, "/fallback"), expected);
    }
}

TEST(Hook, fallsBackWhereAFieldIsMissingOrMistyped) {
    HookEvent empty;
    empty.cwd = "/w";
    for (const Agent agent : allAgents)
        for (const char* text : {"[]", R"({"hook_event_name":3,"cwd":[],"prompt":{},"workspace_roots":"/a"})"})
            EXPECT_EQ(parsed(agent, text), empty) << text;
    EXPECT_EQ(parsed(Agent::cursor, R"({"cwd":"","workspace_roots":["/a","/b"]})").cwd, "/a");
    EXPECT_EQ(parsed(Agent::cursor, R"({"workspace_roots":["/a",1]})").cwd, "/w");
    const auto event = parsed(Agent::claude, R"({"session_id":7,"conversation_id":"c","turn_id":"t"})");
    EXPECT_EQ(event.session, std::nullopt);
    EXPECT_EQ(event.turn, "t");
    EXPECT_EQ(parsed(Agent::codex, R"({"sessionId":"s"})").session, "s");
}

TEST(Hook, tellsKindAndCommandPerAgent) {
    struct Row {
        Agent agent;
        const char* object;
        Kind kind;
        std::optional<std::string> command = std::nullopt;
    };
    const Row rows[] = {
        {Agent::cursor, R"({"hook_event_name":"Stop"})", Kind::other},
        {Agent::claude,
         R"({"hook_event_name":"PreToolUse","tool_name":"Bash","tool_input":{"command":["rm","-rf","x"]}})",
         Kind::shell, "rm -rf x"},
        {Agent::claude, R"({"hook_event_name":"PreToolUse","tool_name":"Bash","tool_input":{"command":["rm",1]}})",
         Kind::other},
        {Agent::claude, R"({"hook_event_name":"PreToolUse","tool_name":"bash","tool_input":{"command":"rm x"}})",
         Kind::other},
        {Agent::codex, R"({"hook_event_name":"PreToolUse","tool_input":{"command":"rm x"}})", Kind::other},
        {Agent::claude, R"({"hook_event_name":"PreToolUse","tool_name":"Bash","command":"rm x"})", Kind::other},
        {Agent::cursor, R"({"hook_event_name":"beforeShellExecution","command":""})", Kind::shell, ""},
    };
    for (const Row& row : rows) {
        const HookEvent event = parsed(row.agent, row.object);
        EXPECT_EQ(event.kind, row.kind) << row.object;
        EXPECT_EQ(event.command, row.command) << row.object;
    }
}

TEST(Hook, readsTheFilesThatAToolNames) {
    struct Row {
        Agent agent;
        const char* tool;
        const char* input;
        std::vector<std::string> paths;
    };
    const Row rows[] = {
        {Agent::claude, "MultiEdit", R"({"file_path":"b/../c"})", {"/w/c"}},
        {Agent::claude, "Read", R"({"file_path":"/a"})", {}},
        {Agent::claude, "Write", R"({"file_path":7})", {}},
        {Agent::claude, "Write", R"({"file_path":"/a\u0000b"})", {}},
        {Agent::claude, "ExitWorktree", R"({"action":"keep"})", {}},
        {Agent::claude, "mcp__files__move_file", R"({"source":"/a","destination":"/b"})", {"/a", "/b"}},
        {Agent::claude, "mcp__write_server__read_file", R"({"path":"/a"})", {}},
        {Agent::claude, "mcp__github__create_file", R"({"path":"src/a"})", {}}, // a path elsewhere
        {Agent::gemini, "mcp_files_write_file", R"({"path":"/a","content":"x"})", {"/a"}},
        {Agent::gemini, "read_file", R"({"file_path":"/a"})", {}},
        {Agent::cursor, "Delete", R"({"path":"/a"})", {"/a"}},
        {Agent::cursor, "Read", R"({"path":"/a"})", {}},
        {Agent::codex,
         "apply_patch",
         R"({"command":["apply_patch","*** Begin Patch\r\n*** Add File: a b \r\n+*** Delete File: no\n*** Move to: /c"]})",
         {"/w/a b", "/c"}},
        {Agent::codex, "apply_patch", R"({"command":"*** Update File: \n"})", {}},
    };
    for (const Row& row : rows) {
        const char* name = row.agent == Agent::gemini   ? "BeforeTool"
                           : row.agent == Agent::cursor ? "preToolUse"
                                                        : "PreToolUse";
        const json object{{"hook_event_name", name}, {"tool_name", row.tool}, {"tool_input", json::parse(row.input)}};
        const HookEvent event = parseHookEvent(row.agent, object, "/w");
        EXPECT_EQ(event.paths, row.paths) << row.tool << row.input;
        EXPECT_EQ(event.kind, row.paths.empty() ? Kind::other : Kind::edit) << row.tool << row.input;
    }
}

TEST(Hook, geminiNamesTheCommandsOwnFolder) {
    for (const auto& [dirPath, folder] :
         {std::pair(R"("src/lib/")", "/p/q/src/lib"), {R"("../r")", "/p/r"}, {R"("/else")", "/else"}, {"5", "/p/q"}}) {
        const std::string object = R"({"cwd":"/p/q","hook_event_name":"BeforeTool","tool_name":"run_shell_command",)"
                                   R"("tool_input":{"command":"ls","dir_path":)";
        EXPECT_EQ(parsed(Agent::gemini, (object + dirPath + "}}").c_str()).cwd, folder);
    }
}

TEST(Replies, speakEachAgentsLanguage) {
    EXPECT_EQ(denyReply(Agent::cursor, "a/b"),
              (HookOutput{R"({"agent_message":"a\/b","permission":"deny","user_message":"a\/b"})", std::nullopt, 0}));

    EXPECT_EQ(
        askReply(Agent::claude, Kind::shell, "m\n\"").standardOutput,
        R"({"hookSpecificOutput":{"hookEventName":"PreToolUse","permissionDecision":"ask","permissionDecisionReason":"m\n\""}})");
    EXPECT_EQ(askReply(Agent::cursor, Kind::shell, "m").standardOutput,
              R"({"agent_message":"m","permission":"ask","user_message":"m"})");
    for (const Agent agent : {Agent::codex, Agent::gemini})
        EXPECT_EQ(askReply(agent, Kind::shell, "m").standardError,
                  "m This agent can't ask you from a hook, so Tidewrack refused; run it yourself if you meant it.");
    EXPECT_NE(askReply(Agent::cursor, Kind::edit, "m").standardOutput->find("\"deny\""), std::string::npos);
}
