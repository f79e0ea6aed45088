// What the page's server answers, and to whom.

#include "Support/TurnFixture.hpp"

#include "Page/Site.hpp"
#include "Page/StaticPage.hpp"
#include "Support/Text.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <utility>

using namespace tidewrack;
using namespace tidewrack::testing;
using namespace tidewrack::page;
using nlohmann::json;

namespace {

constexpr const char* token = "0123456789abcdef";
constexpr const char* here = "127.0.0.1:7000";

class Page : public TurnFixture {
  protected:
    Page() {
        prompt("s", "Set the port");
        f.write("project/config", "port = 8080\ndebug = off\n");
        f.write("project/<img src=x onerror=alert(1)>", "</script><script>alert(1)</script>\n");
        stop("s");
        turn = json::parse(world.ok({"timeline", "--json"}))["rows"][0]["first"].get<int>();
        site.setPort(7000);
    }

    Runner runner() const {
        return [this](const std::vector<std::string>& words) {
            commands.push_back(words);
            if (meanwhile && words[0] == "undo" && std::find(words.begin(), words.end(), "--dry-run") == words.end())
                std::exchange(meanwhile, nullptr)();
            const Outcome outcome = world.run(words);
            return Ran{outcome.status, outcome.out, outcome.err};
        };
    }
    static Values fromAFile(const char* dest) {
        return {{"sec-fetch-site", "cross-site"}, {"sec-fetch-mode", "navigate"}, {"sec-fetch-dest", dest}};
    }
    static Request request(const std::string& method, const std::string& path, const Values& query = {},
                           const std::string& body = "") {
        return {method,
                path,
                query,
                {{"host", here}, {"x-tidewrack-token", token}, {"content-type", "application/json"}},
                body};
    }
    Answer get(const std::string& name, const Values& query = {}) {
        return site.answer(request("GET", "/api/" + name, query));
    }
    Answer post(const std::string& name, const json& body) {
        return site.answer(request("POST", "/api/" + name, {}, body.dump()));
    }
    // The hunk as the page shows it now.
    json hunk(std::size_t number) {
        const json shown = json::parse(get("lines", {{"turn", std::to_string(turn)}, {"path", "config"}}).body);
        return {{"number", number}, {"digest", shown["files"][0]["hunks"][number - 1]["digest"]}};
    }
    json planned(const json& wish) { return json::parse(post("plan", wish).body); }

    mutable std::vector<std::vector<std::string>> commands;
    mutable std::function<void()> meanwhile; // between the last look and the undo
    int turn = 0;
    Site site{{world.projectPath(), token, "1.0.0", false}, runner()};
};

} // namespace

