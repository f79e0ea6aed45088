#include "Support/Program.hpp"
#include "Support/TestFolders.hpp"

#include "Support/Files.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <memory>
#include <regex>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

void pause(std::int64_t microseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

class ProcessTest : public ::testing::Test {
  protected:
    Outcome program(const std::vector<std::string>& words, Program::Output output = Program::Output::collected) const {
        return Program(world, words, output).wait();
    }

    World world;
    const TemporaryFolder& f = world.folder;
};

} // namespace

TEST_F(ProcessTest, outputThatNobodyTakes) {
    f.write("project/large", std::string(1'000'000, 'x'));
    EXPECT_EQ(program({"track"}, Program::Output::closedPipe).status, 0);
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"help"}, {"log"}, {"cat", "1", "large"}, {"snap"}}) {
        const Outcome closed = program(words, Program::Output::closedPipe);
        EXPECT_EQ(closed.status, 0) << words[0];
        EXPECT_EQ(closed.err, "") << words[0];
        if (!exists("/dev/full")) continue;
        const Outcome full = program(words, Program::Output::full);
        EXPECT_EQ(full.status, 1) << words[0];
        EXPECT_EQ(full.err, "tidewrack: can't write the output: No space left on device\n") << words[0];
    }
    EXPECT_EQ(world.history().seqs().size(), exists("/dev/full") ? 3U : 2U);
}

TEST_F(ProcessTest, limitsOnTheSizeOfFilesAreErrors) {
    f.write("project/large", std::string(1'000'000, 'x'));
    f.write("project/small", "s");
    f.write("limited", "#!/bin/sh\nulimit -f 16\nexec '" + world.program + "' \"$@\"\n");
    ::chmod(f.at("limited").c_str(), 0755);
    world.program = f.at("limited");
    const Outcome outcome = program({"track"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err.find("warning: couldn't save large: File too large\n"), 0U) << outcome.err;
    EXPECT_EQ(program({"cat", "1", "small"}).out, "s");
}

TEST_F(ProcessTest, changesToOneProjectWaitForEachOther) {
    f.write("project/a", "a");
    world.ok({"track"});
    const Project project = world.project();
    auto lock = std::make_unique<ProjectLock>(world.history().lockPath());
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"snap"}, {"restore", "1"}, {"undo", "1"}, {"pin", "1"}, {"prune"}, {"untrack"}}) {
        Program waiting(world, words);
        EXPECT_EQ(program({"log"}).status, 0); // readers don't wait
        EXPECT_EQ(program({"diff", "1"}).status, 0);
        pause(30'000);
        EXPECT_TRUE(waiting.isRunning()) << words[0];
        lock.reset();
        EXPECT_EQ(waiting.wait().status, 0) << words[0];
        if (words[0] != "untrack") lock = std::make_unique<ProjectLock>(world.history().lockPath());
    }
    EXPECT_TRUE(world.store().projects().empty());
}

TEST_F(ProcessTest, tracesOnlyWhenAskedWithOne) {
    f.write("project/a", "a");
    world.ok({"track"});
    for (const char* value : {"true", "yes", "0", "", "11"}) {
        world.environment["TIDEWRACK_TRACE"] = value;
        EXPECT_EQ(program({"snap"}).err, "") << value;
    }
    world.environment["TIDEWRACK_TRACE"] = "1";
    const std::string line = "  [ 0-9]{5}\\.[0-9] ms  ";
    std::string form;
    for (const char* label : {"load previous manifest", "diff \\+ write manifest", "remove 0", "clone 0 files"})
        form += line + label + "\n(" + line + "[a-z0-9+ ]+\n)*";
    const std::string trace = program({"restore", "1"}).err;
    EXPECT_TRUE(std::regex_match(trace, std::regex(form))) << trace;
}
