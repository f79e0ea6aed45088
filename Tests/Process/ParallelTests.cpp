// Many processes on one store, and a user who writes while snapshots and restores are under way. Every file's content
// tells which file and which version it is, so that a torn copy shows.

#include "Platform/Descriptor.hpp"
#include "Support/Program.hpp"
#include "Support/TestFolders.hpp"

#include "Support/Dates.hpp"
#include "Support/Files.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

using Words = std::vector<std::string>;
constexpr int versionLines = 300;

std::string lineOf(const std::string& name, int version) {
    std::string number = std::to_string(version);
    return name + " v" + number.insert(0, 5 - number.size(), '0') + "\n";
}

// One version of a file: always the same length.
std::string content(const std::string& name, int version) {
    std::string text;
    for (int i = 0; i < versionLines; ++i) text += lineOf(name, version);
    return text;
}

std::string added(const std::string& name, int version) {
    return name + " +" + std::to_string(version) + "\n";
}

// So large that it is written into during every copy: of each version first the first line, then the last.
const std::string large = "src0/large";

// Whether the file ever held this: one version in whole, and whole lines that were added to it since.
bool isState(const std::string& name, const std::string& text) {
    const std::string line = text.substr(0, lineOf(name, 0).size());
    if (name == large) return line >= text.substr(text.size() - line.size());
    std::string version;
    for (int i = 0; i < versionLines; ++i) version += line;
    if (!line.starts_with(name + " v") || !text.starts_with(version)) return false;
    for (std::size_t at = version.size(); at < text.size(); at = text.find('\n', at) + 1)
        if (text.find(name + " +", at) != at || text.find('\n', at) == text.npos) return false;
    return true;
}

// For messages.
std::string ends(const std::string& text) {
    return text.size() < 80 ? text : text.substr(0, 40) + "..." + text.substr(text.size() - 40);
}

// Gives the file a new content in one step.
void putInPlace(const TemporaryFolder& folder, const std::string& path, const std::string& text) {
    folder.write("aside", text);
    EXPECT_EQ(::rename(folder.at("aside").c_str(), path.c_str()), 0) << path;
}

class ParallelTest : public ::testing::Test {
  protected:
    static constexpr int others = 8;

    std::string folderOf(int project) const {
        return project < 0 ? world.projectPath() : f.at("other" + std::to_string(project));
    }
    static std::string nameOf(int file) { return "src" + std::to_string(file % 3) + "/f" + std::to_string(file); }

    void writeVersion(int project, int files, int version) const {
        for (int i = 0; i < files; ++i) putInPlace(f, folderOf(project) + "/" + nameOf(i), content(nameOf(i), version));
    }

    void track(int project, int files) {
        for (int i = 0; i < 3; ++i)
            f.makeFolder(folderOf(project).substr(f.path().size() + 1) + "/src" + std::to_string(i));
        writeVersion(project, files, 1);
        at(project).ok({"track"});
    }

    World& at(int project) {
        world.current = folderOf(project);
        return world;
    }

    std::unique_ptr<Program> start(int project, const Words& words, const std::string& input = "") {
        return std::make_unique<Program>(at(project), words, Program::Output::collected, input);
    }

    std::string eventOf(const std::string& name, int project) const {
        return R"({"hook_event_name":")" + name + R"(","cwd":")" + folderOf(project) + R"(","session_id":")" +
               std::to_string(project) + R"("})";
    }

    // Every record and listing can be read, and every content in them is one that its file had.
    void expectWhole(int project) {
        const History history = at(project).history();
        std::map<std::string, bool> checked; // by blob
        for (const SnapshotMeta& meta : history.snapshots()) {
            const Manifest manifest = history.manifest(meta);
            EXPECT_EQ(manifest.fileCount(), meta.files);
            for (const auto& item : manifest.items()) {
                if (!item.entry.isKept() || !checked.emplace(item.entry.blob, true).second) continue;
                std::string text;
                ASSERT_EQ(readFile(history.blobPath(item.entry.blob), text), 0) << meta.seq << ": " << item.path;
                ASSERT_EQ(static_cast<std::int64_t>(text.size()), item.entry.size) << meta.seq << ": " << item.path;
                ASSERT_TRUE(isState(std::string(item.path), text))
                    << meta.seq << ": " << item.path << ": " << ends(text);
            }
        }
    }

    // The newest snapshot is the folder as it is.
    void expectLatestIsTheFolder() {
        const History history = at(-1).history();
        const Manifest manifest = world.manifestOf(history.seqs().back());
        for (const auto& item : manifest.items()) {
            if (item.entry.kind != EntryKind::file) continue;
            std::string text;
            ASSERT_EQ(readFile(history.blobPath(item.entry.blob), text), 0) << item.path;
            const std::string now = f.read("project/" + std::string(item.path));
            ASSERT_TRUE(text == now) << item.path << " is " << ends(now) << " but was kept as " << ends(text);
        }
    }

    World world;
    const TemporaryFolder& f = world.folder;
};