TEST_F(Page, answersItsOwnPageAlone) {
    struct Row {
        Values headers; // in place of the right ones
        const char *method, *path;
        int status;
    };
    const Row rows[] = {
        {{}, "GET", "/api/config", 200},
        {{{"origin", "http://127.0.0.1:7000"}, {"sec-fetch-site", "same-origin"}}, "GET", "/api/config", 200},
        {{{"host", "localhost:7000"}, {"origin", "http://localhost:7000"}}, "GET", "/api/config", 200},
        {{{"x-tidewrack-token", ""}}, "GET", "/api/config", 403},
        {{{"x-tidewrack-token", "0123456789abcde"}}, "GET", "/api/config", 403},
        {{{"x-tidewrack-token", "0123456789abcdef0"}}, "GET", "/api/timeline", 403},
        {{{"host", "evil.example:7000"}}, "GET", "/api/config", 403},
        {{{"host", "127.0.0.1:7001"}}, "GET", "/api/config", 403},
        {{{"host", ""}}, "GET", "/api/config", 403},
        {{{"host", "evil.example"}, {"x-tidewrack-token", ""}}, "GET", "/", 403},
        {{{"origin", "http://evil.example"}}, "GET", "/api/config", 403},
        {{{"origin", "null"}}, "POST", "/api/plan", 403},
        {{{"origin", "http://localhost:7000"}}, "GET", "/api/config", 403}, // not the host's
        {{{"sec-fetch-site", "cross-site"}}, "GET", "/api/config", 403},
        {{{"sec-fetch-site", "cross-site"}}, "GET", "/page.js", 403},
        {{{"sec-fetch-site", "cross-site"}}, "GET", "/", 403},
        {fromAFile("document"), "GET", "/", 200}, // how the browser is led to the page
        {fromAFile("iframe"), "GET", "/", 403},
        {fromAFile("document"), "POST", "/", 403},
        {fromAFile("document"), "GET", "/page.js", 403},
        {fromAFile("document"), "GET", "/api/config", 403},
        {{{"x-tidewrack-token", ""}}, "GET", "/", 200}, // nothing of the project is in it
        {{{"x-tidewrack-token", ""}}, "GET", "/page.js", 200},
        {{}, "GET", "/../etc/passwd", 404},
        {{}, "GET", "/api/../config", 404},
        {{}, "POST", "/index.html", 405},
        {{}, "POST", "/api/timeline", 405},
        {{}, "GET", "/api/plan", 405},
        {{}, "GET", "/api/act", 405},
        {{{"content-type", "text/plain"}}, "POST", "/api/plan", 415}, // what a foreign form may send unasked
        {{}, "GET", "/api/nothing", 404},
        {{}, "GET", "/api/timeline", 400},
    };
    for (const Row& row : rows) {
        Request asked = request(row.method, row.path);
        for (const auto& [name, value] : row.headers) asked.headers[name] = value;
        EXPECT_EQ(site.answer(asked).status, row.status) << row.method << " " << row.path << " " << row.headers.size();
    }
    EXPECT_TRUE(commands.empty());
    EXPECT_NE(securityHeaders().at("Content-Security-Policy").find("default-src 'none'; script-src 'self';"),
              std::string::npos);
}

// The very text that the command prints, and nothing outside of the history.
TEST_F(Page, printsWhatTheCommandsPrint) {
    const std::string first = std::to_string(turn);
    const std::string last = std::to_string(turn + 1);
    struct Row {
        const char* name;
        Values query;
        std::vector<std::string> words;
        std::string command;
    };
    const Row rows[] = {
        {"timeline", {{"n", "5"}}, {"timeline", "-n", "5", "--json"}, "tidewrack timeline -n 5"},
        {"show", {{"turn", first}}, {"show", first, "--json"}, "tidewrack show " + first},
        {"elsewhere",
         {{"turn", first}},
         {"undo", "--turn", first, "--dry-run", "--json"},
         "tidewrack undo --turn " + first + " --dry-run"},
        {"changes",
         {{"from", first}, {"to", last}},
         {"diff", first, last, "--json"},
         "tidewrack diff " + first + " " + last},
        {"lines",
         {{"turn", first}, {"path", "config"}},
         {"show", first, "config", "--json", "--lines"},
         "tidewrack show " + first + " -- config"},
        {"lines",
         {{"from", "1"}, {"path", "config"}},
         {"diff", "1", "config", "--json", "--lines"},
         "tidewrack diff --patch 1 -- config"},
        {"content", {{"seq", "1"}, {"path", "config"}}, {"cat", "1", "config"}, "tidewrack cat 1 -- config"},
        {"log", {{"path", "config"}}, {"log", "config", "--json", "-n", "99"}, "tidewrack log -n 1000000 -- config"},
        {"find", {{"text", "config"}}, {"find", "--json", "--", "config"}, "tidewrack find -- config"},
        {"vault", {}, {"vault", "--json"}, "tidewrack vault"},
        {"status", {}, {"status", "--json"}, "tidewrack status"},
    };
    for (const Row& row : rows) {
        const Answer answer = get(row.name, row.query);
        EXPECT_EQ(answer.status, 200) << row.name << answer.body;
        EXPECT_EQ(answer.command, row.command);
        const std::string printed = world.run(row.words).out;
        EXPECT_EQ(answer.body, printed) << row.name;
    }
    f.write("secret", "outside\n");
    for (const char* path : {"../secret", "/etc/passwd", "src/../../secret", "--help", "nowhere"})
        EXPECT_EQ(get("content", {{"seq", "1"}, {"path", path}}).status, 422) << path;
    EXPECT_EQ(get("content", {{"seq", "1"}, {"path", std::string("config\0", 7)}}).status, 400);
    for (const char* number : {"", "-1", "1x", "1 --force", "latest"})
        EXPECT_EQ(get("show", {{"turn", number}}).status, 400) << number;
}

