#include "Support/TestHistory.hpp"

#include "Changes/Changes.hpp"

#include <gtest/gtest.h>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

// Lines of "kind mode blob path"; the rest of each entry differs from line to line, because it must not matter.
Manifest listing(const std::vector<std::string>& lines) {
    static std::int64_t other = 0;
    std::string text;
    for (const std::string& line : lines) {
        const auto mode = line.find(' ');
        const auto blob = line.find(' ', mode + 1);
        const auto path = line.find(' ', blob + 1);
        const std::string number = std::to_string(++other);
        text += line.substr(0, mode) + "\t" + line.substr(mode + 1, blob - mode - 1) + "\t" + number + "\t" + number +
                "\t" + number + "\t" + number + "\t" + line.substr(blob + 1, path - blob - 1) + "\t" +
                line.substr(path + 1) + "\n";
    }
    return Manifest::decodeText(TextBuffer(text));
}

} // namespace

TEST(Changes, betweenTwoListings) {
    struct Case {
        const char* what;
        std::vector<std::string> older;
        std::vector<std::string> newer;
        Changes changes;
    };
    const Case cases[] = {
        {"nothing", {}, {}, {}},
        {"the same", {"f 420 1/0 a", "d 493  s"}, {"f 420 1/0 a", "d 493  s"}, {}},
        {"all new", {}, {"f 420 1/0 b", "d 493  a", "l 511 1/1 a/x"}, {{"a", "a/x", "b"}, {}, {}, {"a"}}},
        {"all gone", {"f 420 1/0 b", "d 493  a"}, {}, {{}, {}, {"a", "b"}, {"a"}}},
        {"a folder's mode", {"d 493  a"}, {"d 448  a"}, {}},
        {"a folder that git ignores now", {"d 493  a"}, {"d 493 ign a"}, {}},
        {"a file's mode", {"f 420 1/0 a"}, {"f 493 1/0 a"}, {{}, {"a"}, {}, {}}},
        {"a file's content", {"f 420 1/0 a"}, {"f 420 2/0 a"}, {{}, {"a"}, {}, {}}},
        {"a link's content", {"l 511 1/0 a"}, {"l 511 2/0 a"}, {{}, {"a"}, {}, {}}},
        {"file to link", {"f 511 1/0 a"}, {"l 511 1/0 a"}, {{}, {"a"}, {}, {}}},
        {"file to folder", {"f 420 1/0 a"}, {"d 493  a", "f 420 2/0 a/b"}, {{"a/b"}, {"a"}, {}, {}}},
        {"folder to link", {"d 493  a", "d 493  a/b"}, {"l 511 2/0 a"}, {{}, {"a"}, {"a/b"}, {"a/b"}}},
        {"byte order",
         {},
         {"f 1 1/0 a/b", "f 1 1/1 a-b", "f 1 1/2 B", "f 1 1/3 \xff"},
         {{"B", "a-b", "a/b", "\xff"}, {}, {}, {}}},
    };
    for (const Case& each : cases) {
        const Changes changes = Changes::between(listing(each.older), listing(each.newer));
        EXPECT_EQ(changes, each.changes) << each.what;
        EXPECT_EQ(changes.isEmpty(), changes.all().empty()) << each.what;
    }
    const Changes mixed{{"c", "d"}, {"b"}, {"a", "e"}, {"d", "e"}};
    EXPECT_EQ(mixed.all(), (std::vector<std::string>{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(mixed.fileCounts(), (Changes::Counts{1, 1, 1}));
}

TEST(Changes, toNowComparesAttributesOnly) {
    World world;
    const auto& f = world.folder;
    for (const char* name : {"same", "touched", "mode", "gone", "kind"}) f.write(world.projectFile(name), "text");
    f.makeFolder("project/folder");
    world.ok({"track"});
    f.write("project/touched", "text");
    ::chmod(f.at("project/mode").c_str(), 0755);
    f.remove("project/gone");
    f.remove("project/kind");
    f.write("project/kind/child", "new");
    ::chmod(f.at("project/folder").c_str(), 0700);
    EXPECT_EQ(world.ok({"diff", "1"}), "+ kind/child\n~ kind\n~ mode\n~ touched\n- gone\n");
    world.ok({"snap"});
    EXPECT_EQ(world.ok({"diff", "1", "#2"}), "+ kind/child\n~ kind\n~ mode\n~ touched\n- gone\n");
    EXPECT_EQ(world.ok({"diff", "2", "1"}), "+ gone\n~ kind\n~ mode\n~ touched\n- kind/child\n");
    EXPECT_EQ(world.ok({"diff", "2"}), "No changes.\n");
}

TEST(Changes, fileChangesSayWhereTheContentsAre) {
    World world;
    const auto& f = world.folder;
    for (const char* name : {"b-modified", "c-gone", "e-big"}) f.write(world.projectFile(name), "1234567890");
    f.link("project/f-link", "x");
    f.makeFolder("project/g-folder");
    world.ok({"track"});
    const Engine engine(world.store());
    Project project = world.project();
    f.write("project/b-modified", "now");
    f.write("project/a-new", "new file");
    f.remove("project/c-gone");
    f.remove("project/f-link");
    f.link("project/f-link", "y");
    f.remove("project/g-folder");
    f.write("project/e-big", "more than ten");
    const auto kept = [&](std::int64_t seq, const char* path) {
        const Manifest manifest = world.manifestOf(seq);
        return world.store().blobPath(project, manifest.find(path)->blob);
    };
    using Status = FileChange::Status;
    std::vector<FileChange> expected = {
        {"a-new", Status::added, {}, f.at("project/a-new"), {}, 8},
        {"b-modified", Status::modified, kept(1, "b-modified"), f.at("project/b-modified"), 10, 3},
        {"c-gone", Status::deleted, kept(1, "c-gone"), {}, 10, {}},
        {"e-big", Status::modified, kept(1, "e-big"), f.at("project/e-big"), 10, 13},
        {"f-link", Status::modified, {}, {}, 1, 1}};
    EXPECT_EQ(engine.fileChanges(project, 1, std::nullopt), expected);
    project.maxFileSize = 10;
    engine.snapshot(project, {"manual", {}, {}, {}, {}});
    for (FileChange& change : expected)
        if (change.newContent) change.newContent = kept(2, change.path.c_str());
    expected[3].newContent = std::nullopt; // not kept
    EXPECT_EQ(engine.fileChanges(project, 1, 2), expected);
}
