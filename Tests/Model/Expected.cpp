#include "Model/Expected.hpp"

#include <algorithm>
#include <iterator>

namespace tidewrack::testing {

namespace {

bool closed(const Node& folder) {
    return (folder.mode & 0700) != 0700;
}

// Follows a restore in memory: what stands in the way is removed; folders are made, then files; then the rest is
// removed. A path that holds what history has not kept stays as it is, with a warning, and so does one that has the
// content of a file that could not be written.
class Expectation {
  public:
    explicit Expectation(const RestoreTask& task) : task_(task) { out_.after = task.before; }

    RestoreOutcome work() {
        const Paths goes = removals();
        const Paths obstructing = obstructingAmong(goes);
        remove(obstructing);
        folders();
        writes();
        Paths rest;
        std::set_difference(goes.begin(), goes.end(), obstructing.begin(), obstructing.end(),
                            std::inserter(rest, rest.end()));
        remove(withoutLastCopies(rest));
        finish();
        out_.warned.merge(kept_);
        return std::move(out_);
    }

  private:
    [[nodiscard]] const Node* listedBefore(const std::string& path) const {
        const Node* node = find(task_.before, path);
        return node != nullptr && node->listed && !node->leftOutFile() ? node : nullptr;
    }

    [[nodiscard]] const Node* wantedAt(const std::string& path) const {
        const Node* node = find(task_.target, path);
        return node != nullptr && !node->leftOutFile() ? node : nullptr;
    }

    // At or below a nested project, a folder that git ignores or ignored then, or one in the place of a file that was
    // left out or not kept.
    [[nodiscard]] bool covered(const std::string& path) const {
        for (std::string at = path; !at.empty(); at = parentPath(at)) {
            const Node* now = listedBefore(at);
            const Node* then = wantedAt(at);
            if (task_.nested.contains(at) || (now != nullptr && now->ignored) || (then != nullptr && then->ignored))
                return true;
            const Node* listed = find(task_.target, at);
            const bool wasUnkept = listed != nullptr && (listed->leftOutFile() || (then != nullptr && then->notKept()));
            if (now != nullptr && now->isFolder() && wasUnkept) return true;
        }
        return false;
    }

    // Whether the next snapshot would not list the path.
    [[nodiscard]] bool hidden(const std::string& path, const Node& node) const {
        for (std::string at = parentPath(path); !at.empty(); at = parentPath(at)) {
            const Node* now = listedBefore(at);
            if (task_.nested.contains(at) || (now != nullptr && now->ignored)) return true;
        }
        return node.isFolder() && task_.nested.contains(path);
    }

    void erase(const std::string& path) {
        out_.after.erase(path);
        out_.removed.insert(path);
        out_.disturbed.insert(parentPath(path));
    }

    void put(const std::string& path, const Node& wanted) {
        Node node = wanted;
        node.listed = !hidden(path, wanted);
        node.ino = 0;
        out_.after[path] = node;
        out_.disturbed.insert(parentPath(path));
    }

    [[nodiscard]] bool isMade(const std::string& path, const Node& wanted) const {
        const Node* now = listedBefore(path);
        return wanted.isFolder() && !wanted.ignored && task_.scope(path) && !covered(path) &&
               (now == nullptr || !now->isFolder());
    }

    [[nodiscard]] bool isToWrite(const std::string& path, const Node& wanted) const {
        const Node* now = listedBefore(path);
        return !wanted.isFolder() && !wanted.leftOutFile() && task_.scope(path) &&
               (now == nullptr || isOther(*now, wanted));
    }

    // What is to go.
    Paths removals() {
        Paths goes;
        for (const auto& [path, node] : task_.before) {
            if (!node.listed || node.leftOutFile() || !task_.scope(path)) continue;
            const Node* then = find(task_.target, path);
            if (!node.isFolder() && then != nullptr && then->leftOutFile()) continue; // it was there then, too
            const Node* wanted = wantedAt(path);
            if (covered(path)) {
                const bool mayHoldNew = wanted == nullptr || (wanted->isFolder() && !wanted->ignored);
                if (mayHoldNew && task_.removeNew && node.ignored) kept_.insert(path);
                continue;
            }
            const bool otherKind = wanted != nullptr && wanted->isFolder() != node.isFolder();
            if (wanted == nullptr ? task_.removeNew : otherKind) goes.insert(path);
        }
        planned_ = goes;
        return goes;
    }

    // At or below a file to be written, or where a folder is needed.
    [[nodiscard]] Paths obstructingAmong(const Paths& goes) const {
        Paths obstructing;
        Paths files;
        Paths folders;
        for (const auto& [path, wanted] : task_.target) {
            const bool isFile = isToWrite(path, wanted) && !wanted.notKept();
            if (isFile) files.insert(path);
            if (isFile || isMade(path, wanted))
                for (std::string at = path; !at.empty(); at = parentPath(at)) folders.insert(at);
        }
        for (const std::string& path : goes) {
            bool isBelow = false;
            for (std::string at = path; !at.empty(); at = parentPath(at)) isBelow = isBelow || files.contains(at);
            if (isBelow || folders.contains(path)) obstructing.insert(path);
        }
        return obstructing;
    }

