// Rules of the user's own: they ask and refuse, and a project's only make the guard stricter.

#include "Support/HookFixture.hpp"

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

// "allow", "ask" or "deny", and what is asked.
std::string answerIn(const HookOutput& reply) {
    if (reply.exitCode == 2) return "deny " + *reply.standardError;
    if (!reply.standardOutput) return "allow";
    return "ask " +
           json::parse(*reply.standardOutput)["hookSpecificOutput"]["permissionDecisionReason"].get<std::string>();
}

} // namespace

TEST_F(HookHandlerTest, rulesOfOnesOwnStrengthenAndTheUsersAlsoWeaken) {
    world.ok({"track"});
    f.write("home/thesis/part", "t");
    f.write("home/cache/blob", "b");
    const std::string thesis = home + "/thesis";
    const std::string rules = R"({"version": 1, "protect": [{"path": ")" + thesis + R"(", "answer": "deny"},
        {"path": "src"}], "ask": ["git stash  drop", "terraform", "git push",
        "kubectl delete --all", "git branch --delete"], "readers": ["mylint"], "noCopies": ["~/cache"]})";
    const struct {
        const char* command;
        std::string without, byUser, byProject;
    } rows[] = {
        {"rm ~/thesis/part", "allow",
         "deny This deletes or overwrites " + thesis + "/part, and guard.json protects " + thesis + ".", ""},
        {"rm -rf ~/thesis", "allow",
         "deny This deletes or overwrites " + thesis + ", and guard.json protects " + thesis + ".", ""},
        {"rm src/main.c", "allow", "allow",
         "ask This deletes or overwrites " + project + "/src/main.c, and guard.json protects " + project +
             "/src. Allow?"},
        {"sudo terraform apply", "allow", "ask guard.json asks about `terraform`. Allow?", ""},
        {"rm -rf build && (git -C . stash drop)", "allow", "ask guard.json asks about `git stash drop`. Allow?", ""},
        {"bash -c 'cd src; git push'", "allow", "ask guard.json asks about `git push`. Allow?", ""},
        {"git stash list push; kubectl get pods", "allow", "allow", "allow"},
        {"kubectl delete pods --all", "allow", "ask guard.json asks about `kubectl delete --all`. Allow?", ""},
        {"true >guard.json", "allow", "allow",
         "ask This deletes or overwrites " + project + "/guard.json, and guard.json protects " + project +
             "/guard.json. Allow?"},
        {"mv ~/thesis ~/t2", "allow",
         "deny This deletes or overwrites " + thesis + ", and guard.json protects " + thesis + ".", ""},
        {"mv src s2", "allow", "allow",
         "ask This deletes or overwrites " + project + "/src, and guard.json protects " + project + "/src. Allow?"},
        {"gzip ~/thesis/part", "allow",
         "deny This deletes or overwrites " + thesis + "/part, and guard.json protects " + thesis + ".", ""},
        {"git checkout HEAD guard.json", "allow", "allow",
         "ask This deletes or overwrites " + project + "/guard.json, and guard.json protects " + project +
             "/guard.json. Allow?"},
        {"python3 x.py ~/thesis/part; chmod -R u+w .", "allow", "allow", "allow"},
        {"chmod +x ~/thesis/part", "allow", "allow", "allow"},
        {"git branch -D x", "allow", "ask guard.json asks about `git branch --delete`. Allow?", ""},
        {"git branch -qd x; git branch -m y", "allow", "ask guard.json asks about `git branch --delete`. Allow?", ""},
        {"git branch -m --delete-me x; kubectl delete -d x", "allow", "allow", "allow"},
        {"ls ~/thesis", "allow", "allow", "allow"},
        {"rm build/out", "allow", "allow", "allow"},
    };
    for (const char* place : {"", "store/guard.json", "project/guard.json"}) {
        SCOPED_TRACE(place);
        if (*place != 0) f.write(place, rules);
        for (const auto& row : rows) {
            const std::string& expected = *place == 0                              ? row.without
                                          : row.byProject.empty() || *place == 's' ? row.byUser
                                                                                   : row.byProject;
            EXPECT_EQ(answerIn(shell(row.command)), expected) << row.command;
        }
        // A reader leaves nothing in the log, and what is never worth a copy gets none.
        (void)log();
        f.remove("store/vault");
        (void)shell("mylint --strict");
        EXPECT_EQ(log().empty(), *place == 's');
        (void)shell("rm ~/cache/blob");
        EXPECT_EQ(savedOutside(), *place == 's' ? Lines() : Lines{home + "/cache/blob"});
        (void)log();
        if (*place != 0) f.remove(place);
    }
    // A harmless line does not even look whether there are rules.
    f.write("store/guard.json", "[]");
    EXPECT_EQ(answerIn(shell("ls -la | head; git status")), "allow");
    EXPECT_TRUE(log().empty());
}

TEST_F(HookHandlerTest, faultsInRulesAreToldAndWeakenNothing) {
    world.ok({"track"});
    world.environment["HOME"] = home;
    const std::string asked = "ask This deletes or overwrites " + project + "/build/out, and " +
                              f.at("store/guard.json") +
                              ", which may protect it, has a fault: see `tidewrack status`. Allow?";
    const struct {
        const char *place, *rules;
        std::string answer; // to rm build/out
        bool isTold;
    } rows[] = {
        {"store/guard.json", R"({"version": 1, "protect": [{"answer": "deny"}], "ask": ["rm"]})",
         "ask guard.json asks about `rm`. Allow?", true},
        {"store/guard.json", R"({"version": 1, "ask": "make"})", asked, true},
        {"store/guard.json", R"({"version": 2})", asked, true},
        {"store/guard.json", "{", asked, true},
        {"store/guard.json", R"({"version": 1, "readers": [7]})", "allow", true},
        {"project/guard.json", "{", "allow", true},
        {"project/guard.json", R"({"ask": ["rm"]})", "allow", true},
        {"project/guard.json", R"({"rules": []})", "allow", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rules);
        f.write("project/build/out", "x");
        f.write(row.place, row.rules);
        (void)log();
        EXPECT_EQ(answerIn(shell("rm build/out")), row.answer);
        const auto isTold = [&](const std::string& text) { return text.find("guard.json") != text.npos; };
        const Lines lines = log();
        EXPECT_EQ(std::any_of(lines.begin(), lines.end(), isTold), row.isTold);
        EXPECT_EQ(isTold(world.run({"status"}).out), row.isTold);
        EXPECT_EQ(isTold(world.run({"guard", "explain", "rm build/out"}).err), row.isTold);
        f.remove(row.place);
    }
}
