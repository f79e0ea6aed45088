#include "Engine/ListingSteps.hpp"

#include "Engine/SameContent.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace tidewrack {

namespace {

constexpr std::size_t ahead = 3; // a listing of 100,000 paths takes some 10 MB

// How many bytes two texts have in common at their beginning.
std::size_t commonLength(std::string_view a, std::string_view b) {
    constexpr std::size_t block = 4096;
    const std::size_t most = std::min(a.size(), b.size());
    std::size_t at = 0;
    while (at + block <= most && std::memcmp(a.data() + at, b.data() + at, block) == 0) at += block;
    while (at < most && a[at] == b[at]) ++at;
    return at;
}

// With its line feed.
std::string_view firstLine(std::string_view text) {
    const std::size_t feed = text.find('\n');
    return text.substr(0, feed == std::string_view::npos ? feed : feed + 1);
}

// Behind the seventh tab; what has no such place cannot be decoded either.
std::string pathIn(std::string_view line) {
    for (int field = 0; field < 7; ++field) line.remove_prefix(std::min(line.find('\t'), line.size() - 1) + 1);
    if (line.ends_with('\n')) line.remove_suffix(1);
    return Manifest::unescape(line);
}

std::string placeOf(const History& history, const Entry& entry) {
    constexpr std::string_view live = "live:";
    return entry.blob.starts_with(live) ? std::string(entry.blob.substr(live.size())) : history.blobPath(entry.blob);
}

} // namespace

ListingDifference differenceOf(std::string_view older, std::string_view newer) {
    std::string olderLines;
    std::string newerLines;
    const auto take = [](std::string_view& text, std::string_view line, std::string& lines) {
        lines += line;
        text.remove_prefix(line.size());
    };
    while (!older.empty() || !newer.empty()) {
        const std::string_view common = older.substr(0, commonLength(older, newer));
        const std::size_t whole = common.rfind('\n') + 1; // 0 for none
        older.remove_prefix(whole);
        newer.remove_prefix(whole);
        const std::string_view before = firstLine(older);
        const std::string_view after = firstLine(newer);
        const int order = before.empty() ? 1 : after.empty() ? -1 : pathIn(before).compare(pathIn(after));
        if (order <= 0) take(older, before, olderLines);
        if (order >= 0) take(newer, after, newerLines);
    }
    return {Manifest::decodeText(TextBuffer(olderLines)), Manifest::decodeText(TextBuffer(newerLines))};
}

std::optional<std::string> placeOfSame(const History& history, const Manifest::Item& item, const Manifest& own,
                                       const Manifest& other) {
    const Entry& wanted = item.entry;
    if (wanted.kind != EntryKind::file || wanted.size == 0 || !wanted.isKept()) return std::nullopt;
    const std::string place = placeOf(history, wanted);
    for (const Manifest::Item& each : other.items()) {
        const Entry& entry = each.entry;
        if (entry.kind != EntryKind::file || entry.size != wanted.size || own.find(each.path) != nullptr) continue;
        const bool same = entry.ino == wanted.ino && entry.mtime == wanted.mtime;
        const std::string otherPlace = placeOf(history, entry);
        if (same || (entry.isKept() && sameContent({AT_FDCWD, place.c_str()}, {AT_FDCWD, otherPlace.c_str()})))
            return std::string(each.path);
    }
    return std::nullopt;
}

ListingReader::ListingReader(const History& history, std::vector<std::int64_t> manifests)
    : history_(history), manifests_(std::move(manifests)) {}

void ListingReader::readAhead() {
    while (begun_ < manifests_.size() && waiting_.size() < ahead)
        waiting_.push_back(std::async(std::launch::async | std::launch::deferred, // deferred where there is no thread
                                      [this, seq = manifests_[begun_++]] { return history_.manifestText(seq); }));
}

TextBuffer ListingReader::next() {
    readAhead();
    std::future<TextBuffer> first = std::move(waiting_.front());
    waiting_.pop_front();
    readAhead();
    return first.get();
}

} // namespace tidewrack
