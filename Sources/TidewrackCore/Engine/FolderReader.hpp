#pragma once
// Reads folders for the walk, with a second thread reading ahead while the caller handles what was read.

#include "Platform/Platform.hpp"

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tidewrack {

// One folder's children with their lstat data, unsorted.
struct FolderListing {
    struct Child {
        std::uint32_t nameOffset;
        std::uint32_t nameLength;
        Attributes attributes;
    };

    std::string path; // relative to the walk's root
    std::string names;
    std::vector<Child> children; // files, links and folders; the rest is passed over

    [[nodiscard]] std::string_view name(const Child& child) const {
        return std::string_view(names).substr(child.nameOffset, child.nameLength);
    }
};

// A pool of folders to be read. Folders come out in any order, each after it was put in; the caller and one helper
// thread read them, the helper only once there is enough to do for two.
class FolderReader {
  public:
    // `root` must stay open as long as the reader lives.
    explicit FolderReader(int root) : root_(root) {}
    FolderReader(const FolderReader&) = delete;
    FolderReader& operator=(const FolderReader&) = delete;
    ~FolderReader();

    void put(std::string path);
    // A folder that has been read, or null when all that was put in has come out. A folder that cannot be read has
    // no children.
    [[nodiscard]] std::unique_ptr<FolderListing> take();

  private:
    void startHelper();
    void readAhead();
    [[nodiscard]] std::unique_ptr<FolderListing> read(std::string path) const;

    const int root_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> unread_;
    std::deque<std::unique_ptr<FolderListing>> ready_;
    std::size_t handedOut_ = 0;
    bool helperReads_ = false;
    bool stopping_ = false;
    std::thread helper_;
};

} // namespace tidewrack