TEST_F(Page, actsOnlyAsItWasLookedAt) {
    const json undo{{"act", "undo"}, {"turn", turn}, {"paths", {"config"}}};
    EXPECT_EQ(post("act", {{"plan", 1}}).status, 409); // never looked at
    json plan = planned(undo);
    EXPECT_EQ(plan["command"], "tidewrack undo --turn " + std::to_string(turn) + " -- config");
    EXPECT_EQ(plan["result"]["projects"][0]["actions"][0]["action"], "overwrite");
    EXPECT_EQ(config(), "port = 8080\ndebug = off\n");

    f.write("project/config", "port = 8080\ndebug = on\n"); // it would be merged now
    const Answer refused = post("act", {{"plan", plan["plan"]}});
    EXPECT_EQ(refused.status, 409) << refused.body;
    EXPECT_EQ(config(), "port = 8080\ndebug = on\n");
    EXPECT_EQ(post("act", {{"plan", plan["plan"]}}).status, 409); // it is not kept for a better time

    plan = planned({{"act", "undo"}, {"turn", turn}, {"paths", {"config"}}, {"hunks", {hunk(1)}}});
    EXPECT_EQ(plan["hunks"][0]["lines"][0], "-port = 80\n");
    const Answer done = post("act", {{"plan", plan["plan"]}});
    EXPECT_EQ(done.status, 200) << done.body;
    EXPECT_EQ(config(), "port = 80\ndebug = on\n");
    EXPECT_EQ(json::parse(done.body)["dryRun"], false);
    EXPECT_EQ(post("act", {{"plan", plan["plan"]}}).status, 409); // once

    plan = planned({{"act", "pin"}, {"seq", turn}});
    EXPECT_EQ(json::parse(post("act", {{"plan", plan["plan"]}}).body)["pinned"], true);
    plan = planned({{"act", "label"}, {"label", "--now"}});
    EXPECT_EQ(json::parse(post("act", {{"plan", plan["plan"]}}).body)["label"], "--now");

    const json senseless[] = {
        "undo",
        json::object(),
        {{"act", "untrack"}},
        {{"act", "undo"}},
        {{"act", "restore"}, {"seq", 1}},
        {{"act", "undo"}, {"turn", "3 --force"}},
        {{"act", "undo"}, {"turn", 3}, {"paths", {7}}},
        {{"act", "undo"}, {"turn", 3}, {"paths", json::array()}},
        {{"act", "pin"}, {"seq", -1}},
        {{"act", "undo"}, {"turn", 3}, {"paths", {"config"}}, {"hunks", {1}}},
        {{"act", "undo"}, {"turn", 3}, {"paths", {"config"}}, {"hunks", "1"}},
        {{"act", "undo"}, {"turn", 3}, {"hunks", {hunk(1)}}},
        {{"act", "undo"}, {"turn", 3}, {"paths", {"config"}}, {"hunks", {{{"number", 1}, {"digest", "a,2"}}}}},
        {{"act", "label"}, {"label", ""}}};
    for (const json& wish : senseless) EXPECT_EQ(post("plan", wish).status, 400) << wish;
    EXPECT_EQ(site.answer(request("POST", "/api/plan", {}, "{")).status, 400);
    // What looks like an option is a path.
    EXPECT_EQ(post("plan", {{"act", "undo"}, {"turn", turn}, {"paths", {"--force"}}}).status, 422);

    Site readOnly{{world.projectPath(), token, "1.0.0", true}, runner()};
    readOnly.setPort(7000);
    commands.clear();
    EXPECT_EQ(readOnly.answer(request("POST", "/api/plan", {}, undo.dump())).status, 403);
    EXPECT_EQ(readOnly.answer(request("POST", "/api/act", {}, R"({"plan":1})")).status, 403);
    EXPECT_TRUE(commands.empty());
}

