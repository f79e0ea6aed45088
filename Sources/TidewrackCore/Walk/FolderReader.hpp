#pragma once
// Reads folders for the walk, with a second thread reading ahead while the caller handles what was read.

#include "Platform/Attributes.hpp"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
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
    std::vector<Child> children;      // files, links and folders; the rest is passed over
    int error = 0;                    // why some or all are missing, as an errno value
    std::vector<std::string> unknown; // names of entries that could not be looked at
    int unknownError = 0;             // an errno value, of the first

    [[nodiscard]] std::string_view name(const Child& child) const {
        return std::string_view(names).substr(child.nameOffset, child.nameLength);
    }
};

// Reads a tree of folders, each after the one that holds it. The caller and one helper thread read them, the helper
// from readAhead() on, or once enough folders show that there is work for two.
class FolderReader {
  public:
    // Whether a folder, given by its name and its path, is read without a put(); called on either thread.
    using Enters = std::function<bool(std::string_view name, std::string_view path)>;

    // Begins with `root`, which must stay open as long as the reader lives.
    FolderReader(int root, Enters enters) : root_(root), enters_(std::move(enters)), unread_{""} {}
    FolderReader(const FolderReader&) = delete;
    FolderReader& operator=(const FolderReader&) = delete;
    ~FolderReader();

    // Starts the helper, so that it reads while the caller does something else. Does nothing where it runs already or
    // no thread can be started.
    void readAhead();
    // Adds a folder that Enters declined, after take() has returned the folder that holds it.
    void put(std::string path);
    // The next folder's listing, valid until the next call; null after the last one. The listing of a folder that
    // cannot be read has an error.
    [[nodiscard]] const FolderListing* take();

  private:
    void help();
    // With the mutex held: a listing of the folder to be read next, still without children.
    [[nodiscard]] std::unique_ptr<FolderListing> nextUnread();
    // With the mutex held: moves the folders out of `found`.
    void addUnread(std::vector<std::string>& found);
    // Appends to `found` the folders to be read next.
    void read(FolderListing& listing, std::vector<std::string>& found) const;

    const int root_;
    const Enters enters_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> unread_;
    std::deque<std::unique_ptr<FolderListing>> ready_;
    std::size_t readyItems_ = 0; // the folders in it and their children
    std::unique_ptr<FolderListing> taken_;
    std::vector<std::unique_ptr<FolderListing>> used_; // kept for their memory
    std::vector<std::string> found_;                   // in the folder that the caller read last; kept for its memory
    std::size_t handedOut_ = 0;
    bool helperReads_ = false;
    bool stopping_ = false;
    std::thread helper_;
};

} // namespace tidewrack