    [[nodiscard]] Paths withoutLastCopies(Paths goes) {
        Paths last;
        for (const std::string& path : goes) {
            const Node& node = task_.before.at(path);
            if (node.isFolder() || node.notKept() || node.size == 0) continue;
            for (const auto& [other, wanted] : task_.target)
                if (isToWrite(other, wanted) && !wanted.notKept() && out_.warned.contains(other) &&
                    wanted.kind == node.kind && wanted.text == node.text)
                    last.insert(path);
        }
        for (const std::string& path : last)
            for (std::string at = path; !at.empty(); at = parentPath(at)) goes.erase(at);
        out_.warned.merge(last);
        return goes;
    }

    void remove(const Paths& goes) {
        std::vector<std::string> folders;
        for (const std::string& path : goes) {
            const Node& node = task_.before.at(path);
            if (node.isFolder())
                folders.push_back(path);
            else if (node.notKept())
                out_.warned.insert(path);
            else
                erase(path);
        }
        for (auto path = folders.rbegin(); path != folders.rend(); ++path) {
            if (hasBelow(out_.after, *path))
                out_.warned.insert(*path);
            else
                erase(*path);
        }
    }

    bool parentsStand(const std::string& path) {
        for (auto slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
            const std::string parent = path.substr(0, slash);
            if (const Node* there = find(out_.after, parent)) {
                if (!there->isFolder()) return false;
                continue;
            }
            put(parent, *find(task_.target, parent));
            out_.finished.insert(parent);
        }
        return true;
    }

    void folders() {
        for (const auto& [path, wanted] : task_.target) {
            if (!wanted.isFolder() || wanted.ignored || !task_.scope(path) || covered(path)) continue;
            const Node* now = listedBefore(path);
            if (now != nullptr && now->isFolder()) {
                if (!out_.warned.contains(path)) out_.finished.insert(path);
                continue;
            }
            planned_.insert(path);
            if (out_.warned.contains(path)) continue;
            const Node* there = parentsStand(path) ? find(out_.after, path) : &wanted;
            if (there != nullptr) {
                out_.warned.insert(path);
                continue;
            }
            put(path, wanted);
            out_.restored.insert(path);
            out_.finished.insert(path);
        }
    }

    void writes() {
        for (const auto& [path, wanted] : task_.target) {
            if (!isToWrite(path, wanted)) continue;
            if (!wanted.notKept()) planned_.insert(path);
            if (wanted.notKept() || out_.warned.contains(path) || !parentsStand(path)) {
                out_.warned.insert(path);
                continue;
            }
            Node* there = out_.after.contains(path) ? &out_.after[path] : nullptr;
            const bool unseen = there != nullptr && (!there->listed || there->leftOutFile());
            if (unseen && there->sameAttributes(wanted)) {
                there->listed = !hidden(path, wanted); // history does not see it, and it is what is wanted
                there->ignored = false;
                there->version = wanted.version;
            } else if (there != nullptr && (unseen || there->isFolder() || there->notKept())) {
                out_.warned.insert(path);
            } else {
                put(path, wanted);
                out_.restored.insert(path);
            }
        }
    }

    // A folder that was closed to its owner since is opened again for what is to be done below it; for that time alone
    // where git ignores it.
    void openClosed() {
        for (const auto& [path, now] : task_.before) {
            const Node* wanted = find(task_.target, path);
            if (!now.listed || !now.isFolder() || now.ignored || !closed(now) || task_.scope(path)) continue;
            if (wanted == nullptr || !wanted->isFolder() || closed(*wanted)) continue;
            const auto below = planned_.lower_bound(path + "/");
            if (below != planned_.end() && below->starts_with(path + "/")) out_.finished.insert(path);
        }
    }

    void finish() {
        openClosed();
        for (auto path = out_.finished.begin(); path != out_.finished.end();) {
            const auto there = out_.after.find(*path);
            const Node& wanted = *find(task_.target, *path);
            if (there == out_.after.end() || !there->second.isFolder() || wanted.ignored) {
                path = out_.finished.erase(path);
                continue;
            }
            const Node* before = listedBefore(*path);
            if (before != nullptr && before->isFolder() && !before->ignored && before->mode != wanted.mode)
                out_.restored.insert(*path);
            there->second.mode = wanted.mode;
            there->second.mtime = wanted.mtime;
            ++path;
        }
    }

    const RestoreTask& task_;
    RestoreOutcome out_;
    Paths planned_;
    Paths kept_; // folders with a warning that hinders nothing
};

} // namespace

RestoreOutcome expectedRestore(const RestoreTask& task) {
    return Expectation(task).work();
}

std::set<std::int64_t> expectedToStay(const KnownSnapshots& snapshots, Date now) {
    using namespace std::chrono;
    std::set<std::int64_t> stay;
    Paths taken; // hours and days that have their newest snapshot
    for (auto item = snapshots.rbegin(); item != snapshots.rend(); ++item) {
        const SnapshotMeta& meta = item->second.meta;
        const auto age = now - meta.created;
        const auto since = meta.created.time_since_epoch();
        const std::string hour = "h" + std::to_string(duration_cast<hours>(since).count());
        const std::string day = "d" + std::to_string(duration_cast<days>(since).count());
        bool newest = false;
        if (!meta.pinned && age >= days(2) && age < days(7)) newest = taken.insert(hour).second;
        if (!meta.pinned && age >= days(7) && age < days(30)) newest = taken.insert(day).second;
        if (meta.pinned || age < days(2) || newest) stay.insert(meta.seq);
    }
    return stay;
}

} // namespace tidewrack::testing
