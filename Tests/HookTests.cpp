#include "Support/TestFolders.hpp"

#include "Agents/HookEvent.hpp"
#include "Agents/HookHandler.hpp"
#include "Agents/HookLog.hpp"
#include "Agents/Replies.hpp"
#include "Platform/Descriptor.hpp"
#include "Store/EditLog.hpp"
#include "Support/Json.hpp"
#include "Support/Text.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <map>
#include <regex>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;
using std::chrono::steady_clock;

namespace {

HookEvent parsed(Agent agent, const char* object) {
    return parseHookEvent(agent, *parseJson(object), "/w", "/home/ann");
}

using Kind = HookEvent::Kind;

Kind kindNamed(const std::string& name) {
    static const std::map<std::string, Kind> kinds = {
        {"prompt", Kind::prompt}, {"shell", Kind::shell}, {"stop", Kind::stop},       {"interrupt", Kind::stop},
        {"end", Kind::stop},      {"edit", Kind::edit},   {"discard", Kind::discard}, {"other", Kind::other}};
    return kinds.at(name);
}

std::optional<std::string> optionalText(const json& value) {
    return value.is_null() ? std::nullopt : std::optional(value.get<std::string>());
}

} // namespace

TEST(Hook, readsTheEventsThatAgentsReallySend) {
    const auto table = parseJson(testData("events/expected.json"));
    ASSERT_TRUE(table && table->size() > 40);
    for (const json& row : *table) {
        const auto file = row.at("file").get<std::string>();
        SCOPED_TRACE(file);
        const auto agent = agentNamed(row.at("agent").get<std::string>());
        const auto object = parseJson(testData("events/" + file));
        ASSERT_TRUE(agent && object);
        HookEvent expected;
        expected.kind = kindNamed(row.at("kind").get<std::string>());
        expected.interrupted = row.at("kind") == "interrupt";
        expected.endsSession = row.at("kind") == "end";
        expected.paths = row.value("paths", std::vector<std::string>());
        expected.name = row.at("name").get<std::string>();
        expected.cwd = row.at("cwd").get<std::string>();
        expected.prompt = optionalText(row.at("prompt"));
        expected.command = optionalText(row.at("command"));
        expected.session = optionalText(row.at("session"));
        expected.turn = optionalText(row.at("turn"));
        EXPECT_EQ(parseHookEvent(*agent, *object, "/fallback", "/home/ann"), expected);
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
    for (const json& row : json::parse(testData("kinds-and-commands.json"))) {
        const HookEvent event =
            parsed(agentNamed(row.at("agent").get<std::string>()).value(), row.at("object").dump().c_str());
        EXPECT_EQ(event.kind, kindNamed(row.at("kind").get<std::string>())) << row;
        EXPECT_EQ(event.command, optionalText(row.at("command"))) << row;
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
        {Agent::claude, "Write", R"({"file_path":"~/a"})", {"/home/ann/a", "/w/~/a"}},
        {Agent::claude, "mcp__files__write_file", R"({"path":"~/a"})", {"/home/ann/a"}},
        {Agent::claude, "Write", R"({"file_path":7})", {}},
        {Agent::claude, "Write", R"({"file_path":"/a\u0000b"})", {}},
        {Agent::claude, "ExitWorktree", R"({"action":"keep"})", {}},
        {Agent::claude, "mcp__files__move_file", R"({"source":"/a","destination":"/b"})", {"/a", "/b"}},
        {Agent::claude, "mcp__write_server__read_file", R"({"path":"/a"})", {}},
        {Agent::claude, "mcp__github__create_file", R"({"path":"src/a"})", {}}, // a path elsewhere
        {Agent::gemini, "mcp_files_write_file", R"({"path":"/a","content":"x"})", {"/a"}},
        {Agent::gemini, "read_file", R"({"file_path":"/a"})", {}},
        {Agent::copilot, "write-read_file", R"({"path":"/a"})", {}},
        {Agent::copilot, "my-files-move-file", R"({"source":"/a","destination":"/b"})", {"/a", "/b"}},
        {Agent::cursor, "Delete", R"({"path":"/a"})", {"/a"}},
        {Agent::cursor, "Read", R"({"path":"/a"})", {}},
        {Agent::codex,
         "apply_patch",
         R"({"command":["apply_patch","*** Begin Patch\r\n*** Add File: a b \r\n+*** Delete File: no\n*** Move to: /c"]})",
         {"/w/a b", "/c"}},
        {Agent::codex, "apply_patch", R"({"command":"*** Update File: \n"})", {}},
        {Agent::claude, "mcp__fs__edit_files", R"({"paths":["/a",7,"b"],"edits":[{"path":"/c"}]})", {"/a", "/c"}},
        {Agent::claude, "mcp__fs__truncate", R"({"uri":"file:///a b"})", {"/a b"}},
        {Agent::opencode, "multiedit", R"({"filePath":"a"})", {"/w/a"}},
        {Agent::opencode,
         "apply_patch",
         R"({"patchText":"*** Delete File: a\n*** Update File: /b\n"})",
         {"/w/a", "/b"}},
        {Agent::droid, "Create", R"({"file_path":"a"})", {"/w/a"}},
        {Agent::droid, "Edit", R"({"file_path":"/a"})", {"/a"}},
        {Agent::droid, "Read", R"({"file_path":"/a"})", {}},
    };
    for (const Row& row : rows) {
        const json object{{"hook_event_name", traitsOf(row.agent).tool},
                          {"tool_name", row.tool},
                          {"tool_input", json::parse(row.input)}};
        const HookEvent event = parseHookEvent(row.agent, object, "/w", "/home/ann");
        EXPECT_EQ(event.paths, row.paths) << row.tool << row.input;
        EXPECT_EQ(event.kind, row.paths.empty() ? Kind::other : Kind::edit) << row.tool << row.input;
    }
}

TEST(Hook, readsTheCommandsOwnFolder) {
    for (const Agent agent : {Agent::gemini, Agent::qwen, Agent::opencode})
        for (const auto& [named, folder] :
             {std::pair(json("src/lib/"), "/p/q/src/lib"), {"../r", "/p/r"}, {"/else", "/else"}, {5, "/p/q"}}) {
            const AgentTraits& traits = traitsOf(agent);
            const json input{{"command", "ls"}, {std::string(traits.shellFolder), named}};
            const json object{{"cwd", "/p/q"},
                              {"hook_event_name", traits.shell},
                              {"tool_name", traits.shellTool},
                              {"tool_input", input}};
            EXPECT_EQ(parseHookEvent(agent, object, "/w", "/home/ann").cwd, folder) << traits.name << named;
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
    // Whose client takes any other exit status for a refusal, and loses the reason.
    EXPECT_EQ(denyReply(Agent::copilot, "m"),
              (HookOutput{R"({"permissionDecision":"deny","permissionDecisionReason":"m"})", std::nullopt, 0}));
    for (const Kind kind : {Kind::shell, Kind::edit})
        EXPECT_EQ(askReply(Agent::copilot, kind, "m").standardOutput,
                  R"({"permissionDecision":"ask","permissionDecisionReason":"m"})");
    for (const Agent agent : {Agent::codex, Agent::gemini, Agent::opencode})
        EXPECT_EQ(askReply(agent, Kind::shell, "m").standardError,
                  "m This agent can't ask you from a hook, so Tidewrack refused; run it yourself if you meant it.");
    EXPECT_NE(askReply(Agent::cursor, Kind::edit, "m").standardOutput->find("\"deny\""), std::string::npos);
}

TEST(HookLog, isEmptiedOnceByParallelHooks) {
    TemporaryFolder folder;
    const HookLog log(Store(folder.at("store"), folder.path()));
    // All of them find the log too long before one can empty it.
    folder.write("store/hooks.log", std::string(2'000'001, 'x'));
    const Descriptor lock(::open(folder.at("store/hooks.log").c_str(), O_RDONLY));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] { log.append("claude", "Stop", steady_clock::now(), "#1 /p"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ASSERT_EQ(::flock(lock.get(), LOCK_UN), 0);
    for (auto& thread : threads) thread.join();
    const std::string text = folder.read("store/hooks.log");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 8);
}

TEST(EditLog, writesLinesAsDocumented) {
    TemporaryFolder folder;
    const NotedEdit edit{
        parseIsoDate("2026-03-14T09:30:05Z").value(), "claude", "efd68e01", "c8f2135e", "src/main.c", 6};
    noteEdit(folder.path(), edit);
    const std::string line = folder.read("edits.log");
    EXPECT_NE(document("store-format.md").find("\n" + line), std::string::npos) << line;
    EXPECT_EQ(notedEdits(line), (EditNotes{{edit}, {}}));
    EXPECT_EQ(notedEdits("{\"agent\":1}\n\n" + line), (EditNotes{{edit}, edit.time})) << "what can't be read is lost";
    EXPECT_EQ(notedEdits(line + "{\"ag"), (EditNotes{{edit}, Date::max()}));
    folder.write("edits.log", line.substr(0, 20)); // as a full volume leaves it
    noteEdit(folder.path(), edit);
    EXPECT_EQ(folder.read("edits.log"), line.substr(0, 20) + "\n" + line);
}

TEST(HookLog, writesLinesAsDocumented) {
    TemporaryFolder folder;
    HookLog(Store(folder.at("store"), folder.path()))
        .append("claude", "PreToolUse", steady_clock::now(), "allow rm -r build → #7 /home/ann/app");
    const std::regex timed("^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z (.*) [0-9]+ms ");
    const std::string line = std::regex_replace(folder.read("store/hooks.log"), timed, "2026-03-14T09:30:05Z $1 12ms ");
    EXPECT_NE(document("store-format.md").find("\n" + line), std::string::npos) << line;
}

TEST(HookLog, isEmptiedPastItsLimitAndNeverInTheWay) {
    TemporaryFolder folder;
    const HookLog log(Store(folder.at("store"), folder.path()));
    folder.write("store/hooks.log", std::string(2'000'000, 'x'));
    log.append("-", "track", steady_clock::now(), "a");
    EXPECT_GT(folder.read("store/hooks.log").size(), 2'000'000U);
    log.append("-", "track", steady_clock::now(), "b\nc\xff\x1b");
    EXPECT_TRUE(
        std::regex_match(folder.read("store/hooks.log"), std::regex(".*Z - track 0ms b c\xEF\xBF\xBD\\\\x1b\n")));
    folder.remove("store/hooks.log");
    ASSERT_EQ(::mkfifo(folder.at("store/hooks.log").c_str(), 0600), 0);
    log.append("-", "track", steady_clock::now(), "nobody reads this pipe");
    folder.remove("store/hooks.log");
    folder.write("elsewhere", "");
    folder.link("store/hooks.log", folder.at("elsewhere"));
    log.append("-", "track", steady_clock::now(), "not through a link");
    folder.remove("store/hooks.log");
    ::chmod(folder.at("store").c_str(), 0777);
    log.append("-", "track", steady_clock::now(), "not into everybody's folder");
    EXPECT_FALSE(folder.has("store/hooks.log"));
    EXPECT_EQ(folder.read("elsewhere"), "");
}

TEST(OneLine, joinsTrimsAndCuts) {
    EXPECT_EQ(oneLine(std::nullopt, 80), "");
    EXPECT_EQ(oneLine("\n \t\r\n", 80), "");
    EXPECT_EQ(oneLine(" \n a\r\n\r\nb\u2028\u0085c\vd \t\n", 80), "a b c d");
    EXPECT_EQ(oneLine("1234", 4), "1234");
    EXPECT_EQ(oneLine("12345", 4), "123…");
    EXPECT_EQ(oneLine("e\u0301e\u0301e\u0301", 2), "e\u0301…") << "an accent stays with its letter";
    EXPECT_EQ(oneLine("\U0001F469\u200D\U0001F4BBab", 2), "\U0001F469\u200D\U0001F4BB…") << "a joined emoji is one";
}
