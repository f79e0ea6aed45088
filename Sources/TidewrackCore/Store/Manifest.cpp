#include "Store/Manifest.hpp"

#include "Support/Errors.hpp"

#include <algorithm>
#include <charconv>
#include <functional>

namespace tidewrack {

namespace {

bool byPath(const Manifest::Item& a, const Manifest::Item& b) { return a.path < b.path; }

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
    if (attributes.kind == Attributes::Kind::link) entry.kind = EntryKind::link;
    else if (attributes.kind == Attributes::Kind::folder) entry.kind = EntryKind::dir;
    entry.mode = attributes.mode;
    entry.size = attributes.size;
    entry.mtime = attributes.mtime;
    entry.ctime = attributes.ctime;
    entry.ino = attributes.ino;
    return entry;
}

std::string_view TextArena::add(std::string_view text) {
    if (text.empty()) return {};
    if (open_ == nullptr || open_->capacity() - open_->size() < text.size()) {
        open_ = &blocks_.emplace_back();
        open_->reserve(std::max(blockSize, text.size()));
    }
    const char* start = open_->data() + open_->size();
    open_->append(text);
    return {start, text.size()};
}

std::string_view TextArena::adopt(std::string text) {
    // A short string would move its bytes with the object; a deque never moves its elements.
    const std::string& kept = blocks_.emplace_back(std::move(text));
    return kept;
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

void ManifestBuilder::add(std::string_view path, const Entry& entry) {
    Manifest::Item item{manifest_.arena_->add(path), entry};
    item.entry.blob = manifest_.arena_->add(entry.blob);
    manifest_.items_.push_back(item);
}

void ManifestBuilder::setEntry(std::size_t index, const Entry& entry) {
    manifest_.items_[index].entry = entry;
    manifest_.items_[index].entry.blob = manifest_.arena_->add(entry.blob);
}

Manifest ManifestBuilder::finish() {
    auto& items = manifest_.items_;
    if (!std::is_sorted(items.begin(), items.end(), byPath)) std::stable_sort(items.begin(), items.end(), byPath);
    // Of equal paths the last one stays.
    std::size_t kept = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i + 1 < items.size() && items[i].path == items[i + 1].path) continue;
        items[kept++] = items[i];
    }
    items.resize(kept);
    return std::exchange(manifest_, Manifest());
}

Manifest ManifestBuilder::finish(const std::vector<std::uint32_t>& ranks, std::size_t rankCount) {
    std::vector<std::uint32_t> atRank(rankCount, noRank);
    std::vector<Manifest::Item> others;
    for (std::size_t i = 0; i < ranks.size(); ++i) {
        if (ranks[i] == noRank) others.push_back(manifest_.items_[i]);
        else atRank[ranks[i]] = static_cast<std::uint32_t>(i);
    }
    std::sort(others.begin(), others.end(), byPath);
    std::vector<Manifest::Item> sorted;
    sorted.reserve(manifest_.items_.size());
    auto other = others.begin();
    for (const std::uint32_t place : atRank) {
        if (place == noRank) continue;
        const Manifest::Item& item = manifest_.items_[place];
        while (other != others.end() && other->path < item.path) sorted.push_back(*other++);
        sorted.push_back(item);
    }
    sorted.insert(sorted.end(), other, others.end());
    manifest_.items_ = std::move(sorted);
    return std::exchange(manifest_, Manifest());
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
