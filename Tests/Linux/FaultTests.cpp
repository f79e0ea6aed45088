// Every call that changes the disk goes wrong once, in every operation: the process dies there, the power is cut there,
// or the call fails. Whatever happens, older snapshots come back byte for byte, nothing of the user's is lost, the next
// command works and leaves nothing lying about.

#include "Linux/FaultOperations.hpp"
#include "Platform/Process.hpp"
#include "Support/Program.hpp"
#include "Support/TestFolders.hpp"

#include "Agents/HookEvent.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/mount.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <set>
#include <sstream>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

constexpr std::size_t threads = 4;
constexpr const char* fullDisk = "full disk";
constexpr std::size_t mostBlocks = 30; // more than any operation here takes
constexpr std::array errors = {ENOSPC, EIO, EACCES, EMFILE, EINTR, EXDEV};

// Runs the operation with a fault at its n-th call. False when it has fewer.
class Attempt {
  public:
    Attempt(const Operation& operation, std::size_t call, const std::string& kind, const char* volume = nullptr)
        : operation_(operation), kind_(kind),
          keepsContents_(kind == "power cut" && volume != nullptr && std::string(volume) == "ext4"),
          trace_(operation.name + (", " + kind) + " at " + std::to_string(call)),
          scene_(kind == fullDisk ? std::size_t{1} << 20 : 0) {
        operation.prepare(scene_);
        before_ = scene_.contents();
        if (operation.restores()) recoverable_ = scene_.recoverable();
        config_ = scene_.f.read(settings);
        if (kind == fullDisk) scene_.fill(call);
        run(call, kind, volume);
        if (kind == fullDisk) scene_.f.remove("filler");
    }

    [[nodiscard]] bool reached() const { return scene_.f.has("report"); }

    void check() {
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, trace_ + ": " + scene_.f.read("report"));
        try {
            checkAll();
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
    }

    // Whether one of these contents has this text in it.
    [[nodiscard]] bool holds(const std::string& text, std::set<std::string> (Scene::*of)() const) const {
        const auto contents = (scene_.*of)();
        return std::any_of(contents.begin(), contents.end(),
                           [&](const std::string& content) { return content.find(text) != content.npos; });
    }

    // The same of the files that people see.
    [[nodiscard]] bool shows(const std::string& text) const { return scene_.project().find(text) != std::string::npos; }

    // The same once this command has run.
    [[nodiscard]] bool showsAfter(const std::vector<std::string>& words, const std::string& text) const {
        scene_.world.ok(words);
        return shows(text);
    }

    // The same for a snapshot that is taken now.
    [[nodiscard]] bool nextSnapshotHolds(const std::string& text) const {
        scene_.world.ok({"snap"});
        const auto contents = scene_.contentsOf(scene_.world.history().latest()->seq);
        return std::any_of(contents.begin(), contents.end(),
                           [&](const std::string& content) { return content.find(text) != content.npos; });
    }

