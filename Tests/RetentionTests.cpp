#include "Support/TestFolders.hpp"

#include "Engine/RetentionPlan.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <optional>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

constexpr std::int64_t hour = 3600;
constexpr std::int64_t day = 86400;
const Date noon{std::chrono::seconds(20000 * day + 12 * hour)};

// Snapshots of the given ages in seconds; a negative age marks a pinned one of that age.
std::vector<std::int64_t> removed(const std::vector<std::int64_t>& ages, std::int64_t upTo = 0) {
    std::vector<SnapshotMeta> snapshots;
    for (const std::int64_t age : ages) {
        SnapshotMeta meta;
        meta.seq = meta.manifestOf = static_cast<std::int64_t>(snapshots.size()) + 1;
        meta.pinned = age < 0;
        meta.created = noon - std::chrono::seconds(std::abs(age));
        snapshots.push_back(meta);
    }
    return planRetention(snapshots, noon, upTo ? std::optional(noon - std::chrono::seconds(upTo)) : std::nullopt)
        .remove;
}

using Numbers = std::vector<std::int64_t>;

} // namespace

TEST(RetentionPlan, agesAndBuckets) {
    struct Case {
        const char* what;
        std::vector<std::int64_t> ages;
        Numbers removed;
    };
    const Case cases[] = {
        {"nothing", {}, {}},
        {"the last 48 hours", {2 * day - 1, 2 * day - 2, 60, 0, -5}, {}},
        {"48 hours to the second: one an hour", {2 * day + 1, 2 * day}, {}}, // 12:00:00 and 11:59:59
        {"one hour's", {2 * day + 3, 2 * day + 2, 2 * day + 1, 2 * day}, {1, 2}},
        {"hours, not spans of an hour", {3 * day + 1, 3 * day, 3 * day - 3599, 3 * day - 3600}, {2}},
        {"seven days less a second", {7 * day - 1, 7 * day - 2}, {1}},
        {"seven days: one a day", {7 * day + 11 * hour, 7 * day + 6 * hour, 7 * day}, {1, 2}},
        {"days of the calendar", {10 * day + 12 * hour + 1, 10 * day + 12 * hour, 10 * day}, {2}},
        {"30 days less a second", {30 * day - 1}, {}},
        {"30 days", {30 * day}, {1}},
        {"pinned ones stay and take nobody's place",
         {-90 * day, 90 * day, -(3 * day - 1), 3 * day - 2, 3 * day - 3},
         {2, 4}},
        {"the highest number wins, not the latest", {3 * day - 9, 3 * day - 20, 3 * day - 1}, {1, 2}},
        {"a clock set back", {-100 * day, 5, 3 * day}, {}},
    };
    for (const Case& each : cases) EXPECT_EQ(removed(each.ages), each.removed) << each.what;
}

TEST(RetentionPlan, wantOfRoomTakesTheOldestFirst) {
    EXPECT_EQ(removed({-9 * day, 9 * day, 8 * day, 3 * day, day}, 8 * day), (Numbers{2, 3}));
    EXPECT_EQ(removed({9 * day, 2 * day, 2 * day - 1, day}, 1), (Numbers{1, 2}));
    EXPECT_EQ(removed({9 * day, 8 * day}, 1), Numbers{1}) << "the newest stays";
}

// No prune of itself believes a clock that may be wrong.
TEST(RetentionPlan, confirmsTheClock) {
    struct Case {
        const char* what;
        std::vector<std::int64_t> created; // in days; the prune comes right after the last
        bool confirmed;
    };
    constexpr std::int64_t future = 7000;
    const Case cases[] = {
        {"nothing", {}, true},
        {"the first", {0}, true},
        {"every day", {0, 1, 2, 3}, true},
        {"after a year", {0, 365}, true},
        {"400 days", {0, 400}, true},
        {"401 days: a long rest, or a wrong clock", {0, 401}, false},
        {"a single one in the future", {0, 1, future}, false},
        {"a day there", {0, 1, future, future + 1}, false},
        {"two days there", {0, 1, future, future + 1, future + 2}, true},
        {"back from the future", {0, 1, future, 2}, false},
        {"back for two days", {0, 1, future, 2, 3, 4}, true},
        {"there and back and there", {0, 1, future, 2, 3, 4, future + 4}, false},
        {"pinned long ago", {0, 900, 901, 902}, true},
        {"set back by a day", {10, 9}, false},
    };
    for (const Case& each : cases) {
        std::vector<SnapshotMeta> snapshots;
        for (const std::int64_t at : each.created) {
            snapshots.emplace_back();
            snapshots.back().created = noon + std::chrono::seconds(at * day);
        }
        const Date last = snapshots.empty() ? noon : snapshots.back().created;
        EXPECT_EQ(clockIsConfirmed(snapshots, last), each.confirmed) << each.what;
        if (snapshots.empty()) continue;
        EXPECT_FALSE(clockIsConfirmed(snapshots, last + std::chrono::seconds(401 * day)))
            << each.what << ": ahead of all";
        EXPECT_EQ(clockIsConfirmed(snapshots, last - std::chrono::seconds(60)), each.confirmed)
            << each.what << ": put right by a minute";
    }
}

