#include "Reports/StatReport.hpp"

#include "Changes/LineDiff.hpp"
#include "Platform/Descriptor.hpp"
#include "Reports/PatchReport.hpp"
#include "Reports/TextReports.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace tidewrack {

namespace {

// Fills `buffer` as far as the file goes. None when it can't be read.
std::optional<std::size_t> readPiece(int fd, std::vector<char>& buffer) {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        const ssize_t count = ::read(fd, buffer.data() + filled, buffer.size() - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return std::nullopt;
        if (count == 0) break;
        filled += static_cast<std::size_t>(count);
    }
    return filled;
}

// What can't be read is not the same.
bool sameBytes(const std::string& one, const std::string& other) {
    const Descriptor a(::open(one.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    const Descriptor b(::open(other.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!a || !b) return false;
    std::vector<char> pieceOfA(1 << 16);
    std::vector<char> pieceOfB(1 << 16);
    while (true) {
        const auto lengthOfA = readPiece(a.get(), pieceOfA);
        const auto lengthOfB = readPiece(b.get(), pieceOfB);
        if (!lengthOfA || lengthOfA != lengthOfB) return false;
        if (std::memcmp(pieceOfA.data(), pieceOfB.data(), *lengthOfA) != 0) return false;
        if (*lengthOfA < pieceOfA.size()) return true;
    }
}

bool isTouchedOnly(const Store& store, const Project& project, const Entry& older, const Entry& newer) {
    if (older.kind != newer.kind || older.mode != newer.mode || older.size != newer.size) return false;
    const auto before = sideOf(store, project, &older);
    const auto after = sideOf(store, project, &newer);
    if (!before || !after || !before->content || !after->content) return false;
    if (older.kind == EntryKind::link) return before->content == after->content;
    return sameBytes(*before->content, *after->content);
}

struct Sums {
    std::size_t files = 0;
    std::size_t added = 0;
    std::size_t removed = 0;
};

std::string lineCounts(std::size_t added, std::size_t removed) {
    return "+" + std::to_string(added) + " -" + std::to_string(removed);
}

// What the line of a file says behind its path.
std::string measure(const std::optional<PatchSide>& before, const std::optional<PatchSide>& after, Sums& sums) {
    for (const auto* side : {&before, &after}) {
        if (*side && (*side)->kind == PatchSide::Kind::link) return "link";
        if (*side && !(*side)->content) return "not kept: " + (*side)->notKeptReason;
    }
    const auto result =
        LineDiff::compare(before ? before->content : std::nullopt, after ? after->content : std::nullopt);
    switch (result.kind) {
    case LineDiff::Result::Kind::binary: return "binary";
    case LineDiff::Result::Kind::tooLarge: return "too large to compare";
    case LineDiff::Result::Kind::text:
    case LineDiff::Result::Kind::unchanged: break;
    }
    sums.added += result.added;
    sums.removed += result.removed;
    return lineCounts(result.added, result.removed);
}

} // namespace

Changes withoutTouched(const Store& store, const Project& project, const Engine::Sides& sides, const Changes& changes) {
    Changes result = changes;
    std::erase_if(result.modified, [&](const std::string& path) {
        const Entry* older = sides.older.find(path);
        const Entry* newer = sides.newer.find(path);
        return older != nullptr && newer != nullptr && isTouchedOnly(store, project, *older, *newer);
    });
    return result;
}

std::string statText(const Store& store, const Project& project, const Engine::Sides& sides, const Changes& changes,
                     const Look& look) {
    std::string text;
    Sums sums;
    for (const std::string& path : changes.all()) {
        const auto before = sideOf(store, project, sides.older.find(path));
        const auto after = sideOf(store, project, sides.newer.find(path));
        if (!before && !after) continue; // a folder
        ++sums.files;
        const char* mark = !before ? "+ " : !after ? "- " : "~ ";
        text += mark + look.shown(path) + "  " + measure(before, after, sums) + "\n";
    }
    if (sums.files == 0) return "No changes.\n";
    return text + filesText(sums.files) + " changed, " + lineCounts(sums.added, sums.removed) + "\n";
}

} // namespace tidewrack