    // What is not complained about is done.
    void checkDoneUnlessToldOtherwise() const {
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, trace_ + ": " + scene_.f.read("report"));
        EXPECT_TRUE(outcome_.status <= 1 || outcome_.status == 3) << outcome_.status;
        EXPECT_TRUE(operation_.input != removesFile || outcome_.out.find("\"ask\"") != outcome_.out.npos);
        const std::string text = outcome_.out + outcome_.err;
        if (outcome_.status == 0 && text.find("warning: ") == text.npos) checkDone();
        if (operation_.restores() && scene_.f.listing("project").find("/.tidewrack-") != std::string::npos) {
            EXPECT_NE(text.find("temporary file"), text.npos) << text;
        }
        // A folder that can't be read for a moment is recorded as it was; one that may not be read isn't.
        if (outcome_.status != 0 || operation_.words[0] != "snap" || kind_ == std::to_string(EACCES)) return;
        EXPECT_TRUE(scene_.contentsOf(scene_.world.history().seqs().back()).contains("the same in a folder")) << text;
    }

    // One fault, one sentence; but a restore has one for each path that is not as it was to be.
    void checkMessages() const {
        checkDoneUnlessToldOtherwise();
        std::string text = outcome_.err;
        for (const std::string& said : {scene_.world.projectPath(), std::string("On volumes of type")})
            if (const auto volume = text.find("warning: " + said); volume != text.npos)
                text.erase(volume, text.find('\n', volume) + 1 - volume); // what `track` says of any volume here
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, trace_ + ": " + scene_.f.read("report") + ": " + text);
        EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 1);
        EXPECT_TRUE(isHook() || text.empty() || text.starts_with(outcome_.status == 1 ? "tidewrack: " : "warning: "));
    }

    // What a full disk keeps from being saved is asked about.
    void checkSavedOrAsked() const {
        if (operation_.input != removesNotes) return;
        const auto entries = scene_.vault().entries();
        const bool isSaved =
            std::any_of(entries.begin(), entries.end(), [](const VaultEntry& entry) { return !entry.items.empty(); });
        EXPECT_NE(isSaved, outcome_.out.find("not enough room for a copy") != std::string::npos)
            << trace_ << outcome_.out << scene_.f.read("store/hooks.log");
    }

    [[nodiscard]] std::string call() const { return scene_.f.read("report"); }
    [[nodiscard]] bool isHook() const { return operation_.words[0] == "hook"; }
    [[nodiscard]] bool newestSnapshotHolds(const std::string& content) const {
        return scene_.contentsOf(scene_.world.history().seqs().back()).contains(content);
    }
    [[nodiscard]] std::string newestKind() const { return scene_.world.history().latest()->kind; }
    const Outcome& outcome() const { return outcome_; }
    const std::string& trace() const { return trace_; }

  private:
    static constexpr const char* settings = "home/.claude/settings.json";

    void checkDone() const {
        if (operation_.words[0] == "restore") {
            EXPECT_EQ(scene_.project(), scene_.states.at(1));
        }
        if (operation_.words[0] != "snap") return;
        const auto kept = scene_.contentsOf(scene_.world.history().seqs().back());
        for (const char* content : {"unsaved work in the file", "unsaved new file", "the same all the time"})
            EXPECT_TRUE(kept.contains(content)) << content;
    }

    void checkAll() {
        if ((kind_ == "death" || keepsContents_) && operation_.restores()) scene_.expectNothingCutOff(recoverable_);
        // What the vault is said to hold can be lost.
        const bool saved = scene_.f.read("report") == "end" ||
                           scene_.f.read("store/hooks.log").find(" 1 saved, 0 skipped") != std::string::npos;
        if (saved && operation_.input == removesNotes) scene_.f.remove("home/notes");
        if (scene_.f.read("report") == "end" && operation_.input == removesFile) scene_.f.remove("project/file");
        if (operation_.words[0] == "check") { // what was damaged before is none of the fault's
            EXPECT_EQ(scene_.world.run(operation_.words).status, 0);
        }
        if (operation_.words[0] == "mirror") checkMirror();
        if (operation_.words[0] == "move") (void)scene_.world.run(operation_.words); // the rest, if there is any
        const auto recoverable = scene_.recoverable();
        for (const std::string& content : before_)
            EXPECT_TRUE(operation_.losesHistory || recoverable.contains(content)) << content;
        checkConfig();
        checkNextCommands();
    }

    // Whatever is in the mirror is whole, and the next run makes it what the store is.
    void checkMirror() const {
        World mirror;
        mirror.environment = scene_.world.environment;
        mirror.environment["TIDEWRACK_HOME"] = scene_.f.at("mirror");
        // A listing that waits for its record is told as well, and costs nothing that was there.
        const Outcome check = mirror.run({"check"});
        std::istringstream lines(check.out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_TRUE(!line.starts_with("  ") || line.find(".json is missing, while its listing") != line.npos)
                << line;
        EXPECT_EQ(check.err, "");
        const Outcome again = scene_.world.run(operation_.words);
        EXPECT_EQ(again.status, 0) << again.err;
        EXPECT_EQ(again.err, "");
        for (const char* part : {"/projects", "/vault"}) {
            const auto there = replaced(scene_.f.listing(std::string("mirror") + part), "mirror/", "store/");
            EXPECT_EQ(there, scene_.f.listing(std::string("store") + part));
        }
    }

    void run(std::size_t call, const std::string& kind, const char* volume) {
        World faulty;
        faulty.environment = scene_.world.environment;
        faulty.environment.insert({{"TIDEWRACK_FAULT_AT", kind == fullDisk ? "0" : std::to_string(call)},
                                   {"TIDEWRACK_FAULT_KIND", kind},
                                   {"TIDEWRACK_FAULT_REPORT", scene_.f.at("report")}});
        if (volume != nullptr) faulty.environment["TIDEWRACK_FAULT_VOLUME"] = volume;
        faulty.current = scene_.world.current;
        faulty.program = builtProgram("tidewrack_faulty");
        std::vector<std::string> words = operation_.words;
        if (words.back() == "?") words.back() = scene_.vault().entries().front().id;
        const std::string input = replaced(operation_.input, "@", scene_.f.path());
        outcome_ = Program(faulty, words, Program::Output::collected, input).wait();
    }

    void checkConfig() const {
        const std::string now = scene_.f.read(settings);
        const bool isNew = (now.find("tidewrack") == now.npos) != (config_.find("tidewrack") == config_.npos);
        EXPECT_TRUE(now == config_ || isNew) << now;
        EXPECT_TRUE(nlohmann::json::accept(now)) << now;
    }

    // The user continues as if nothing had happened.
    void checkNextCommands() {
        const World& world = scene_.world;
        (void)::unlink(scene_.f.at("report").c_str());
        EXPECT_EQ(world.run({"track"}).status, 0);
        EXPECT_EQ(world.run({"log"}).status, 0);
        const Outcome snap = world.run({"snap"});
        EXPECT_EQ(snap.status, 0) << snap.err;
        EXPECT_EQ(snap.err, "");
        if (operation_.prepare == workInTwo) finishBoth();
        if (operation_.words[0] == "forget") finishForgetting();
        if (operation_.words[0] == "vault") { // clears up after the one before it
            world.ok({"vault", "restore", scene_.vault().entries().front().id});
            EXPECT_EQ(scene_.f.listing("home").find("/.tidewrack-"), std::string::npos) << scene_.f.listing("home");
            EXPECT_EQ(scene_.f.listing("store/vault").find("restore."), std::string::npos);
        }
        if (!operation_.losesHistory) scene_.expectOlderSnapshotsComeBack(operation_.due);
        world.ok({"restore", std::to_string(world.history().seqs().front())});
        world.ok({"hooks", "install", "claude"});
        (void)::unlink((world.history().folder() + "/last-prune").c_str());
        EXPECT_EQ(world.run({"snap"}).err, ""); // prunes by itself
        world.ok({"check"});
        scene_.expectTidy();
    }

    // Both go or both stay, with their contents.
    void finishForgetting() {
        const World& world = scene_.world;
        world.ok({"forget", "--before", "2000-01-01T00:00", "--yes"});
        const auto seqs = world.history().seqs();
        EXPECT_EQ(std::count(seqs.begin(), seqs.end(), 1), std::count(seqs.begin(), seqs.end(), 2));
    }

    // Whatever was done before it was cut short: the same words do the rest, or tell what they leave alone.
    void finishBoth() {
        const Outcome again = scene_.world.run(operation_.words);
        EXPECT_TRUE(again.status == 0 || again.status == 3) << again.err;
        const bool told = again.status == 3 || again.out.find("taken back here, but not in ") != again.out.npos;
        EXPECT_TRUE(told || scene_.f.read("project/file") == "unsaved work in the file") << again.out;
        EXPECT_TRUE(told || scene_.f.read("home/other/file") == "the other project's") << again.out;
        const std::string other = scene_.f.at("home/other");
        scene_.world.ok({"restore", "1", "--project", other}); // tidies up
        const auto project = scene_.world.store().projectContaining(other);
        ASSERT_TRUE(project);
        (void)::unlink((scene_.world.store().history(*project).folder() + "/last-prune").c_str());
        scene_.world.ok({"snap", "--project", other});
    }

    const Operation& operation_;
    std::string kind_;
    bool keepsContents_; // a file has its content before it has its name
    std::string trace_;
    Scene scene_;
    std::set<std::string> before_;
    std::set<std::string> recoverable_; // before, as well
    std::string config_;
    Outcome outcome_;
};

