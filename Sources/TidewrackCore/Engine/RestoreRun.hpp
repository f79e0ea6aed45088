#pragma once
// One restore at work: carries a plan out on the disk, path by path, and remembers what it did.

#include "Engine/CloneAll.hpp"
#include "Engine/Engine.hpp"
#include "Engine/ParentCache.hpp"
#include "Engine/RestorePlan.hpp"
#include "Engine/Trace.hpp"

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace tidewrack {

class RestoreRun {
  public:
    // All arguments must outlive the run. Throws when the project's root or the kept contents cannot be opened.
    RestoreRun(const Engine& engine, const Project& project, const Manifest& target, const TakenSnapshot& safety);
    RestoreRun(const RestoreRun&) = delete;
    RestoreRun& operator=(const RestoreRun&) = delete;

    void work(const RestoreInput& input);
    // The listing of the folder as the run left it, without walking it again.
    [[nodiscard]] Manifest manifestAfter();
    [[nodiscard]] RestoreResult takeResult();

  private:
    struct WriteJob {
        const Manifest::Item* item;
        bool replaces = false; // something safe to replace stands there
        std::string unsafe;    // found out at the last moment: why the path was left alone after all
    };

    void removeLeftovers();
    void open(const RestorePlan::Items& folders);
    void remove(const RestorePlan& plan);
    void makeFolders(const RestorePlan& plan);
    void write(const RestorePlan::Items& items);
    void finishFolders(const RestorePlan& plan);
    void finishFolder(std::string_view path, const Entry* wanted);
    void bringToDisk();

    [[nodiscard]] std::vector<WriteJob> examineWrites(const RestorePlan::Items& items);
    [[nodiscard]] int writeOne(WriteJob& job, CloneWorker& worker);
    [[nodiscard]] int replace(WriteJob& job, Place aside, Place place, CloneWorker& worker);
    [[nodiscard]] static int putIntoGap(WriteJob& job, Place aside, Place place);
    [[nodiscard]] static int putBack(const WriteJob& job, Place aside, Place place);
    [[nodiscard]] int removeUnchanged(const Manifest::Item& item, std::string& reason);
    [[nodiscard]] int putContent(const Manifest::Item& item, Place to, CloneWorker& worker) const;

    enum class Standing { nothing, safe, unsafe, asWanted };
    // What stands at a path, compared with the safety snapshot; `reason` is set when it is unsafe to replace.
    [[nodiscard]] Standing examine(FolderBelow& project, std::string_view path, std::string& reason,
                                   Attributes& attributes);
    [[nodiscard]] bool untouched(const Entry& recorded, const Attributes& attributes);
    void touched(const Attributes& attributes);
    void warn(std::string_view path, const std::string& text);
    void restored(std::string_view path, bool folder);
    void remember(const Manifest::Item& item, const Attributes& attributes);
    void rememberWritten(const Manifest::Item& item, const Attributes& landed);

    const Engine& engine_;
    const Manifest& target_;
    const TakenSnapshot& safety_;
    Trace trace_;
    Descriptor root_;
    Descriptor blobs_;
    FolderBelow files_;
    ParentCache parents_;
    PendingWrites pending_;
    RestoreResult result_;
    std::set<std::string, std::less<>> warned_;
    std::set<std::string, std::less<>> removed_;
    std::set<std::string, std::less<>> nestedRoots_;
    RestorePlan::Items opened_; // folders that were closed, and are open as long as there is something to do in them
    std::map<std::string, Entry, std::less<>> written_; // as they are on the disk now; blobs are the target's views
    std::mutex mutex_;
    std::set<std::uint64_t> sharedInodes_; // files with several names of which this run has taken one away
};

} // namespace tidewrack