// What prunes leave is checked by Model/ and, when they die, by Linux/FaultTests.cpp.

// A long snapshot is no reason to wait, and what it has kept so far is no leftover.
TEST(Retention, dryRunsWaitForNobody) {
    World world;
    world.folder.write("project/a", "a");
    world.ok({"track"});
    const std::string kept = "store/projects/" + world.project().id + "/blobs/2/0";
    for (const bool held : {true, false}) {
        world.folder.write(kept, "of a snapshot that is being taken, or died");
        std::optional<ProjectLock> lock;
        if (held) lock.emplace(world.history().lockPath());
        for (const auto& [words, told] : std::vector<std::pair<std::vector<std::string>, std::string>>{
                 {{"prune", "--dry-run"}, held ? " 0 stored files" : " 1 stored files"}, {{"usage"}, "prune"}}) {
            auto outcome = std::async(std::launch::async, [&, all = words] { return world.run(all); });
            const bool ends = outcome.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
            EXPECT_TRUE(ends) << words[0];
            if (!ends) lock.reset();
            EXPECT_NE(outcome.get().out.find(told), std::string::npos) << words[0];
        }
    }
}

// An automatic prune with nothing due reads no manifest, though contents of removed snapshots are still in use.
TEST(Retention, nothingDueReadsNoManifest) {
    World world;
    world.folder.write("project/a", "kept on");
    world.ok({"track"});
    world.folder.write("project/b", "new");
    world.ok({"snap"});
    rewriteRecord(world, 1, [](SnapshotMeta& meta) { meta.created = now() - std::chrono::hours(24 * 40); });
    EXPECT_EQ(world.ok({"prune"}), "Removed 1 snapshots, 0 stored files.\n");
    const Engine engine(world.store());
    const Project project = world.project();
    world.folder.write("store/projects/" + project.id + "/manifests/2.mf", "damaged");
    const ProjectLock lock(engine.store.history(project).lockPath());
    EXPECT_EQ(engine.pruneLocked(lock, project, now(), Engine::Sweep::freed).removedBlobs, 0);
    EXPECT_THROW((void)engine.pruneLocked(lock, project, now()), TidewrackError);
}

TEST(Retention, sweepsUpWhatADeadSnapshotLeftAsFarAsItCan) {
    World world;
    world.folder.write("project/a", "a");
    world.ok({"track"});
    const std::string blobs = "store/projects/" + world.project().id + "/blobs";
    for (int seq = 2; seq < 10; ++seq)
        for (const char* name : {"/0", "/1"}) world.folder.write(blobs + "/" + std::to_string(seq) + name, "unclaimed");
    world.folder.write(blobs + "/notes/mine", "no number");
    EXPECT_EQ(world.ok({"prune", "--dry-run"}), "Would remove 0 snapshots, 16 stored files.\n");
    const std::string report = unprivileged(world.folder, [&] {
        ::chmod(world.folder.at(blobs + "/5").c_str(), 0500);
        return world.run({"prune"}).err;
    });
    EXPECT_EQ(report.find("tidewrack: can't remove " + world.folder.at(blobs + "/5/")), 0U) << report;
    auto left = listFolder(world.folder.at(blobs));
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{"1", "5", "notes"}));
    EXPECT_EQ(world.ok({"cat", "1", "a"}), "a");
}