// All calls of an operation, several at once; `kindOf(n)` says how the n-th goes wrong. Returns how many there are.
std::size_t atEveryCall(const Operation& operation, const std::function<std::string(std::size_t)>& kindOf,
                        const std::function<void(Attempt&)>& check, const char* volume = nullptr) {
    std::atomic<std::size_t> next = 1;
    std::atomic<std::size_t> reached = 0;
    std::atomic<bool> ended = false;
    std::vector<std::thread> workers;
    for (std::size_t i = 0; i < threads; ++i)
        workers.emplace_back([&] {
            while (!ended) {
                const std::size_t call = next++;
                Attempt attempt(operation, call, kindOf(call), volume);
                if (!attempt.reached()) {
                    ended = true;
                    return;
                }
                ++reached;
                check(attempt);
            }
        });
    for (std::thread& worker : workers) worker.join();
    return reached;
}

class Faults : public ::testing::TestWithParam<Operation> {};

} // namespace

TEST_P(Faults, deathAtEveryCall) {
    const std::size_t calls = atEveryCall(
        GetParam(), [](std::size_t) { return "death"; },
        [](Attempt& attempt) {
            // A hook answers although the process in which it saves died.
            const Outcome& outcome = attempt.outcome();
            EXPECT_TRUE(outcome.status == 128 + SIGKILL || attempt.isHook()) << attempt.trace();
            EXPECT_TRUE(outcome.status != 0 || outcome.out.find("\"ask\"") != outcome.out.npos ||
                        attempt.call() == "end")
                << attempt.trace();
            attempt.check();
        });
    EXPECT_GT(calls, 4U);
}

