#pragma once
// What the tests of the guard share: decisions as text, and a folder tree to judge commands in.

#include "Support/TestFolders.hpp"

#include "Shell/Guard.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

inline std::string joinedPaths(const std::vector<std::string>& paths, std::string_view under) {
    std::string text;
    for (const std::string& path : paths) {
        if (!text.empty()) text += ' ';
        text += path.starts_with(under) ? path.substr(under.size()) : path;
    }
    return text;
}

// A decision as text: targets (without `under`), then "ask" or "deny", then the opaque folders behind "?" and the
// suspected ones behind "~", what is mentioned behind "@".
inline std::string judged(std::string_view command, const Context& context, std::string_view under) {
    const Decision decision = analyze(command, context);
    std::string text = joinedPaths(decision.targets, under);
    if (decision.verdict.kind == Verdict::Kind::ask) text += " ask";
    if (decision.verdict.kind == Verdict::Kind::deny) text += " deny";
    EXPECT_EQ(decision.opaque, !decision.opaqueDirs.empty()) << command;
    if (decision.opaque) text += " ?" + joinedPaths(decision.opaqueDirs, under);
    if (!decision.suspected.empty()) text += " ~" + joinedPaths(decision.suspected, under);
    if (!decision.mentioned.empty()) text += " @" + joinedPaths(decision.mentioned, under);
    return text;
}

struct Row {
    std::string_view command;
    std::string_view expected;
};

// A real folder tree: home/{Documents,.ssh}, link -> home, tree/{a.txt,b.txt,.hidden,sub/c.txt}.
class ShellGuardOnDisk : public ::testing::Test {
  protected:
    ShellGuardOnDisk() {
        for (const char* name : {"home/Documents", "home/.ssh", "out"}) folder.makeFolder(name);
        for (const char* name : {"a.txt", "b.txt", ".hidden", "sub/c.txt"})
            folder.write(std::string("tree/") + name, "x");
        folder.link("link", root + "/home");
        context.cwd = root + "/tree";
        context.home = root + "/home";
        context.projectRoots = {root + "/tree"};
    }

    std::string judgedHere(std::string_view command) { return judged(command, context, root + "/"); }

    tidewrack::testing::TemporaryFolder folder;
    const std::string root = folder.path();
    Context context;
};

} // namespace tidewrack::shell
