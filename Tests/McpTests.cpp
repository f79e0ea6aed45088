// The history as tools: what a client asks and gets, and that nothing is changed but by the plan that was told.

#include "Support/Program.hpp"
#include "Support/TurnFixture.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>

#include <sstream>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

// Whether a value holds what is wanted of it: some keys of an object, the first items of a list, "~" and a part of a
// text.
bool holds(const json& value, const json& wanted) {
    if (wanted.is_object()) {
        if (!value.is_object()) return false;
        for (const auto& [key, part] : wanted.items())
            if (!value.contains(key) || !holds(value[key], part)) return false;
        return true;
    }
    if (wanted.is_array()) {
        if (!value.is_array() || value.size() < wanted.size() || (wanted.empty() && !value.empty())) return false;
        for (std::size_t i = 0; i < wanted.size(); ++i)
            if (!holds(value[i], wanted[i])) return false;
        return true;
    }
    const std::string text = wanted.is_string() ? wanted.get<std::string>() : "";
    if (!text.starts_with('~')) return value == wanted;
    return value.is_string() && value.get<std::string>().find(text.substr(1)) != std::string::npos;
}

class Mcp : public TurnFixture {
  protected:
    Mcp() {
        f.write("project/bytes", std::string("\xff\0\x01\n", 4));
        f.write("outside", "outside");
        prompt("s", "Tidy up");
        f.remove("project/notes");
        f.write("project/README.md", "rewritten\n");
        stop("s");
    }

    // The answers to all of the lines, as a client reads them.
    std::vector<json> answers(const std::string& lines, std::vector<std::string> options = {}) const {
        f.write("input", lines);
        const Descriptor input(::open(f.at("input").c_str(), O_RDONLY | O_CLOEXEC));
        Outcome outcome;
        Sink out(outcome.out);
        Sink err(outcome.err);
        Surroundings around{world.environment, world.current, "/usr/local/bin/tidewrack", out, err, input.get()};
        options.insert(options.begin(), "mcp");
        EXPECT_EQ(run(options, around), 0);
        EXPECT_EQ(outcome.err, "");
        std::vector<json> all;
        std::istringstream text(outcome.out);
        for (std::string line; std::getline(text, line);) all.push_back(json::parse(line));
        return all;
    }
    json call(const char* tool, const json& arguments) const {
        const json request{{"jsonrpc", "2.0"},
                           {"id", 1},
                           {"method", "tools/call"},
                           {"params", {{"name", tool}, {"arguments", arguments}}}};
        return answers(request.dump(), {"--write"}).at(0)["result"];
    }
    // The same with the plan that it gives without.
    json callTwice(const char* tool, json arguments) const {
        arguments["plan"] = call(tool, arguments)["structuredContent"]["plan"];
        return call(tool, arguments);
    }
    std::string placed(std::string line) const {
        for (std::size_t at = 0; (at = line.find("@/", at)) != std::string::npos;) line.replace(at, 1, f.path());
        return line;
    }
};

} // namespace

TEST_F(Mcp, answersEveryLineOfAClient) {
    std::string input;
    std::vector<std::string> wanted;
    std::istringstream table(testData("mcp.txt"));
    for (std::string line; std::getline(table, line);) {
        if (line.starts_with("> ")) input += placed(line.substr(2)) + "\n";
        if (line.starts_with("< ")) wanted.push_back(placed(line.substr(2)));
    }
    const auto given = answers(input);
    ASSERT_EQ(given.size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i)
        EXPECT_TRUE(holds(given[i], json::parse(wanted[i]))) << "wanted " << wanted[i] << "\ngot " << given[i].dump();
    EXPECT_EQ(world.history().seqs().size(), 3U) << "looking changes nothing";
    // A line of any length ends nothing, and one without an end counts.
    const auto long_ = answers(std::string(5'000'000, '[') + "\n" + R"({"jsonrpc":"2.0","id":1,"method":"ping"})");
    ASSERT_EQ(long_.size(), 2U);
    EXPECT_EQ(long_[0]["error"]["code"], -32700);
    EXPECT_EQ(long_[1]["result"], json::object());
    const std::string told = call("find", {{"text", std::string(2'000'000, 'x')}})["content"][0]["text"];
    EXPECT_TRUE(told.size() < 1'100'000 && told.ends_with(" in all]\n")) << told.size();
}