TEST_P(Faults, powerCutAtEveryCall) {
    const std::size_t calls = atEveryCall(
        GetParam(), [](std::size_t) { return "power cut"; }, [](Attempt& attempt) { attempt.check(); },
        GetParam().restores() ? "ext4" : nullptr);
    EXPECT_GT(calls, 4U);
}

// Each call with one of the errors; TIDEWRACK_FAULT_ERRORS=1 to 5 shifts which, so that six runs do all of them.
TEST_P(Faults, everyCallFailsOnce) {
    const char* shift = std::getenv("TIDEWRACK_FAULT_ERRORS");
    const std::size_t first = shift == nullptr ? 0 : std::strtoul(shift, nullptr, 10);
    const std::size_t calls = atEveryCall(
        GetParam(), [&](std::size_t call) { return std::to_string(errors[(first + call) % errors.size()]); },
        [](Attempt& attempt) {
            attempt.checkMessages();
            attempt.check();
        });
    EXPECT_GT(calls, 4U);
}

TEST_P(Faults, fullDiskAtEveryBlock) {
    const TemporaryFolder trial;
    if (::mount("none", trial.path().c_str(), "tmpfs", 0, nullptr) != 0) GTEST_SKIP() << "mounting is not allowed here";
    EXPECT_EQ(::umount(trial.path().c_str()), 0);
    std::size_t failed = 0;
    for (std::size_t blocks = 0; blocks < mostBlocks; ++blocks) {
        Attempt attempt(GetParam(), blocks, fullDisk);
        if ((attempt.outcome().out + attempt.outcome().err).find("No space") != std::string::npos) ++failed;
        attempt.checkDoneUnlessToldOtherwise();
        attempt.checkSavedOrAsked();
        attempt.check();
    }
    EXPECT_LT(failed, mostBlocks);
    const std::string word = GetParam().words[0];
    // Where there is little room it prunes first, which makes some.
    const bool makesRoom = std::string_view(GetParam().name) == "snap that prunes";
    EXPECT_EQ(failed > 0,
              !makesRoom && (failed > 0 || word == "track" || word == "snap" || word == "restore" || word == "undo"));
}