// Changes files of the project in the ways that programs do: a new file in the old one's place, lines added, bytes
// overwritten, the file moved away and back. Remembers what it wrote last into each.
class Writer {
  public:
    Writer(const TemporaryFolder& folder, unsigned seed) : folder_(folder), random_(seed) {}

    void write(const std::string& name, int way, int version) {
        const std::string path = folder_.at("project/" + name);
        if (way == 0) putInPlace(folder_, path, content(name, version));
        if (way == 1 && !writeInto(path, O_APPEND, added(name, version))) return;
        if (way == 2 && !writeInto(path, 0, content(name, version))) return;
        if (way == 3) return moveAwayAndBack(path);
        last[name] = way == 1 ? added(name, version) : content(name, version);
    }

    void writeEnds(const std::string& name, int version) const {
        const Descriptor file(::open(folder_.at("project/" + name).c_str(), O_WRONLY | O_CLOEXEC));
        const std::string line = lineOf(name, version);
        const auto length = static_cast<off_t>(line.size());
        for (const off_t at : {off_t{0}, ::lseek(file.get(), -length, SEEK_END)})
            EXPECT_EQ(::pwrite(file.get(), line.data(), line.size(), at), length);
    }

    void pause(unsigned most) { std::this_thread::sleep_for(std::chrono::microseconds(random_() % most)); }

    std::map<std::string, std::string> last;

  private:
    // As a careful program does: again when the file was replaced while it was open. False when there is none.
    static bool writeInto(const std::string& path, int flags, const std::string& text) {
        struct stat status {};
        do {
            const Descriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC | flags));
            if (!file) return false;
            EXPECT_EQ(::write(file.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
            EXPECT_EQ(::fstat(file.get(), &status), 0);
        } while (status.st_nlink == 0);
        return true;
    }

    void moveAwayAndBack(const std::string& path) {
        if (::rename(path.c_str(), folder_.at("away").c_str()) != 0) return;
        pause(100);
        EXPECT_EQ(::rename(folder_.at("away").c_str(), path.c_str()), 0) << path;
    }

    const TemporaryFolder& folder_;
    std::mt19937 random_;
};

std::vector<std::int64_t> numbersUpTo(std::int64_t last) {
    std::vector<std::int64_t> numbers(static_cast<std::size_t>(last));
    std::iota(numbers.begin(), numbers.end(), 1);
    return numbers;
}

} // namespace

TEST_F(ParallelTest, hooksRestoresAndPrunesOfNineProjects) {
    track(-1, 40);
    for (int i = 0; i < others; ++i) track(i, 6);
    std::map<int, std::int64_t> expected; // how many numbers each project has given out
    std::set<std::int64_t> pruned;
    const auto hour = std::chrono::floor<std::chrono::hours>(now());
    const std::pair<const char*, const char*> agents[] = {
        {"claude", "UserPromptSubmit"}, {"cursor", "stop"}, {"gemini", "AfterAgent"}};
    std::size_t hooks = 0;
    for (int round = 0; round < 3; ++round) {
        // Four snapshots of one hour some days ago, for prune to thin out while the others work.
        const std::int64_t first = at(-1).history().seqs().back() + 1;
        for (std::int64_t seq = first; seq < first + 4; ++seq) {
            at(-1).ok({"snap"});
            rewriteRecord(world, seq,
                          [&](SnapshotMeta& meta) { meta.created = hour - std::chrono::hours(72 + round); });
            if (seq < first + 3) pruned.insert(seq);
        }
        expected[-1] += 4;
        std::vector<std::pair<int, std::unique_ptr<Program>>> programs;
        for (int i = 0; i < 40; ++i) {
            const int project = i % 2 == 0 ? -1 : i / 2 % others;
            const auto kind = static_cast<std::size_t>(i / 2 + i / 20) % 4;
            writeVersion(project, 3, 100 * (round + 1) + i);
            const Words words[] = {{"snap"}, {"restore", "1"}, {"prune"}, {"hook", agents[hooks % 3].first}};
            programs.emplace_back(project, start(project, words[kind], eventOf(agents[hooks % 3].second, project)));
            expected[project] += std::array{1, 2, 0, 1}[kind];
            if (kind == 3) ++hooks;
            if (i % 10 == 9) programs.emplace_back(project, start(project, {"check"}));
        }
        std::map<int, std::set<std::string>> numbers;
        for (const auto& [project, program] : programs) {
            const Outcome outcome = program->wait();
            EXPECT_EQ(outcome.status, 0) << outcome.err;
            if (!outcome.out.starts_with('#')) continue;
            const std::string number = outcome.out.substr(0, outcome.out.find(' '));
            EXPECT_TRUE(numbers[project].insert(number).second) << number << " twice";
        }
    }
    for (int project = -1; project < others; ++project) {
        at(project).ok({"prune"});
        auto seqs = numbersUpTo(expected[project] + 1);
        if (project == -1) std::erase_if(seqs, [&](std::int64_t seq) { return pruned.contains(seq); });
        EXPECT_EQ(world.history().seqs(), seqs) << project;
        expectWhole(project);
    }
    // Each hook's line is there in whole.
    const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ (claude|cursor|gemini) \w+ \d+ms #\d+ \S+)");
    std::istringstream log(f.read("store/hooks.log"));
    for (std::string line; std::getline(log, line);) {
        if (line.find(" dotfiles ") != line.npos) continue;
        EXPECT_TRUE(std::regex_match(line, form)) << line;
        --hooks;
    }
    EXPECT_EQ(hooks, 0U);
}

