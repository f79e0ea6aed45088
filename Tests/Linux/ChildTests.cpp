#include "Support/Program.hpp"
#include "Support/TestFolders.hpp"

#include "Platform/Process.hpp"
#include "Support/Files.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

// The git that is asked about this folder; 0: none.
std::int64_t gitIn(const std::string& folder) {
    for (const std::string& name : listFolder("/proc")) {
        std::string words;
        const std::int64_t pid = std::atol(name.c_str());
        if (pid > 0 && readFile("/proc/" + name + "/cmdline", words) == 0 && words.starts_with("/usr/bin/git") &&
            words.find(folder) != std::string::npos)
            return pid;
    }
    return 0;
}

bool comesTrue(const std::function<bool()>& condition) {
    for (int tries = 0; tries < 500 && !condition(); ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return condition();
}

} // namespace

TEST(ChildProcess, endsWithTheProgramHoweverThatEnds) {
    World world;
    if (!git(world.projectPath(), "init -q")) GTEST_SKIP() << "git is not installed";
    world.ok({"track"});
    world.folder.makeFolder("project/build");
    ASSERT_EQ(::mkfifo((world.projectPath() + "/.gitignore").c_str(), 0600), 0); // git waits for somebody to write
    for (const int signal : {SIGTERM, SIGKILL}) { // a shell starts what runs in the background without SIGINT
        Program program(world, {"snap"});
        ASSERT_TRUE(comesTrue([&] { return gitIn(world.projectPath()) != 0; })) << signal;
        program.signal(signal);
        EXPECT_EQ(program.wait().status, 128 + signal);
        EXPECT_TRUE(comesTrue([&] { return gitIn(world.projectPath()) == 0; })) << signal;
    }
}