// Right before a file is moved aside another program writes to it, or makes it, and maybe writes under its name right
// afterwards as well; then the restore may die, and a person may delete all that it left. "plain" volumes can't
// exchange two names, "timeless" ones set no times.
TEST(FaultsOfOthers, whatIsWrittenAtTheLastMomentStays) {
    for (const auto& [volume, kind] : std::vector<std::pair<const char*, std::string>>{
             {"", "write"},
             {"", "write, death"},
             {"", "write twice"},
             {"", "write twice, death"},
             {"plain", "write twice"},
             {"plain", "write twice, death"},
             {"plain", "death"},
             {"timeless", "write"},
         }) {
        const bool dies = kind.ends_with("death");
        std::vector<const char*> written;
        if (kind != "death") written.push_back("somebody's words");
        if (kind.starts_with("write twice")) written.push_back("somebody's second words");
        const auto check = [&](Attempt& attempt) {
            EXPECT_EQ(attempt.outcome().status == 128 + SIGKILL, dies) << attempt.trace();
            const std::string told = "it changed after the safety snapshot";
            EXPECT_TRUE(dies || attempt.outcome().out.find(told) != told.npos) << attempt.trace();
            for (const char* words : written) {
                EXPECT_TRUE(dies || attempt.holds(words, &Scene::contents)) << attempt.trace() << words;
                EXPECT_TRUE(attempt.nextSnapshotHolds(words)) << attempt.trace() << words;
            }
            attempt.check();
            for (const char* words : written)
                EXPECT_TRUE(attempt.holds(words, &Scene::recoverable)) << attempt.trace() << words;
        };
        std::size_t reached = 0;
        for (const Operation& operation : operations())
            if (operation.words[0] == "restore" ||
                (operation.words[0] == "undo" && operation.prepare != workInTwo)) // which looks at one project alone
                reached += atEveryCall(
                    operation, [&, how = kind](std::size_t) { return how; }, check, volume);
        EXPECT_GT(reached, 4U);
    }
}

// Whatever goes wrong while a rename is taken back, people find the file under one of its names.
TEST(FaultsOfOthers, aRenameTakenBackLeavesOneOfTheNames) {
    const Operation back{"a rename taken back", {"restore", "4"}, [](Scene& scene) {
                             scene.history();
                             scene.f.write("project/from", "has one name");
                             scene.world.ok({"snap"});
                             EXPECT_EQ(::rename(scene.f.at("project/from").c_str(), scene.f.at("project/to").c_str()),
                                       0);
                         }};
    for (const std::string& kind :
         {std::string("death"), std::string("power cut"), std::to_string(ENOSPC), std::to_string(EIO)}) {
        const std::size_t calls = atEveryCall(
            back, [&](std::size_t) { return kind; },
            [](Attempt& attempt) { EXPECT_TRUE(attempt.shows("has one name")) << attempt.trace() << attempt.call(); });
        EXPECT_GT(calls, 4U);
    }
}

// A file and a folder that take each other's place: for a moment neither is there, and the next command gives back what
// a kill in that moment leaves.
TEST(FaultsOfOthers, aFileThatBecomesAFolderComesBackAndTheReverse) {
    static const auto change = [](const Scene& scene, const char* path) {
        scene.f.remove("project/name");
        scene.f.write(path, "has one name");
    };
    const Operation swaps[] = {{"a folder in a file's place",
                                {"restore", "4"},
                                [](Scene& scene) {
                                    scene.history();
                                    change(scene, "project/name/file");
                                    scene.world.ok({"snap"});
                                    change(scene, "project/name");
                                }},
                               {"a file in a folder's place", {"restore", "4"}, [](Scene& scene) {
                                    scene.history();
                                    change(scene, "project/name");
                                    scene.world.ok({"snap"});
                                    change(scene, "project/name/file");
                                }}};
    for (const Operation& swap : swaps) {
        std::atomic<std::size_t> given = 0;
        const std::size_t calls = atEveryCall(
            swap, [](std::size_t) { return "death"; },
            [&](Attempt& attempt) {
                if (!attempt.shows("has one name")) ++given;
                EXPECT_TRUE(attempt.showsAfter({"restore", "1", "quiet"}, "has one name"))
                    << attempt.trace() << attempt.call();
            });
        EXPECT_GT(calls, 4U);
        EXPECT_GT(given, 0U) << "it has one of the names all the time";
    }
}

