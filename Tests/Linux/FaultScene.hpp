#pragma once
// What every operation with a fault works on.

#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"
#include "Support/TestFolders.hpp"

#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Vault/Vault.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/mount.h>

#include <cstdint>
#include <set>
#include <stdexcept>
#include <string>

namespace tidewrack::testing {

// A project with three snapshots and unsaved work on top, something precious outside, and an agent's configuration.
class Scene {
  public:
    // With `size` on a volume of its own, with that many bytes.
    explicit Scene(std::size_t size = 0) {
        const std::string options = "size=" + std::to_string(size);
        mounted_ = size > 0 && ::mount("none", f.path().c_str(), "tmpfs", 0, options.c_str()) == 0;
        if (size > 0 && !mounted_) throw std::runtime_error("no volume of its own for the scene");
        f.write("project/file", "first file");
        f.write("project/folder/inside", "first inside");
        f.write("project/folder/deep/er", "first deeper");
        f.write("project/stays", "the same all the time");
        f.write("project/quiet/inside", "the same in a folder");
        f.link("project/link", "file");
        f.makeFolder("project/empty");
        f.write("home/notes/private", "private notes");
        f.write("home/.claude/settings.json", "{\"model\": \"m\"}");
    }

    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;
    ~Scene() { EXPECT_TRUE(!mounted_ || ::umount(f.path().c_str()) == 0); }

    void history() {
        world.ok({"track"});
        remember(1);
        f.write("project/file", "second version of the file");
        f.remove("project/folder/inside");
        f.write("project/added", "added in the second");
        EXPECT_EQ(::chmod(f.at("project/stays").c_str(), 0700), 0);
        world.ok({"snap"});
        remember(2);
        f.remove("project/folder");
        f.write("project/folder", "a file now");
        f.remove("project/link");
        f.link("project/link", "added");
        world.ok({"snap"});
        remember(3);
        f.write("project/file", "unsaved work in the file");
        f.write("project/unsaved/new", "unsaved new file");
    }

    // What the user has: each content is there once only, so it is told by itself.
    [[nodiscard]] std::set<std::string> contents() const {
        std::set<std::string> result;
        collect(result, "project");
        for (const std::string& name : namesIn(f.at("home")))
            if (name != ".claude") collect(result, joined("home", name));
        return result;
    }

    // The same, wherever it can be brought back from.
    [[nodiscard]] std::set<std::string> recoverable() const {
        std::set<std::string> result = contents();
        const Store store = world.store();
        for (const auto& [project, blob] : keptContents()) collectFile(result, store.history(project).blobPath(blob));
        for (const VaultEntry& entry : vault().entries()) collect(result, "store/vault/" + entry.id + "/items");
        return result;
    }

    [[nodiscard]] Vault vault() const { return Vault(world.store()); }

    // Every file of one line that is not a temporary one has one of these contents, and all of it.
    void expectNothingCutOff(const std::set<std::string>& contents) const {
        std::istringstream lines(project());
        for (std::string line; std::getline(lines, line);) {
            const auto content = line.find(" = ");
            EXPECT_TRUE(content == line.npos || line.find("/lines ") != line.npos ||
                        contents.contains(line.substr(content + 3)))
                << line;
        }
    }

    // But for those that are due to be pruned.
    void expectOlderSnapshotsComeBack(const std::set<std::int64_t>& due) const {
        const auto seqs = world.history().seqs();
        for (const auto& [seq, listing] : states) {
            if (std::find(seqs.begin(), seqs.end(), seq) == seqs.end()) {
                EXPECT_TRUE(due.contains(seq)) << "snapshot " << seq << " is lost";
                continue;
            }
            const Outcome outcome = world.run({"restore", std::to_string(seq)});
            EXPECT_EQ(outcome.status, 0) << outcome.err;
            EXPECT_EQ(outcome.err, "");
            EXPECT_EQ(f.listing("project"), listing) << "snapshot " << seq;
        }
    }