// Piece by piece, newest first.
TEST_F(Page, searchesChangedLines) {
    prompt("t", "Debug");
    f.write("project/config", "port = 8080\nDebug = On\n");
    stop("t");
    const auto found = [&](const char* text, const char* n, const char* skip) {
        const Answer answer = get("search", {{"text", text}, {"n", n}, {"skip", skip}});
        EXPECT_EQ(answer.command, "tidewrack find --lines -- " + std::string(text));
        return json::parse(answer.body);
    };
    const json one = found("debug", "1", "0");
    EXPECT_EQ(one["rows"][0]["title"], "Debug");
    EXPECT_EQ(one["rows"][0]["found"][0]["lines"], json({"-debug = off\n", "+Debug = On\n"}));
    EXPECT_EQ(one["searched"], 1);
    EXPECT_TRUE(found("debug", "9", "1")["rows"].empty()); // the older turn left that line alone
    EXPECT_EQ(found("8080", "9", "0")["rows"][0]["first"], turn);
}

// Between being drawn, previewed and done a running turn may grow, and a file may change with the plan as it was.
TEST_F(Page, refusesWhatIsNotWhatWasChosen) {
    const std::string middle = "b\nc\nd\ne\nf\ng\nh\ni\n";
    prompt("t", "Two ends");
    f.write("project/config", "port = 8080\n" + middle + "end\n");
    snap("tool", "claude", "t");
    stop("t");
    prompt("u", "Runs on");
    turn = json::parse(world.ok({"timeline", "--json"}))["rows"][0]["first"].get<int>();
    f.write("project/config", "port = 8080\n" + middle + "END\n");
    snap("tool", "claude", "u");
    const auto wish = [&](const json& chosen) {
        return json{{"act", "undo"}, {"turn", turn}, {"paths", {"config"}}, {"hunks", {chosen}}};
    };
    const json last = hunk(1);
    const json plan = planned(wish(last));
    f.write("project/config", "port = 1\n" + middle + "END\n");
    snap("tool", "claude", "u");
    EXPECT_EQ(post("act", {{"plan", plan["plan"]}}).status, 409);
    EXPECT_EQ(post("plan", wish(last)).status, 409); // number 1 is the port's now
    EXPECT_EQ(config(), "port = 1\n" + middle + "END\n");
    const json late = planned(wish(hunk(1)));
    meanwhile = [&] { f.write("project/config", "port = 9\n" + middle + "END\n"); };
    const Answer other = post("act", {{"plan", late["plan"]}});
    EXPECT_EQ(other.status, 422);
    EXPECT_NE(other.body.find("config has another hunk 1 there."), std::string::npos) << other.body;
    EXPECT_EQ(config(), "port = 9\n" + middle + "END\n");
    f.write("project/config", "port = 1\n" + middle + "END\n");
    const json right = planned(wish(hunk(2)));
    EXPECT_EQ(post("act", {{"plan", right["plan"]}}).status, 200);
    EXPECT_EQ(config(), "port = 1\n" + middle + "end\n");

    const json restore = planned({{"act", "restore"}, {"seq", 1}, {"paths", {"config"}}});
    EXPECT_EQ(restore["result"]["overwritten"], json({"config"}));
    f.write("project/config", "port = 2\n" + middle + "end\n");
    EXPECT_EQ(post("act", {{"plan", restore["plan"]}}).status, 409);
    EXPECT_EQ(config(), "port = 2\n" + middle + "end\n");
}

