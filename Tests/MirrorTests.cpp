// A mirror is a store: whatever happens to it or beside it, each of its snapshots comes back.

#include "Support/Program.hpp"
#include "Support/TestFolders.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Volumes.hpp"
#include "Support/Files.hpp"
#include "Vault/Vault.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

class MirrorTest : public ::testing::Test {
  protected:
    MirrorTest() {
        f.write("project/a", "first version");
        f.write("project/folder/b", "stays");
        f.link("project/link", "a");
        world.ok({"track"});
        f.write("project/a", "another version");
        world.ok({"snap"});
        mirror.environment = world.environment;
        mirror.environment["TIDEWRACK_HOME"] = f.at("mirror");
        mirror.current = world.current;
    }

    nlohmann::json mirrored(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words = {"mirror", f.at("mirror"), "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return nlohmann::json::parse(world.ok(words));
    }
    [[nodiscard]] std::string refusal(const std::string& folder) const {
        const Outcome outcome = world.run({"mirror", folder});
        EXPECT_EQ(outcome.status, 1) << outcome.out;
        return outcome.err;
    }
    void makeOld(std::int64_t seq) const {
        rewriteRecord(world, seq, [](SnapshotMeta& meta) { meta.created -= std::chrono::hours(24 * 40); });
    }

    World world;
    World mirror; // the same with the mirror for its store
    const TemporaryFolder& f = world.folder;
};

using Counts = std::vector<std::int64_t>;

Counts countsOf(const nlohmann::json& result) {
    Counts counts;
    for (const char* key : {"addedSnapshots", "removedSnapshots", "addedEntries", "removedEntries", "addedFiles"})
        counts.push_back(result[key]);
    return counts;
}

} // namespace

TEST_F(MirrorTest, aRunBringsWhatIsNewAndTakesWhatIsGone) {
    f.write("home/notes", "private");
    (void)Vault(world.store()).save({.paths = {f.at("home/notes")}});
    const auto planned = mirrored({"--dry-run"});
    EXPECT_FALSE(f.has("mirror"));
    const auto first = mirrored();
    EXPECT_EQ(countsOf(first), (Counts{2, 0, 1, 0, first["addedFiles"]}));
    EXPECT_EQ(countsOf(planned), countsOf(first));
    EXPECT_EQ(countsOf(mirrored()), (Counts{0, 0, 0, 0, 0}));
    EXPECT_EQ(mirror.run({"vault"}).out, world.run({"vault"}).out);

    f.write("project/c", "new");
    world.ok({"snap"});
    world.ok({"pin", "2"});
    makeOld(1);
    f.remove("store/vault");
    (void)Vault(world.store()).save({.paths = {f.at("project")}});
    world.ok({"prune"});
    EXPECT_EQ(countsOf(mirrored({"--dry-run"})).front(), 1);
    const auto counts = countsOf(mirrored());
    EXPECT_EQ(Counts(counts.begin(), counts.begin() + 4), (Counts{1, 1, 1, 1}));
    EXPECT_EQ(mirror.ok({"log", "--json"}), world.ok({"log", "--json"}));
    mirror.ok({"check"});
    for (const char* part : {"blobs", "manifests", "snapshots"}) {
        const std::string place = "/projects/" + world.project().id + "/" + part;
        std::string there = f.listing("mirror" + place);
        for (auto at = there.find("mirror/"); at != there.npos; at = there.find("mirror/", at + 6))
            if (at == 0 || there[at - 1] == '\n') there.replace(at, 6, "store");
        EXPECT_EQ(there, f.listing("store" + place));
    }

    // What is tracked anew is another history, although its numbers are the same.
    world.ok({"untrack"});
    EXPECT_EQ(mirrored()["removedSnapshots"], 2);
    EXPECT_EQ(mirror.run({"log"}).status, 1);
    world.ok({"track"});
    mirrored();
    EXPECT_EQ(mirror.ok({"log"}), world.ok({"log"}));
}

// Nothing that the mirror's files go through changes the store's: a file that grows, or one of which the mirror has
// another version, is never the same file.
TEST_F(MirrorTest, onlyWhatIsNeverChangedIsSharedWithTheStore) {
    f.write("store/hooks.log", "a line\n");
    mirrored();
    const std::string id = world.project().id;
    const auto inode = [&](const std::string& path) {
        Attributes attributes;
        EXPECT_EQ(attributesAt(AT_FDCWD, f.at(path).c_str(), attributes), 0) << path;
        return attributes.ino;
    };
    const std::string content = "/projects/" + id + "/blobs/" + std::string(world.manifestOf(1).find("a")->blob);
    EXPECT_EQ(inode("store" + content) == inode("mirror" + content), !volumeClones(f.path()));
    for (const std::string& place :
         {std::string("/hooks.log"), "/projects/" + id + "/project.json", "/projects/" + id + "/snapshots/1.json"})
        EXPECT_NE(inode("store" + place), inode("mirror" + place)) << place;
    f.write("store/hooks.log", "a line\nanother\n");
    mirrored();
    EXPECT_EQ(f.read("mirror/hooks.log"), "a line\nanother\n");
}