// A network volume repeats a call whose answer was lost, and the second answer is that there is nothing left to do.
TEST(FaultsOfOthers, aCallMadeTwiceIsNoFailure) {
    for (const Operation& operation : operations())
        (void)atEveryCall(
            operation, [](std::size_t) { return "twice"; },
            [](Attempt& attempt) {
                const Outcome& outcome = attempt.outcome();
                EXPECT_EQ(outcome.status, 0) << attempt.trace() << attempt.call() << outcome.err;
                EXPECT_EQ((outcome.out + outcome.err).find("couldn't"), std::string::npos)
                    << attempt.trace() << attempt.call() << outcome.out << outcome.err;
                attempt.check();
            },
            "plain");
}

// The command that a hook has let go on flushes what it removes; where that takes no other names along, what was saved
// before it must be on the disk by itself.
TEST(FaultsOfOthers, whatIsFlushedLaterDoesNotOutliveWhatWasSaved) {
    std::size_t reached = 0;
    for (const Operation& operation : operations()) {
        const bool undoes = operation.words[0] == "undo";
        if (!undoes && operation.input != removesFile && operation.input != removesNotes) continue;
        for (const char* volume : {"btrfs", "unknown"}) {
            Attempt attempt(operation, 1, "later flush", volume);
            if (attempt.reached()) ++reached;
            EXPECT_TRUE(!undoes || attempt.newestKind() == "restored") << attempt.trace(); // it has the merged text
            attempt.check();
        }
    }
    EXPECT_EQ(reached, 12U);
}

// What a hook lets go on, on a disk with any room, is saved.
TEST(FaultsOfOthers, aFullDiskIsNoReasonToAllowALoss) {
    const TemporaryFolder trial;
    if (::mount("none", trial.path().c_str(), "tmpfs", 0, nullptr) != 0) GTEST_SKIP() << "mounting is not allowed here";
    EXPECT_EQ(::umount(trial.path().c_str()), 0);
    const Operation loses{"loss",
                          {"hook", "claude"},
                          [](Scene& scene) { scene.history(); },
                          runs + R"("tool_input":{"command":"rm -rf unsaved"}})"};
    std::size_t asked = 0;
    for (std::size_t blocks = 0; blocks < mostBlocks; ++blocks) {
        const Attempt attempt(loses, blocks, fullDisk);
        const bool asks = attempt.outcome().out.find("\"ask\"") != std::string::npos;
        EXPECT_TRUE(asks || attempt.newestSnapshotHolds("unsaved new file")) << blocks << attempt.outcome().out;
        if (asks) ++asked;
    }
    EXPECT_GT(asked, 0U);
}

// A snapshot that was killed may have left its names unflushed; one that finds nothing new relies on it.
TEST(FaultsOfOthers, anUnchangedSnapshotFlushesAFreshOne) {
    const auto flushes = [](void (*prepare)(Scene&)) {
        const Operation unchanged{"unchanged", {"snap"}, prepare};
        for (std::size_t call = 1;; ++call) {
            const Attempt attempt(unchanged, call, "death", "btrfs");
            if (!attempt.reached()) return false;
            if (attempt.call() == "ioctl") return true;
        }
    };
    EXPECT_TRUE(flushes([](Scene& scene) {
        scene.history();
        scene.world.ok({"snap"});
    }));
    EXPECT_FALSE(flushes([](Scene& scene) {
        scene.history();
        scene.world.ok({"snap"});
        rewriteRecord(scene.world, 4, [](SnapshotMeta& meta) { meta.created -= std::chrono::minutes(2); });
    }));
}

INSTANTIATE_TEST_SUITE_P(Every, Faults, ::testing::ValuesIn(operations()),
                         [](const auto& each) { return replaced(each.param.name, " ", "_"); });
