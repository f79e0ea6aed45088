#include "Store/Manifest.hpp"

#include "Platform/Process.hpp"
#include "Support/Errors.hpp"

#include <algorithm>
#include <array>
#include <cstring>

namespace tidewrack {

namespace {

bool byPath(const Manifest::Item& a, const Manifest::Item& b) {
    return a.path < b.path;
}

} // namespace

std::optional<std::string> Entry::notKeptReason() const {
    if (blob.starts_with("big:")) return "it was larger than the size limit";
    if (isIgnoredFile()) return "it was ignored";
    if (!blob.starts_with("err")) return std::nullopt;
    const KeepFailure failure = KeepFailure::fromBlob(blob);
    if (failure.why != KeepFailure::Why::system) return failure.text();
    return failure.error == 0 ? "it couldn't be read" : "it couldn't be read: " + failure.text();
}

Entry entryOf(const Attributes& attributes) {
    Entry entry;
    if (attributes.kind == Attributes::Kind::link)
        entry.kind = EntryKind::link;
    else if (attributes.kind == Attributes::Kind::folder)
        entry.kind = EntryKind::dir;
    entry.mode = attributes.mode;
    entry.size = attributes.size;
    entry.mtime = attributes.mtime;
    entry.ctime = attributes.ctime;
    entry.ino = attributes.ino;
    return entry;
}

std::string_view TextArena::add(std::string_view text) {
    if (text.empty()) return {};
    if (room_ < text.size()) {
        room_ = std::max(blockSize, text.size());
        free_ = blocks_.emplace_back(new char[room_]).get(); // not zeroed: it is filled as it is used
    }
    const char* start = free_;
    std::copy(text.begin(), text.end(), free_);
    free_ += text.size();
    room_ -= text.size();
    return {start, text.size()};
}

std::string_view TextArena::adopt(std::unique_ptr<char[]> text, std::size_t size) {
    return {blocks_.emplace_back(std::move(text)).get(), size};
}

TextBuffer::TextBuffer(std::string_view text) : bytes(new char[text.size() + 1]), size(text.size()) {
    std::copy(text.begin(), text.end(), bytes.get());
}

const Entry* Manifest::find(std::string_view path) const {
    const auto found = std::lower_bound(items().begin(), items().end(), path,
                                        [](const Item& item, std::string_view wanted) { return item.path < wanted; });
    return found != items().end() && found->path == path ? &found->entry : nullptr;
}

std::span<const Manifest::Item> Manifest::beginningWith(std::string_view beginning) const {
    const auto first = std::lower_bound(items().begin(), items().end(), beginning,
                                        [](const Item& item, std::string_view wanted) { return item.path < wanted; });
    const auto last =
        std::partition_point(first, items().end(), [&](const Item& item) { return item.path.starts_with(beginning); });
    return {first, last};
}

bool Manifest::listsBelow(std::string_view folder) const {
    return !beginningWith(std::string(folder) + "/").empty();
}

bool Manifest::listsIgnored(std::string_view folder) const {
    const Entry* entry = find(folder);
    return entry != nullptr && entry->isIgnoredFolder();
}

const Entry* Manifest::findKnown(std::string_view path) const {
    const Entry* entry = find(path);
    return entry != nullptr && entry->isIgnoredFile() ? nullptr : entry;
}

bool Manifest::leavesOut(std::string_view path) const {
    const Entry* entry = find(path);
    return (entry != nullptr && entry->isIgnoredFile()) || !ignoredAround(path).empty();
}

std::string_view Manifest::ignoredAround(std::string_view path) const {
    for (std::size_t end = path.size(); (end = path.rfind('/', end)) != std::string_view::npos && end > 0; --end)
        if (const std::string_view folder = path.substr(0, end); listsIgnored(folder)) return folder;
    return {};
}

std::int64_t Manifest::fileCount() const {
    return std::count_if(items().begin(), items().end(),
                         [](const Item& item) { return item.entry.kind != EntryKind::dir; });
}

ManifestBuilder::ManifestBuilder(const Manifest& base) : base_(&base), fates_(base.size(), absent) {}

ManifestBuilder::Handle ManifestBuilder::add(std::string_view path, const Entry& entry, std::uint32_t rank) {
    ++count_;
    const bool ranked = rank != noRank;
    if (!ranked) others_.push_back({arena_->add(path), {}});
    const Handle handle{ranked ? rank : static_cast<std::uint32_t>(others_.size() - 1), ranked};
    setEntry(handle, entry);
    return handle;
}

void ManifestBuilder::setEntry(Handle handle, const Entry& entry) {
    if (!handle.ranked) {
        Entry& stored = others_[handle.place].entry;
        stored = entry;
        stored.blob = arena_->add(entry.blob);
        return;
    }
    const Manifest::Item& before = base_->items()[handle.place];
    std::uint32_t& fate = fates_[handle.place];
    if (entry == before.entry) {
        fate = unchanged;
        return;
    }
    if (fate >= unchanged) {
        fate = static_cast<std::uint32_t>(changed_.size());
        changed_.push_back({before.path, {}});
    }
    Entry& stored = changed_[fate].entry;
    stored = entry;
    stored.blob = entry.blob == before.entry.blob ? before.entry.blob : arena_->add(entry.blob);
}

const Manifest::Item& ManifestBuilder::item(Handle handle) const {
    if (!handle.ranked) return others_[handle.place];
    const std::uint32_t fate = fates_[handle.place];
    return fate == unchanged ? base_->items()[handle.place] : changed_[fate];
}

void ManifestBuilder::sortOthers() {
    const auto outOfOrder = [](const Manifest::Item& a, const Manifest::Item& b) { return !byPath(a, b); };
    if (std::adjacent_find(others_.begin(), others_.end(), outOfOrder) == others_.end())
        return; // as a manifest's lines are
    std::stable_sort(others_.begin(), others_.end(), byPath);
    // Of equal paths the last one stays.
    std::size_t kept = 0;
    for (std::size_t i = 0; i < others_.size(); ++i) {
        if (i + 1 < others_.size() && others_[i].path == others_[i + 1].path) continue;
        others_[kept++] = others_[i];
    }
    others_.resize(kept);
}

// In the base's order, and so sorted.
std::vector<Manifest::Item> ManifestBuilder::ranked() const {
    std::vector<Manifest::Item> result;
    if (fates_.empty()) return result;
    result.reserve(count_);
    willFill(result.data(), result.capacity() * sizeof(Manifest::Item));
    for (std::size_t rank = 0; rank < fates_.size(); ++rank)
        if (fates_[rank] != absent) result.push_back(item({static_cast<std::uint32_t>(rank), true}));
    return result;
}

Manifest ManifestBuilder::finish() {
    Manifest::Arenas arenas;
    if (base_ != nullptr) {
        arenas = base_->arenas_;
        const auto same = [](std::uint32_t fate) { return fate == unchanged; };
        if (others_.empty() && std::all_of(fates_.begin(), fates_.end(), same))
            return {base_->items_, std::move(arenas)};
    }
    arenas.push_back(arena_);
    sortOthers();
    std::vector<Manifest::Item> items = ranked();
    if (items.empty()) {
        items = std::move(others_);
    } else if (!others_.empty()) {
        const auto middle = items.insert(items.end(), others_.begin(), others_.end());
        std::inplace_merge(items.begin(), middle, items.end(), byPath);
    }
    return {std::make_shared<const std::vector<Manifest::Item>>(std::move(items)), std::move(arenas)};
}

namespace {

std::string_view folderOf(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view nameIn(std::string_view folder, std::string_view path) {
    return path.substr(folder.empty() ? 0 : folder.size() + 1);
}

// A name's first bytes as a number that sorts as they do, since most names differ there.
std::uint64_t beginningOf(std::string_view name) {
    std::array<unsigned char, 8> bytes{};
    std::memcpy(bytes.data(), name.data(), std::min(name.size(), bytes.size()));
    std::uint64_t number = 0;
    for (const unsigned char byte : bytes) number = number << 8 | byte;
    return number;
}

} // namespace

PathIndex::PathIndex(const Manifest& manifest) : items_(manifest.items()) {
    // Counts what each folder holds, then gives each its part of ranks_, then fills them.
    std::vector<Folder*> folders;
    folders.reserve(items_.size());
    std::string_view parent;
    Folder* folder = &folders_[parent];
    for (const auto& item : items_) {
        const std::string_view itsParent = folderOf(item.path);
        if (itsParent != parent) folder = &folders_[parent = itsParent];
        ++folder->size;
        folders.push_back(folder);
    }
    std::uint32_t first = 0;
    for (auto& [path, each] : folders_) {
        each.first = first;
        first += each.size;
        each.size = 0;
    }
    ranks_.resize(items_.size());
    for (std::uint32_t rank = 0; rank < items_.size(); ++rank)
        ranks_[folders[rank]->first + folders[rank]->size++] = rank;
    enter({});
}

void PathIndex::enter(std::string_view folder) {
    entered_ = folder;
    children_.clear();
    const auto found = folders_.find(folder);
    if (found == folders_.end()) return;
    for (std::uint32_t i = 0; i < found->second.size; ++i) {
        const std::uint32_t rank = ranks_[found->second.first + i];
        const std::string_view name = nameIn(folder, items_[rank].path);
        children_.push_back({beginningOf(name), name, rank});
    }
}

std::uint32_t PathIndex::find(std::string_view path) {
    const std::string_view parent = folderOf(path);
    if (parent != entered_) enter(parent);
    const std::string_view name = nameIn(parent, path);
    const std::uint64_t beginning = beginningOf(name);
    const auto found =
        std::lower_bound(children_.begin(), children_.end(), name, [&](const Child& child, std::string_view wanted) {
            return child.beginning == beginning ? child.name < wanted : child.beginning < beginning;
        });
    return found != children_.end() && found->name == name ? found->rank : none;
}

} // namespace tidewrack
