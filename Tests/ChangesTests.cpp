#include "Support/TestHistory.hpp"

#include "Changes/Changes.hpp"

#include <gtest/gtest.h>

using namespace tidewrack;
using namespace tidewrack::testing;

TEST(Changes, listsAndCounts) {
    const Changes mixed{{"c", "d"}, {"b"}, {"a", "e"}, {"d", "e"}};
    EXPECT_EQ(mixed.all(), (std::vector<std::string>{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(mixed.fileCounts(), (Changes::Counts{1, 1, 1}));
    EXPECT_TRUE(Changes().isEmpty() && !mixed.isEmpty() && !(Changes{{}, {"a"}, {}, {}}).isEmpty());
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
