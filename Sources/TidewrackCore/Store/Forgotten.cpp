#include "Store/Forgotten.hpp"

#include "Store/History.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

namespace tidewrack {

namespace {

constexpr std::string_view firstLine = "forgotten 1";
constexpr Stretch everything{0, INT64_MAX};

// "<from> <to>"
std::optional<Stretch> stretchIn(std::string_view text) {
    const auto blank = text.find(' ');
    if (blank == std::string_view::npos) return std::nullopt;
    const auto from = parseSeq(text.substr(0, blank));
    const auto to = parseSeq(text.substr(blank + 1));
    return from && to && *from < *to ? std::optional(Stretch{*from, *to}) : std::nullopt;
}

bool readLine(std::string_view line, Forgotten& result) {
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos) return false;
    const std::string_view key = line.substr(0, blank);
    const std::string_view value = line.substr(blank + 1);
    if (key == "lost") {
        const auto stretch = stretchIn(value);
        if (stretch) result.lose({*stretch});
        return stretch.has_value();
    }
    const auto number = parseSeq(value);
    if (!number || key != "snapshot") return false;
    result.snapshots.push_back(*number);
    return true;
}

} // namespace

bool Forgotten::isLostIn(const Stretch& stretch) const {
    return std::any_of(lost.begin(), lost.end(),
                       [&](const Stretch& each) { return each.from < stretch.to && stretch.from < each.to; });
}

bool Forgotten::mayHaveHeld(std::int64_t seq) const {
    return std::any_of(lost.begin(), lost.end(), [&](const Stretch& each) { return each.from < seq && seq < each.to; });
}

std::int64_t Forgotten::highest() const {
    const std::int64_t end = lost.empty() ? 0 : lost.back().to;
    return end == 0 || end == INT64_MAX ? 0 : end - 1;
}

void Forgotten::lose(const std::vector<Stretch>& stretches) {
    lost.insert(lost.end(), stretches.begin(), stretches.end());
    std::sort(lost.begin(), lost.end(), [](const Stretch& a, const Stretch& b) { return a.from < b.from; });
    std::vector<Stretch> joined;
    for (const Stretch& each : lost) {
        if (!joined.empty() && each.from < joined.back().to)
            joined.back().to = std::max(joined.back().to, each.to);
        else
            joined.push_back(each);
    }
    lost = std::move(joined);
}

void Forgotten::dropBefore(std::int64_t oldest) {
    std::erase_if(lost, [&](const Stretch& each) { return each.to <= oldest; });
}

std::string forgottenPath(const std::string& historyFolder) {
    return historyFolder + "/forgotten";
}

std::string encoded(const Forgotten& forgotten) {
    std::string text(firstLine);
    text += '\n';
    for (const Stretch& each : forgotten.lost)
        text += "lost " + std::to_string(each.from) + " " + std::to_string(each.to) + "\n";
    for (const std::int64_t seq : forgotten.snapshots) text += "snapshot " + std::to_string(seq) + "\n";
    return text;
}

Forgotten decodeForgotten(std::string_view text) {
    Forgotten result;
    bool isWhole = text.ends_with('\n');
    bool isFirst = true;
    while (isWhole && !text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        isWhole = isFirst ? line == firstLine : readLine(line, result);
        isFirst = false;
        text.remove_prefix(end + 1);
    }
    if (!isWhole) result.lost = {everything};
    return result;
}

Forgotten readForgotten(const std::string& historyFolder) {
    std::string text;
    const int error = readFile(forgottenPath(historyFolder), text);
    if (error == ENOENT) return {};
    return decodeForgotten(error == 0 ? text : std::string());
}

void writeForgotten(const ProjectLock&, const std::string& historyFolder, const Forgotten& forgotten) {
    const std::string path = forgottenPath(historyFolder);
    if (forgotten != Forgotten()) return writeFileAtomically(path, encoded(forgotten));
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw TidewrackError::io("remove", path, errno);
}

} // namespace tidewrack