    // Every record's manifest and contents are there, and nothing that belongs to none of them.
    void expectTidy() const {
        for (const std::string folder : {"project", "store/projects"}) {
            std::istringstream lines(f.listing(folder));
            for (std::string line; std::getline(lines, line);) // some are of contents, such as those of listings
                EXPECT_TRUE(!line.starts_with(folder) ||
                            line.substr(0, line.find(' ')).find("/.tidewrack-") == line.npos)
                    << line;
        }
        for (const std::string& name : namesIn(f.at("home/.claude")))
            EXPECT_TRUE(name == "settings.json" || name == "settings.json.tidewrack-backup") << name;
        const Store store = world.store();
        for (const Project& project : store.projects()) {
            std::set<std::string> needed;
            for (const auto& [owner, blob] : keptContents())
                if (owner.id == project.id) needed.insert(blob);
            std::set<std::string> kept;
            for (const std::string& folder : namesIn(store.history(project).blobsFolder()))
                for (const std::string& name : namesIn(store.history(project).blobPath(folder)))
                    kept.insert(joined(folder, name));
            EXPECT_EQ(kept, needed);
        }
    }

    // The contents that a snapshot holds.
    [[nodiscard]] std::set<std::string> contentsOf(std::int64_t seq) const {
        std::set<std::string> result;
        for (const auto& [project, blob] : keptContents(seq))
            collectFile(result, world.store().history(project).blobPath(blob));
        return result;
    }

    // The project, without what a restore has left for the next one to clear up.
    [[nodiscard]] std::string project() const {
        std::istringstream listing(f.listing("project"));
        std::string result;
        for (std::string line; std::getline(listing, line);)
            if (line.find("/.tidewrack-") == line.npos) result += line + "\n";
        return result;
    }

    // Takes all room of the volume but for this many blocks.
    void fill(std::size_t blocksLeft) const {
        std::string block(4096, 'x');
        const Descriptor file(::open(f.at("filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        while (writeAll(file.get(), block) == 0) block[0] = 'x';
        struct stat status {};
        EXPECT_EQ(::fstat(file.get(), &status), 0);
        EXPECT_EQ(::ftruncate(file.get(), status.st_size - static_cast<off_t>(blocksLeft * block.size())), 0);
    }

    World world;
    const TemporaryFolder& f = world.folder;
    std::map<std::int64_t, std::string> states;

  private:
    bool mounted_ = false;
    // What the records name, all or those of one snapshot, each with its project.
    [[nodiscard]] std::vector<std::pair<Project, std::string>>
    keptContents(std::optional<std::int64_t> only = std::nullopt) const {
        std::vector<std::pair<Project, std::string>> result;
        const Store store = world.store();
        for (const Project& project : store.projects()) {
            for (const SnapshotMeta& meta : store.history(project).snapshots()) {
                if (only && meta.seq != *only) continue;
                const Manifest manifest = store.history(project).manifest(meta);
                for (const auto& item : manifest.items())
                    if (item.entry.isKept()) result.emplace_back(project, item.entry.blob);
            }
        }
        return result;
    }

    static std::vector<std::string> namesIn(const std::string& path) {
        return isFolder(path) ? listFolder(path) : std::vector<std::string>();
    }
    void remember(std::int64_t seq) { states[seq] = f.listing("project"); }
    static void collectFile(std::set<std::string>& result, const std::string& path) {
        std::string text;
        if (!isLink(path) && readFile(path, text) == 0 && !text.empty()) result.insert(text);
    }
    void collect(std::set<std::string>& result, const std::string& folder) const {
        for (const std::string& name : namesIn(f.at(folder))) {
            const std::string path = joined(folder, name);
            if (isFolder(f.at(path)) && !isLink(f.at(path)))
                collect(result, path);
            else
                collectFile(result, f.at(path));
        }
    }
};

} // namespace tidewrack::testing