TEST_F(ParallelTest, snapshotsWhileSomebodyWrites) {
    constexpr int files = 30;
    track(-1, files);
    f.write("project/" + large, lineOf(large, 1) + std::string(8'000'000, '\n') + lineOf(large, 1));
    std::atomic<bool> done = false;
    Writer writer(f, 1);
    std::thread writing([&] {
        for (int version = 2; !done && version < 90'000; ++version) {
            const int file = (version * 7) % files;
            writer.write(nameOf(file), file % 4, version);
            writer.writeEnds(large, version);
            writer.pause(200);
        }
    });
    for (int i = 0; i < 8; ++i) EXPECT_EQ(start(-1, {"snap"})->wait().status, 0);
    done = true;
    writing.join();
    EXPECT_EQ(start(-1, {"snap"})->wait().err, "");
    expectLatestIsTheFolder();
    EXPECT_EQ(world.history().seqs(), numbersUpTo(10));
    expectWhole(-1);
    at(-1).ok({"check"});
}

// What was written last is in the folder or in the snapshot that the restore took first.
TEST_F(ParallelTest, restoresWhileSomebodyWrites) {
    constexpr int files = 70;     // so many that several threads put them back
    constexpr int allFiles = 110; // the restore removes the later ones
    track(-1, files);
    const std::regex report("Restored \\d+ files?, removed \\d+ files?. Undo this with: tidewrack restore (\\d+)\n"
                            "(warning: couldn't restore src\\d/f\\d+: it changed after the safety snapshot\n)*");
    for (int round = 0; round < 16 && !HasFailure(); ++round) {
        writeVersion(-1, allFiles, 100 + round);
        Writer writer(f, static_cast<unsigned>(round));
        const auto restore = start(-1, {"restore", "1"});
        std::atomic<bool> done = false;
        // Goes through the files about as fast as the restore does, once that has begun to remove or to put back.
        std::thread writing([&] {
            const int begin = round % 2 == 0 ? 0 : files;
            const int end = round % 2 == 0 ? files : allFiles;
            std::vector<std::string> names;
            for (int file = begin; file < end; ++file) names.push_back(nameOf(file));
            std::sort(names.begin(), names.end());
            const std::string unchanged = content(names[0], 100 + round);
            while (!done && f.read("project/" + names[0]) == unchanged) {
            }
            for (const std::string& name : names) {
                writer.write(name, static_cast<int>(name.back() - '0') % 4, 1000 + round);
                writer.pause(1 + static_cast<unsigned>(round) * 8);
            }
        });
        const Outcome outcome = restore->wait();
        done = true;
        writing.join();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        std::smatch safety;
        ASSERT_TRUE(std::regex_match(outcome.out, safety, report)) << outcome.out;
        for (const auto& [name, text] : writer.last) {
            const std::string now = f.read("project/" + name);
            EXPECT_TRUE(now == "<missing>" || isState(name, now)) << name << ": " << ends(now);
            EXPECT_TRUE(now.find(text) != now.npos || at(-1).run({"cat", safety[1], name}).out.find(text) != text.npos)
                << round << ": " << name << " was lost: " << ends(now);
        }
        EXPECT_EQ(f.listing("project").find(".tidewrack-"), std::string::npos);
        EXPECT_EQ(start(-1, {"snap"})->wait().err, "");
        expectLatestIsTheFolder();
    }
    expectWhole(-1);
}

// So many files that a thread flushes the volume while others copy.
TEST_F(ParallelTest, manyFilesWhileSomebodyWrites) {
    constexpr int files = 1100;
    for (const char* folder : {"project/src0", "project/src1", "project/src2"}) f.makeFolder(folder);
    writeVersion(-1, files, 1);
    const auto write = [&](int version, const Words& words) {
        const auto program = start(-1, words);
        Writer writer(f, static_cast<unsigned>(version));
        for (int file = 0; file < 90; ++file)
            if (file % 3 != 2) writer.write(nameOf(file), file % 4, version);
        return program->wait();
    };
    EXPECT_EQ(write(2, {"track"}).status, 0);
    EXPECT_EQ(start(-1, {"snap"})->wait().err, "");
    f.remove("project/src2");
    for (int file = 0; file < files; ++file)
        if (file % 3 != 2) putInPlace(f, f.at("project/" + nameOf(file)), content(nameOf(file), 3));
    EXPECT_EQ(write(4, {"restore", "2"}).status, 0);
    EXPECT_EQ(start(-1, {"snap"})->wait().err, "");
    expectLatestIsTheFolder();
    expectWhole(-1);
}
