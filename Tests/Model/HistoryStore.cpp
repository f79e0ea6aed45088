// What the store holds is what the model says.

#include "Model/History.hpp"

#include "Engine/Check.hpp"
#include "Support/Files.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace tidewrack::testing {

void require(bool holds, const std::string& promise, const std::string& about) {
    if (!holds) throw std::runtime_error(promise + (about.empty() ? "" : ": " + ::testing::PrintToString(about)));
}

Paths History::keptContents() const {
    const std::string blobs = history().blobsFolder();
    Paths kept;
    for (const std::string& folder : listFolder(blobs))
        for (const std::string& name : listFolder(blobs + "/" + folder)) kept.insert(folder + "/" + name);
    return kept;
}

// Every record is what it should be, and refers to contents that exist; after a prune nothing else is left.
void History::checkStore(bool nothingElse) {
    const auto records = history().snapshots();
    require(records.size() == snapshots_.size(), "the records are those of the snapshots");
    Paths needed;
    std::set<std::int64_t> manifests;
    for (const SnapshotMeta& meta : records) {
        require(snapshots_.contains(meta.seq) && snapshots_.at(meta.seq).meta == meta, "a record stays as it is");
        checkSnapshot(snapshots_.at(meta.seq));
        manifests.insert(meta.manifestOf);
        for (const auto& [path, node] : snapshots_.at(meta.seq).tree)
            if (!node.isFolder() && !node.notKept()) needed.insert(contents_.at(node.version));
    }
    if (!nothingElse) return;
    for (const Damage& damage : checkProject(engine_.store, project_.id, CheckDepth::bytes).damages)
        require(false, "a check finds nothing wrong", damage.place + " " + damage.detail);
    require(keptContents() == needed, "a prune leaves the contents that are needed");
    const auto left = listFolder(history().folder() + "/manifests");
    require(left.size() == manifests.size(), "a prune leaves the manifests that are needed");
}

void History::checkSnapshot(const Known& known) {
    const Manifest manifest = history().manifest(known.meta);
    const std::string about = "#" + std::to_string(known.meta.seq) + " ";
    for (const auto& item : manifest.items())
        require(known.tree.contains(std::string(item.path)), "a manifest lists nothing else",
                about + std::string(item.path));
    for (const auto& [path, wanted] : known.tree) {
        const Entry* entry = manifest.find(path);
        require(entry != nullptr, "a manifest lists every path", about + path);
        require("fld"[static_cast<int>(entry->kind)] == wanted.kind && entry->mode == wanted.mode &&
                    entry->mtime == wanted.mtime,
                "an entry has its path's attributes", about + path);
        const std::string blob(entry->blob);
        if (wanted.isFolder()) {
            require(blob == (wanted.ignored ? "ign" : "") && (!wanted.ignored || entry->size + entry->ctime == 0),
                    "a folder has no content, and nothing that changes with it where git ignores it", about + path);
            continue;
        }
        require(entry->size == wanted.size && entry->ctime == wanted.ctime && entry->ino == wanted.ino,
                "an entry has its file's attributes", about + path);
        if (wanted.notKept()) {
            require(blob == wanted.version, "what is too large is not kept", about + path);
            continue;
        }
        const auto [content, isNew] = contents_.try_emplace(wanted.version, blob);
        require(content->second == blob, "a content is kept once", about + path);
        require(!isNew || blob.starts_with(std::to_string(known.meta.seq) + "/"),
                "a content bears its snapshot's number", blob);
        const std::string place = history().blobPath(blob);
        const Node kept = readNode(place);
        require(kept.kind == wanted.kind && kept.text == wanted.text, "a content is as it was", about + path);
        require(kept.kind == 'l' || kept.mode == 0444, "a content is read-only", about + path);
    }
}

} // namespace tidewrack::testing
