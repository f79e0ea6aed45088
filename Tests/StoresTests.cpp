// Stores as earlier versions wrote them (scripts/lib/store-sample): a newer program reads them, and goes on with them.

#include "Support/TestFolders.hpp"

#include "Support/Text.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

using namespace tidewrack;
using namespace tidewrack::testing;
using nlohmann::json;

namespace {

// Unpacks a sample, and makes the project of the world the one that its history is of.
void unpack(const World& world, const std::string& sample) {
    const TemporaryFolder& f = world.folder;
    const std::string line = "tar -xpzf " + singleQuoted(sample) + " -C " + singleQuoted(f.path());
    ASSERT_EQ(std::system(line.c_str()), 0);
    const std::filesystem::path projects = f.at("store/projects");
    const auto old = std::filesystem::directory_iterator(projects)->path();
    const std::string id = Store::projectID(world.projectPath());
    json record = json::parse(f.read("store/projects/" + old.filename().string() + "/project.json"));
    record["id"] = id;
    record["root"] = world.projectPath();
    f.write("store/projects/" + old.filename().string() + "/project.json", record.dump());
    std::filesystem::rename(old, projects / id);
}

} // namespace

TEST(Stores, ofEarlierVersionsAreReadAndGoneOnWith) {
    std::size_t count = 0;
    for (const auto& sample : std::filesystem::directory_iterator(inCheckout("Tests/Data/stores"))) {
        SCOPED_TRACE(sample.path().filename().string());
        ++count;
        const World world;
        const TemporaryFolder& f = world.folder;
        unpack(world, sample.path());
        EXPECT_TRUE(json::parse(world.ok({"check", "--contents", "--json"}))["healthy"]);
        const json rows = json::parse(world.ok({"timeline", "--json"}))["rows"];
        const auto turn = std::find_if(rows.begin(), rows.end(), [](const json& row) { return row["type"] == "turn"; });
        ASSERT_NE(turn, rows.end()) << rows;
        EXPECT_EQ((*turn)["title"], "Tidy up");
        EXPECT_EQ((*turn)["agent"], "claude");
        EXPECT_EQ((*turn)["commands"][0]["command"], "rm -r src");
        EXPECT_EQ(json::parse(world.ok({"vault", "--json"})).size(), 1U);
        EXPECT_EQ(json::parse(world.ok({"find", "main.c", "--json"}))["paths"][0]["goneIn"], (*turn)["last"]);
        // As it was after the turn, and from there back by an undo.
        world.ok({"restore", std::to_string((*turn)["last"].get<int>())});
        EXPECT_EQ(f.read("project/README.md"), "rewritten\n");
        EXPECT_FALSE(f.has("project/src/main.c"));
        world.ok({"undo", "--turn", std::to_string((*turn)["first"].get<int>()), "--here"});
        EXPECT_EQ(f.read("project/README.md") + f.read("project/src/main.c"), "the original\nint main;\n");
        f.write("project/new", "");
        world.ok({"snap"});
        world.ok({"restore", "1"});
        EXPECT_TRUE(f.has("project/empty") && !f.has("project/new"));
        EXPECT_EQ(f.listing("project").find("new"), std::string::npos);
        EXPECT_TRUE(json::parse(world.ok({"check", "--contents", "--json"}))["healthy"]);
    }
    EXPECT_GE(count, 2U);
}
