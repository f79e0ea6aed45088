#include "Walk/FolderReader.hpp"

#include "Platform/Descriptor.hpp"
#include "Platform/FolderStream.hpp"
#include "Platform/OpenFolder.hpp"

#include <cerrno>
#include <cstring>
#include <iterator>
#include <system_error>

namespace tidewrack {

namespace {

constexpr std::size_t foldersBeforeHelp = 32;  // a thread costs as much as reading a few dozen folders
constexpr std::size_t mostItemsReady = 65'536; // bounds the memory of what waits for the caller
constexpr std::size_t mostUsedKept = 64;       // bounds the memory of listings kept for reuse

std::size_t itemsOf(const FolderListing& listing) {
    return listing.children.size() + 1;
}

} // namespace

FolderReader::~FolderReader() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (helper_.joinable()) helper_.join();
}

void FolderReader::readAhead() {
    if (helper_.joinable()) return;
    try {
        helper_ = std::thread([this] { help(); });
    } catch (const std::system_error&) {
        // No thread could be started: the caller reads alone.
    }
}

void FolderReader::put(std::string path) {
    const std::lock_guard lock(mutex_);
    unread_.push_back(std::move(path));
    changed_.notify_one();
}

// At most one of the two threads waits at a time, so one notification is enough: the caller waits only while the helper
// reads.
const FolderListing* FolderReader::take() {
    {
        std::unique_lock lock(mutex_);
        if (taken_ && used_.size() < mostUsedKept) used_.push_back(std::move(taken_));
        if (++handedOut_ == foldersBeforeHelp) readAhead();
        changed_.wait(lock, [this] { return !ready_.empty() || !unread_.empty() || !helperReads_; });
        if (!ready_.empty()) {
            taken_ = std::move(ready_.front());
            ready_.pop_front();
            const bool wasFull = readyItems_ >= mostItemsReady;
            readyItems_ -= itemsOf(*taken_);
            if (wasFull && readyItems_ < mostItemsReady) changed_.notify_one();
            return taken_.get();
        }
        if (unread_.empty()) return nullptr;
        taken_ = nextUnread();
    }
    read(*taken_, found_);
    if (!found_.empty()) { // the caller is done with this folder before it takes one of these
        const std::lock_guard lock(mutex_);
        addUnread(found_);
        changed_.notify_one();
    }
    return taken_.get();
}

void FolderReader::help() {
    std::vector<std::string> found;
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return stopping_ || (!unread_.empty() && readyItems_ < mostItemsReady); });
        if (stopping_) return;
        auto listing = nextUnread();
        helperReads_ = true;
        lock.unlock();
        read(*listing, found);
        lock.lock();
        helperReads_ = false;
        readyItems_ += itemsOf(*listing);
        ready_.push_back(std::move(listing));
        addUnread(found); // after the folder that holds them
        changed_.notify_one();
    }
}

std::unique_ptr<FolderListing> FolderReader::nextUnread() {
    std::unique_ptr<FolderListing> listing;
    if (used_.empty()) {
        listing = std::make_unique<FolderListing>();
    } else {
        listing = std::move(used_.back());
        used_.pop_back();
        listing->names.clear();
        listing->children.clear();
        listing->error = 0;
        listing->unknown.clear();
        listing->unknownError = 0;
    }
    listing->path = std::move(unread_.back());
    unread_.pop_back();
    return listing;
}

void FolderReader::addUnread(std::vector<std::string>& found) {
    std::move(found.begin(), found.end(), std::back_inserter(unread_));
    found.clear();
}

void FolderReader::read(FolderListing& listing, std::vector<std::string>& found) const {
    std::string below = listing.path.empty() ? "" : listing.path + "/";
    const std::size_t prefix = below.size();
    Descriptor folder;
    listing.error = openFolderBelow(root_, listing.path, folder);
    if (listing.error != 0) return;
    FolderStream stream(std::move(folder), FolderStream::Wanted::attributes);
    while (const char* name = stream.next()) {
        FolderListing::Child child{};
        const int error = stream.attributes(name, child.attributes);
        if (error != 0 && error != ENOENT) {
            if (listing.unknown.empty()) listing.unknownError = error;
            listing.unknown.emplace_back(name);
        }
        if (error != 0 || child.attributes.kind == Attributes::Kind::other) continue;
        child.nameOffset = static_cast<std::uint32_t>(listing.names.size());
        child.nameLength = static_cast<std::uint32_t>(std::strlen(name));
        listing.names += name;
        listing.children.push_back(child);
        if (child.attributes.kind != Attributes::Kind::folder) continue;
        below.resize(prefix);
        below += name;
        if (enters_(std::string_view(below).substr(prefix), below)) found.push_back(below);
    }
    listing.error = stream.error();
}

} // namespace tidewrack
