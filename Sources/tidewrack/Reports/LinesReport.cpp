#include "Reports/LinesReport.hpp"

#include "Changes/LineDiff.hpp"
#include "Reports/PatchReport.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

namespace {

using nlohmann::json;

// What is to be compared of a side; why it can't be, where `note` is not empty.
struct Text {
    std::string bytes;
    std::string note;
};

Text textOf(const std::optional<PatchSide>& side) {
    if (!side) return {};
    if (side->kind == PatchSide::Kind::link) return {"", "link"};
    if (!side->content) return {"", "not kept: " + side->notKeptReason};
    LineDiff::Content content = LineDiff::read(*side->content);
    if (content.tooLarge) return {"", "too large to compare"};
    if (content.error != 0) return {"", "its content can't be read"};
    if (!LineDiff::text(content.bytes)) return {"", "binary"};
    return {std::move(content.bytes), ""};
}

json lineJson(const LineDiff::Line& line) {
    std::string text(1, line.kind == LineDiff::Line::Kind::added     ? '+'
                        : line.kind == LineDiff::Line::Kind::removed ? '-'
                                                                     : ' ');
    return text += line.text;
}

json hunkJson(const LineDiff::Hunk& hunk) {
    std::size_t oldBegin = 0;
    std::size_t newBegin = 0;
    json lines = json::array();
    for (const LineDiff::Line& line : hunk.lines) {
        if (oldBegin == 0) oldBegin = line.oldNumber.value_or(0);
        if (newBegin == 0) newBegin = line.newNumber.value_or(0);
        lines.push_back(lineJson(line));
    }
    return {{"oldBegin", oldBegin},
            {"newBegin", newBegin},
            {"digest", LineDiff::digest(hunk)},
            {"lines", std::move(lines)}};
}

// Where a link leads.
void addTarget(const std::optional<PatchSide>& side, const char* key, json& file) {
    if (side && side->kind == PatchSide::Kind::link && side->content) file[key] = repairedUtf8(*side->content);
}

void compare(const std::optional<PatchSide>& before, const std::optional<PatchSide>& after, json& file) {
    const Text older = textOf(before);
    const Text newer = textOf(after);
    const std::string note = older.note.empty() ? newer.note : older.note;
    json hunks = json::array();
    file["added"] = 0;
    file["removed"] = 0;
    if (!note.empty()) {
        file["note"] = repairedUtf8(note);
    } else {
        const LineDiff::Result result = LineDiff::diffLines(LineDiff::wholeLines(older.bytes),
                                                            LineDiff::wholeLines(newer.bytes), LineDiff::usualContext);
        for (const LineDiff::Hunk& hunk : result.hunks) hunks.push_back(hunkJson(hunk));
        file["added"] = result.added;
        file["removed"] = result.removed;
    }
    file["hunks"] = std::move(hunks);
}

} // namespace

json linesJson(const Store& store, const Project& project, const Engine::Sides& sides, const Changes& changes,
               std::int64_t from, std::optional<std::int64_t> to) {
    json files = json::array();
    for (const std::string& path : changes.all()) {
        const auto before = sideOf(store, project, sides.older.find(path));
        const auto after = sideOf(store, project, sides.newer.find(path));
        if (!before && !after) continue; // a folder
        json file{{"path", repairedUtf8(path)},
                  {"status", !before  ? "added"
                             : !after ? "deleted"
                                      : "modified"},
                  {"from", from}};
        if (to) file["to"] = *to;
        addTarget(before, "oldTarget", file);
        addTarget(after, "newTarget", file);
        compare(before, after, file);
        files.push_back(std::move(file));
    }
    return files;
}

} // namespace tidewrack
