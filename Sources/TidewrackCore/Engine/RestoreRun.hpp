#pragma once
// One restore at work: carries a plan out on the disk, path by path, and remembers what it did.

#include "Engine/CloneAll.hpp"
#include "Engine/Engine.hpp"
#include "Engine/ParentCache.hpp"
#include "Engine/RestorePlan.hpp"
#include "Engine/Temporaries.hpp"
#include "Engine/Trace.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Flush.hpp"

#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewrack {

// Whether an errno value says that nothing is at a path.
[[nodiscard]] inline bool nothingThere(int error) {
    return error == ENOENT || error == ENOTDIR;
}

class RestoreRun {
  public:
    // All arguments must outlive the run. Throws when the project's root or the kept contents cannot be opened.
    RestoreRun(const Engine& engine, const Project& project, const Manifest& target, const TakenSnapshot& safety,
               Temporaries& names);
    RestoreRun(const RestoreRun&) = delete;
    RestoreRun& operator=(const RestoreRun&) = delete;

    // `plan` is of the target and the safety snapshot.
    void work(RestorePlan plan, const std::set<std::string, std::less<>>& nestedRoots);
    // The listing of the folder as the run left it, without walking it again.
    [[nodiscard]] Manifest manifestAfter();
    // What the run did. To be called once, at the end.
    [[nodiscard]] RestoreResult takeResult();

  private:
    static constexpr std::size_t cloneThreads = 4;

    struct WriteJob {
        const Manifest::Item* item;
        bool replaces = false; // something safe to replace is there
        Obstacle obstacle;
        Attributes landed; // without an obstacle: of the file in its place
    };
    // What the run did at a path.
    struct State {
        bool gone = false;        // what the safety snapshot lists was removed
        bool left = false;        // something was to be done, and was not
        std::optional<Entry> now; // as it is on the disk now; the blob is the target's view
    };

    void open(const RestorePlan::Items& folders);
    void remove(const RestorePlan::Items& files, const RestorePlan::Items& folders);
    enum class Removal { atOnce, onceReplaced };
    void removeFile(const Manifest::Item& item, Removal removal);
    void removeObstructing(const Removals& obstructing, const RestorePlan& plan);
    void removeAside();
    [[nodiscard]] bool canEmpty(std::string_view folder, const Removals& removals);
    void makeReady(const RestorePlan::Items& items);
    void dropUnused();
    [[nodiscard]] std::optional<std::string> readyName(std::string_view path);
    void makeFolders(const RestorePlan::Items& items);
    void write(const RestorePlan::Items& items);
    void removeRest(RestorePlan& plan);
    [[nodiscard]] Removals takeLastCopies(RestorePlan& plan) const;
    [[nodiscard]] const Manifest::Item* leftWithContentOf(const Manifest::Item& item,
                                                          const RestorePlan::Items& left) const;
    void retryForWantOfRoom(const RestorePlan& plan);
    void finishFolders(const RestorePlan& plan);
    void finishFolder(std::string_view path, const Entry* wanted);
    void bringToDisk();

    [[nodiscard]] std::vector<WriteJob> examineWrites(const RestorePlan::Items& items);
    [[nodiscard]] Obstacle writeOne(const WriteJob& job, CloneWorker& worker);
    [[nodiscard]] Obstacle putContent(const Manifest::Item& item, Place to, CloneWorker& worker) const;

    enum class Standing { nothing, safe, unsafe, asWanted };
    // What is at a path, compared with the safety snapshot; `obstacle` is set when it is unsafe to replace.
    [[nodiscard]] Standing examine(FolderBelow& project, std::string_view path, Obstacle& obstacle,
                                   Attributes& attributes);
    [[nodiscard]] bool untouched(const Entry& recorded, const Attributes& attributes);
    void touched(const Attributes& attributes);
    [[nodiscard]] bool isLeft(std::string_view path) const;
    [[nodiscard]] RestorePlan::Items leftOf(const RestorePlan::Items& items) const;
    void leave(std::string_view path, PathOutcome::Action action, Obstacle obstacle);
    void removed(const Manifest::Item& item);
    void restored(const Manifest::Item& item);
    void remember(const Manifest::Item& item, const Attributes& attributes);
    void remember(std::string_view path, const Entry& entry);
    void rememberWritten(const Manifest::Item& item, const Attributes& landed);

    const Engine& engine_;
    bool ignoresCase_;
    const Manifest& target_;
    const TakenSnapshot& safety_;
    Temporaries& names_;
    Trace trace_;
    Descriptor root_;
    Descriptor blobs_;
    FolderBelow files_;
    ParentCache parents_;
    PendingWrites pending_;
    RestoreResult result_;
    std::map<std::string, State, std::less<>> states_;
    std::set<std::string, std::less<>> nestedRoots_;
    RestorePlan::Items opened_; // folders that were closed, and are open as long as there is something to do in them
    // Files that were moved out of the way of folders, by their temporary paths, until these are there; and files that
    // are to be where folders are, by the path, until these are gone: else a kill could leave neither.
    std::vector<std::pair<std::string, const Manifest::Item*>> aside_;
    std::map<std::string_view, std::string> ready_;
    std::mutex mutex_;
    std::set<std::uint64_t> sharedInodes_; // files with several names of which this run has removed one
};

} // namespace tidewrack