TEST_F(MirrorTest, aFolderThatIsNoneForAMirrorIsRefused) {
    f.write("other/file", "somebody's");
    f.write("taken", "a file");
    world.ok({"mirror", f.at("mirror")});
    f.link("to-project", "project");
    for (const auto& [place, why] :
         std::map<std::string, std::string>{{"other", "other is not empty and no mirror of Tidewrack's."},
                                            {"taken", "taken is not empty and no mirror of Tidewrack's."},
                                            {"project/in", "lies in a tracked folder"},
                                            {"to-project/in", "lies in a tracked folder"},
                                            {"store", "lies in Tidewrack's own history"},
                                            {"store/vault/in", "lies in Tidewrack's own history"},
                                            {"", "contains Tidewrack's own history"}})
        EXPECT_NE(refusal(f.at(place)).find(why), std::string::npos) << place << refusal(f.at(place));
    EXPECT_EQ(f.read("other/file"), "somebody's");
    World another;
    another.ok({"track"});
    EXPECT_NE(another.run({"mirror", f.at("mirror")}).err.find("is the mirror of another history"), std::string::npos);
    EXPECT_NE(world.run({"mirror"}).err.find("missing folder"), std::string::npos);
}

// Where the mirror stood in for the store, what was done there is nowhere else.
TEST_F(MirrorTest, whatAMirrorHasOfItsOwnIsNotTakenAway) {
    mirrored();
    f.write("project/a", "work while the store was away");
    mirror.ok({"snap"});
    EXPECT_NE(refusal(f.at("mirror")).find("has snapshots of its own, such as #3"), std::string::npos);
    mirror.ok({"restore", "3"});
    f.remove("mirror");
    mirrored();
    world.ok({"snap"});
    mirror.ok({"snap"}); // both have a #3 now
    EXPECT_NE(refusal(f.at("mirror")).find("#3"), std::string::npos);
    f.remove("mirror");
    mirrored();
    f.write("home/notes", "private");
    (void)Vault(mirror.store()).save({.paths = {f.at("home/notes")}});
    EXPECT_NE(refusal(f.at("mirror")).find("has entries of the vault of its own"), std::string::npos);
    f.remove("mirror");
    mirrored();
    f.write("elsewhere/file", "x");
    mirror.ok({"track", f.at("elsewhere")});
    EXPECT_NE(refusal(f.at("mirror")).find("#1 in projects/elsewhere-"), std::string::npos);
}

TEST_F(MirrorTest, agentsAreAskedAboutMirrorsAsAboutTheHistory) {
    const auto verdict = [&](const std::string& line) {
        const std::string text = world.run({"guard", "explain", line}).out;
        const auto at = text.find("Verdict: ");
        return at == text.npos ? text : text.substr(at + 9, text.find('\n', at) - at - 9);
    };
    EXPECT_EQ(verdict("echo > " + f.at("mirror") + "/mirror.json"), "allow");
    mirrored();
    EXPECT_EQ(verdict("rm -rf " + f.at("mirror")), "ask");
    EXPECT_EQ(verdict("echo > " + f.at("mirror") + "/mirror.json"), "ask");
    EXPECT_EQ(verdict("tidewrack mirror " + f.at("mirror")), "ask");
    EXPECT_EQ(verdict("tidewrack mirror --dry-run " + f.at("mirror")), "allow");
    f.remove("mirror");
    EXPECT_EQ(verdict("echo > " + f.at("mirror") + "/mirror.json"), "allow");
}

// A content that was damaged after it had been mirrored does not replace the good one.
TEST_F(MirrorTest, aDamageOfTheStoreIsNotMirrored) {
    mirrored();
    const std::string blob = world.history().blobPath(world.manifestOf(1).find("a")->blob);
    ASSERT_EQ(::unlink(blob.c_str()), 0);
    writeFileSoon(blob, "damaged");
    const Outcome outcome = world.run({"mirror", f.at("mirror")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.err.find("is not what was mirrored before"), std::string::npos) << outcome.err;
    EXPECT_EQ(world.run({"check"}).status, 1);
    mirror.ok({"check"});
    EXPECT_EQ(mirror.ok({"cat", "1", "a"}), "first version");
}

// 50 snapshots and a prune while mirrors are made: each mirror is whole, and from the last one every snapshot comes
// back, byte for byte.
TEST_F(MirrorTest, everySnapshotComesBackFromAMirrorMadeMeanwhile) {
    std::map<std::int64_t, std::string> states;
    std::optional<Program> running;
    const auto goOn = [&] {
        if (running && running->isRunning()) return;
        if (running) {
            const Outcome outcome = running->wait();
            EXPECT_EQ(outcome.status, 0) << outcome.err;
            EXPECT_EQ(outcome.err, "");
            const Outcome check = mirror.run({"check"});
            EXPECT_EQ(check.status, 0) << check.out << check.err;
        }
        running.emplace(world, std::vector<std::string>{"mirror", f.at("mirror")});
    };
    for (int i = 0; i < 50; ++i) {
        goOn();
        f.write("project/a", "version " + std::to_string(i));
        f.write("project/folder/" + std::to_string(i % 7), std::to_string(i));
        world.ok({"snap"});
        const std::int64_t seq = *world.history().newestSeq();
        states[seq] = f.listing("project");
        if (seq % 4 == 0) makeOld(seq);
        if (i == 30) world.ok({"prune"});
    }
    EXPECT_EQ(running->wait().status, 0);
    mirrored();
    mirror.ok({"check", "--contents"});
    const auto seqs = world.history().seqs();
    EXPECT_LT(seqs.size(), 50U);
    for (const std::int64_t seq : seqs) {
        if (!states.contains(seq)) continue;
        mirror.ok({"restore", std::to_string(seq)});
        EXPECT_EQ(f.listing("project"), states[seq]) << seq;
    }
}