// A client waits for each answer before it asks again.
TEST_F(Mcp, answersWhileTheInputIsOpen) {
    Program server(world, {"mcp"}, Program::Output::collected, std::nullopt);
    server.write("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\n{\"jsonrpc\":\"2.0\",");
    server.write("\"id\":2,\"method\":\"ping\"}\n");
    EXPECT_TRUE(server.isRunning());
    server.endInput();
    EXPECT_EQ(server.wait().out,
              "{\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{}}\n{\"id\":2,\"jsonrpc\":\"2.0\",\"result\":{}}\n");
}

TEST_F(Mcp, restoresAndTakesBackOnlyByThePlanThatWasTold) {
    EXPECT_EQ(answers(R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})", {"--write"})[0]["result"]["tools"].size(),
              9U);
    const json notes{{"snapshot", 1}, {"paths", {"notes"}}};
    const json told = call("restore", notes);
    EXPECT_TRUE(holds(told, {{"isError", false}, {"structuredContent", {{"dryRun", true}, {"restored", {"notes"}}}}}))
        << told;
    EXPECT_EQ(f.read("project/notes"), "<missing>");
    json planned = notes;
    planned["plan"] = told["structuredContent"]["plan"];
    // Another call, a plan that was never told, and one whose file somebody has changed since.
    json other = planned;
    other["paths"] = {"README.md"};
    json guessed = planned;
    guessed["plan"] = "0123456789abcdef";
    for (const json& refused : {other, guessed}) {
        EXPECT_TRUE(call("restore", refused)["isError"]) << refused;
        EXPECT_EQ(f.read("project/README.md") + f.read("project/notes"), "rewritten\n<missing>") << refused;
    }
    f.write("project/notes", "mine\n");
    EXPECT_TRUE(call("restore", planned)["isError"]);
    EXPECT_EQ(f.read("project/notes"), "mine\n");
    const std::size_t before = world.history().seqs().size();
    EXPECT_TRUE(holds(callTwice("restore", notes), {{"structuredContent", {{"restored", {"notes"}}}}}));
    EXPECT_EQ(f.read("project/notes"), "one\n");
    EXPECT_EQ(world.history().seqs().size(), before + 2) << "the safety snapshot, and what was done";

    f.write("project/README.md", "rewritten\nand more\n");
    const json merged = callTwice("undo", {{"turn", 2}, {"paths", {"README.md"}}});
    EXPECT_TRUE(
        holds(merged, {{"isError", false}, {"structuredContent", {{"projects", {{{"root", f.at("project")}}}}}}}))
        << merged;
    for (const char* outside : {"../outside", "/etc/passwd"})
        EXPECT_TRUE(holds(call("restore", {{"snapshot", 1}, {"paths", {outside}}}), {{"isError", true}})) << outside;
}

// A turn that is still running is taken back also where a hook has taken a snapshot between the two calls.
TEST_F(Mcp, aPlanOutlivesTheSnapshotsOfHooks) {
    prompt("t", "Remove the sources");
    f.remove("project/src");
    snap("tool", "claude", "t");
    json undo = json::object();
    undo["plan"] = call("undo", undo)["structuredContent"]["plan"];
    f.write("project/later", "");
    snap("tool", "claude", "t");
    f.remove("project/later");
    EXPECT_TRUE(holds(call("undo", undo), {{"isError", false}, {"structuredContent", {{"dryRun", false}}}}));
    EXPECT_EQ(f.read("project/src/main.c"), "int main;\n");
}
