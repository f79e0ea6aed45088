#include "Store/Manifest.hpp"

#include "Support/Errors.hpp"

#include <algorithm>
#include <charconv>
#include <functional>
#include <iterator>

namespace tidewrack {

namespace {

bool byPath(const Manifest::Item& a, const Manifest::Item& b) {
    return a.path < b.path;
}

} // namespace

std::optional<std::string> Entry::notKeptReason() const {
    if (blob.starts_with("big:")) return "it was larger than the size limit";
    if (!blob.starts_with("err")) return std::nullopt;
    int number = 0;
    const auto digits = blob.substr(3);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error == std::errc() && end == digits.data() + digits.size())
        return "it couldn't be read: " + errorText(number);
    return "it couldn't be read";
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
    const auto found = std::lower_bound(items_.begin(), items_.end(), path,
                                        [](const Item& item, std::string_view wanted) { return item.path < wanted; });
    return found != items_.end() && found->path == path ? &found->entry : nullptr;
}

Manifest::Range Manifest::below(std::string_view folder) const {
    if (folder.empty()) return {items_.data(), items_.data() + items_.size()};
    const std::string first = std::string(folder) + "/";
    const std::string last = std::string(folder) + "0"; // "0" is the byte after "/"
    const auto less = [](const Item& item, const std::string& wanted) { return item.path < wanted; };
    const auto from = std::lower_bound(items_.begin(), items_.end(), first, less);
    const auto to = std::lower_bound(from, items_.end(), last, less);
    return {items_.data() + (from - items_.begin()), items_.data() + (to - items_.begin())};
}

std::int64_t Manifest::fileCount() const {
    return std::count_if(items_.begin(), items_.end(),
                         [](const Item& item) { return item.entry.kind != EntryKind::dir; });
}

ManifestBuilder::ManifestBuilder(const Manifest& base) : base_(&base) {
    ranked_.resize(base.size());
}

ManifestBuilder::Handle ManifestBuilder::add(std::string_view path, const Entry& entry, std::uint32_t rank) {
    ++count_;
    if (rank == noRank) {
        others_.push_back({arena_->add(path), {}});
    } else {
        ranked_[rank].path = base_->items()[rank].path;
    }
    const bool ranked = rank != noRank;
    const Handle handle{ranked ? rank : static_cast<std::uint32_t>(others_.size() - 1), ranked};
    setEntry(handle, entry);
    return handle;
}

void ManifestBuilder::setEntry(Handle handle, const Entry& entry) {
    Entry& stored = (handle.ranked ? ranked_ : others_)[handle.place].entry;
    stored = entry;
    const bool known = handle.ranked && base_->items()[handle.place].entry.blob == entry.blob;
    stored.blob = known ? base_->items()[handle.place].entry.blob : arena_->add(entry.blob);
}

const Manifest::Item& ManifestBuilder::item(Handle handle) const {
    return (handle.ranked ? ranked_ : others_)[handle.place];
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

Manifest ManifestBuilder::finish() {
    sortOthers();
    Manifest result;
    if (base_ != nullptr) result.arenas_ = base_->arenas_;
    result.arenas_.push_back(arena_);
    ranked_.erase(std::remove_if(ranked_.begin(), ranked_.end(), [](const auto& item) { return !isSet(item); }),
                  ranked_.end());
    if (others_.empty() || ranked_.empty()) {
        result.items_ = std::move(others_.empty() ? ranked_ : others_);
    } else {
        result.items_.reserve(ranked_.size() + others_.size());
        std::merge(ranked_.begin(), ranked_.end(), others_.begin(), others_.end(), std::back_inserter(result.items_),
                   byPath);
    }
    return result;
}

PathIndex::PathIndex(const Manifest& manifest) : manifest_(manifest) {
    std::size_t size = 16;
    while (size < manifest.size() * 2) size *= 2;
    slots_.assign(size, none);
    mask_ = size - 1;
    for (std::uint32_t i = 0; i < manifest.size(); ++i) {
        std::size_t at = std::hash<std::string_view>()(manifest.items()[i].path) & mask_;
        while (slots_[at] != none) at = (at + 1) & mask_;
        slots_[at] = i;
    }
}

std::uint32_t PathIndex::find(std::string_view path) const {
    std::size_t at = std::hash<std::string_view>()(path) & mask_;
    while (slots_[at] != none && manifest_.items()[slots_[at]].path != path) at = (at + 1) & mask_;
    return slots_[at];
}

} // namespace tidewrack