// One file that loads nothing, in which no content can end the script around it.
TEST_F(Page, isKeptInOneFile) {
    const std::string parent = f.at(""); // what lies above the project is nobody's business
    event(Agent::claude, "UserPromptSubmit", "t", "Set the port again");
    f.write("project/secret", "x\n");
    event(Agent::claude, "PreToolUse-Bash", "t", "rm -rf secret");
    const std::string whole = staticPage({world.projectPath(), "1.0.0", 20, true}, runner()).text;
    const std::string bare = staticPage({world.projectPath(), "1.0.0", 20, false}, runner()).text;
    EXPECT_NE(whole.find("port = 8080"), std::string::npos);
    EXPECT_EQ(bare.find("port = 8080"), std::string::npos);
    EXPECT_NE(whole.find("Set the port"), std::string::npos);
    EXPECT_NE(whole.find("rm -rf secret"), std::string::npos);
    for (const char* text : {"Set the port", "rm -rf secret", parent.c_str()})
        EXPECT_EQ(bare.find(text), std::string::npos) << text;
    const StaticSettings others{world.projectPath(), "1.0.0", 20, true, "codex"};
    EXPECT_EQ(staticPage(others, runner()).text.find("Set the port"), std::string::npos);
    for (const std::string& page : {whole, bare}) {
        EXPECT_EQ(page.find("unsafe-inline"), std::string::npos);
        EXPECT_EQ(page.find("<script>alert"), std::string::npos);
        EXPECT_EQ(page.find("<img src=x"), std::string::npos);
        EXPECT_EQ(page.find("src=\""), std::string::npos);
        EXPECT_EQ(page.find("rel=\"stylesheet\""), std::string::npos);
        EXPECT_NE(page.find("default-src 'none'"), std::string::npos);
    }
}

TEST_F(Page, tellsInTheFileWhatIsLeftOut) {
    EXPECT_TRUE(staticPage({world.projectPath(), "1.0.0", 20, true}, runner()).missing.empty());
    for (const bool contents : {true, false}) {
        const auto part = [&](const std::vector<std::string>& words) {
            if (words[0] != "show" || words[1] == "--lines") return runner()(words);
            return Ran{1, "", "tidewrack: what is private is damaged\n"};
        };
        const StaticPage page = staticPage({world.projectPath(), "1.0.0", 20, contents}, part);
        ASSERT_EQ(page.missing.size(), 1U);
        EXPECT_EQ(page.missing[0].find("private") != std::string::npos, contents);
        EXPECT_NE(page.text.find(page.missing[0]), std::string::npos);
        EXPECT_EQ(page.text.find("what is private") != std::string::npos, contents);
    }
}

TEST_F(Page, endsNoActHalfwayAndBeginsNoneAfterwards) {
    bool acted = false;
    Site busy{{world.projectPath(), token, "1.0.0", false}, [&](const std::vector<std::string>& words) {
                  acted = acted || words[0] == "pin";
                  EXPECT_EQ(busy.isActing(), words[0] == "pin") << words[0];
                  return Ran{0, "{}", std::string(1999, 'a') + "\u00e9"};
              }};
    busy.setPort(7000);
    const std::string pin = R"({"act":"pin","seq":1})";
    EXPECT_EQ(busy.answer(request("POST", "/api/plan", {}, pin)).status, 200);
    EXPECT_EQ(busy.answer(request("POST", "/api/act", {}, R"({"plan":1})")).status, 200);
    EXPECT_TRUE(acted && !busy.isActing());
    EXPECT_EQ(busy.answer(request("POST", "/api/plan", {}, pin)).status, 200);
    busy.end();
    EXPECT_EQ(busy.answer(request("POST", "/api/act", {}, R"({"plan":2})")).status, 503);
    // Only who has the token keeps the page, and warnings are whole letters.
    const Answer status = busy.answer(request("GET", "/api/status"));
    EXPECT_TRUE(status.isForUs && isUtf8(status.warnings)) << status.warnings.size();
    EXPECT_FALSE(busy.answer(request("GET", "/")).isForUs);
}
