#include "Support/Program.hpp"
#include "Support/TestHistory.hpp"

#include "Platform/Platform.hpp"
#include "Support/Files.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
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

TEST_F(ProcessTest, exitStatusAndStreams) {
    const Outcome help = program({});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out, world.ok({"help"}));
    EXPECT_EQ(help.err, "");
    const Outcome refused = program({"snap"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err,
              "tidewrack: " + world.projectPath() + " isn't tracked. Run `tidewrack track` in the project folder.\n");
    EXPECT_EQ(program({"track"}).status, 0);
    world.environment.erase("TIDEWRACK_HOME");
    EXPECT_EQ(program({"track"}).status, 0);
    EXPECT_TRUE(f.has("home/Library/Application Support/Tidewrack/projects"));
}

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
    EXPECT_EQ(world.store().seqs(world.project()).size(), exists("/dev/full") ? 3U : 2U);
}

TEST_F(ProcessTest, changesToOneProjectWaitForEachOther) {
    f.write("project/a", "a");
    world.ok({"track"});
    const Project project = world.project();
    auto lock = std::make_unique<ProjectLock>(world.store().lockPath(project));
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"snap"}, {"restore", "1"}, {"undo", "1"}, {"pin", "1"}, {"prune"}, {"untrack"}}) {
        Program waiting(world, words);
        EXPECT_EQ(program({"log"}).status, 0); // readers don't wait
        EXPECT_EQ(program({"diff", "1"}).status, 0);
        pause(30'000);
        EXPECT_TRUE(waiting.isRunning()) << words[0];
        lock.reset();
        EXPECT_EQ(waiting.wait().status, 0) << words[0];
        if (words[0] != "untrack") lock = std::make_unique<ProjectLock>(world.store().lockPath(project));
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
    const std::string trace = program({"restore", "1"}).err;
    for (const char* label : {"load previous manifest", "diff + write manifest", "remove 0", "clone 0 files"})
        EXPECT_NE(trace.find(std::string(" ms  ") + label + "\n"), std::string::npos) << label;
    for (std::size_t at = 0; at < trace.size(); at = trace.find('\n', at) + 1) {
        EXPECT_EQ(trace.substr(at, 2), "  ");
        EXPECT_EQ(trace.substr(at + 9, 5), " ms  ") << trace.substr(at, 20); // two spaces and seven characters
        EXPECT_EQ(trace[at + 7], '.');
    }
}

// A store on a small volume of its own, unmounted at the end.
class FullDiskTest : public ProcessTest {
  protected:
    void SetUp() override {
        f.makeFolder("store");
        mounted_ = std::system(("mount -t tmpfs -o size=2m none " + f.at("store") + " 2>/dev/null").c_str()) == 0;
        if (!mounted_) GTEST_SKIP() << "mounting is not allowed here";
    }
    void TearDown() override {
        if (!mounted_) return;
        EXPECT_EQ(std::system(("umount " + f.at("store")).c_str()), 0);
    }

    bool mounted_ = false;
};

TEST_F(FullDiskTest, keepsWhatItHasAndGoesOnWhenThereIsRoom) {
    f.write("project/small", "small");
    ASSERT_EQ(program({"track"}).status, 0);
    f.write("project/large", std::string(4'000'000, 'x'));
    f.write("project/small", "changed");
    const Outcome partly = program({"snap"});
    EXPECT_EQ(partly.status, 0);
    EXPECT_EQ(partly.err, "warning: couldn't save large: No space left on device\n");
    EXPECT_EQ(program({"cat", "1", "small"}).out, "small");
    EXPECT_EQ(program({"cat", "2", "small"}).out, "changed");
    // What could not be kept is not replaced either.
    EXPECT_EQ(program({"restore", "1"}).out.find("Restored 1 file, removed 0 files."), 0U);
    EXPECT_EQ(f.read("project/large").size(), 4'000'000U);

    f.makeFolder("store/filler");
    for (int i = 0; i < 600; ++i) { // until not even a record fits any more
        const std::string path = f.at("store/filler/" + std::to_string(i));
        const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        if (!file || writeAll(file.get(), std::string(4096, 'x')) != 0) break;
    }
    const auto seqs = world.store().seqs(world.project());
    f.write("project/small", "third");
    const Outcome full = program({"restore", "2"});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.err.find("tidewrack: can't write " + f.at("store")), 0U) << full.err;
    EXPECT_EQ(f.read("project/small"), "third"); // no safety snapshot, no change
    EXPECT_EQ(world.store().seqs(world.project()), seqs);
    EXPECT_EQ(program({"log"}).status, 0);
    f.remove("store/filler");
    f.remove("project/large");
    EXPECT_EQ(program({"restore", "2"}).status, 0);
    EXPECT_EQ(f.read("project/small"), "changed");
}
