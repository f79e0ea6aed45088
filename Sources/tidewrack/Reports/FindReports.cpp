#include "Reports/FindReports.hpp"

#include "Agents/SnapshotTexts.hpp"
#include "Reports/TurnReports.hpp"
#include "SnapshotWord.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack {

namespace {

using nlohmann::json;
using Type = TimelineRow::Type;

// During which rows a path went.
std::vector<const TimelineRow*> rowsOf(const FindReport& report, const FoundPath& found) {
    if (!found.goneIn) return {};
    return report.timeline.rowsThatLedTo(*found.goneIn, found.path, report.records, report.edits);
}

const SnapshotMeta* recordOf(const FindReport& report, std::int64_t seq) {
    const auto found = std::find_if(report.records.begin(), report.records.end(),
                                    [&](const SnapshotMeta& meta) { return meta.seq == seq; });
    return found == report.records.end() ? nullptr : &*found;
}

std::string goneText(const FindReport& report, const FoundPath& found, Date now, const Look& look) {
    if (!found.goneIn) return "gone since then";
    std::string text = "gone in #" + std::to_string(*found.goneIn);
    if (const SnapshotMeta* meta = recordOf(report, *found.goneIn)) text += ", " + clockText(meta->created, now);
    std::string rows;
    for (const TimelineRow* row : rowsOf(report, found))
        rows += (rows.empty() ? "" : ", or ") + (row->type == Type::outside || row->type == Type::manual
                                                     ? std::string("outside of turns")
                                                     : choiceText({"undo", {*row}}, now, look));
    return rows.empty() ? text : text + " (" + rows + ")";
}

const char* name(EntryKind kind) {
    switch (kind) {
    case EntryKind::file: return "file";
    case EntryKind::link: return "link";
    case EntryKind::dir: return "folder";
    }
    return "";
}

json spanJson(const Stretch& span) {
    return {{"from", span.from}, {"to", span.to}};
}

json filesJson(const std::vector<FoundLines>& files) {
    json list = json::array();
    for (const FoundLines& each : files) {
        json file{{"path", repairedUtf8(each.path)},
                  {"from", each.during.from},
                  {"count", each.count},
                  {"lines", each.lines}};
        if (each.during.to != untilNow) file["to"] = each.during.to;
        list.push_back(std::move(file));
    }
    return list;
}

} // namespace

std::string linesFoundText(const LineReport& report, Date now, const Look& look) {
    std::string text;
    for (const LineFindings::Row& each : report.found.rows) {
        text += timelineText({each.row}, false, now, look);
        for (const FoundLines& file : each.files) {
            text += "    " + look.shown(file.path) + "\n";
            for (std::string_view line : file.lines) {
                if (line.ends_with('\n')) line.remove_suffix(1);
                text += "        " + look.shown(std::string(line)) + "\n";
            }
            if (const std::size_t more = file.count - file.lines.size(); more > 0)
                text += "        and " + std::to_string(more) + (more == 1 ? " more line" : " more lines") + " of it\n";
        }
    }
    return text;
}

json linesFoundJson(const LineReport& report) {
    json rows = json::array();
    for (const LineFindings::Row& each : report.found.rows) {
        json row = timelineJson({each.row})["rows"][0];
        row["found"] = filesJson(each.files);
        rows.push_back(std::move(row));
    }
    json warnings = json::array();
    for (const Warning& warning : report.found.warnings) warnings.push_back(repairedUtf8(warningText(warning)));
    return {{"version", 1}, {"searched", report.searched}, {"all", report.all}, {"rows", rows}, {"warnings", warnings}};
}

std::string findText(const FindReport& report, Date now, const Look& look) {
    std::string text;
    for (const FoundPath& found : report.found.paths) {
        text += look.shown(found.path) + (found.kind == EntryKind::dir ? "/" : "") + "  ";
        for (const Stretch& span : found.earlier) text += spanText(span.from, span.to) + ", ";
        text += spanText(found.during.from, found.during.to) + "  " +
                (found.isThere ? "there now" : goneText(report, found, now, look));
        if (found.inside > 0)
            text += ", with " + std::to_string(found.inside) + (found.inside == 1 ? " path" : " paths") + " in it";
        if (found.movedTo && !found.isThere) text += ", moved to " + look.shown(*found.movedTo);
        text += "\n";
        if (found.isThere) continue;
        if (found.notKept)
            text += "    " + std::string(found.keptIn ? "its last content" : "its content") +
                    " was not kept: " + look.shown(*found.notKept) + "\n";
        if (found.keptIn) text += "    " + look.shown(report.command(found)) + "\n";
    }
    return text;
}

json findJson(const FindReport& report) {
    json list = json::array();
    for (const FoundPath& found : report.found.paths) {
        json earlier = json::array();
        for (const Stretch& span : found.earlier) earlier.push_back(spanJson(span));
        json object{{"path", repairedUtf8(found.path)},
                    {"kind", name(found.kind)},
                    {"from", found.during.from},
                    {"to", found.during.to},
                    {"earlier", earlier},
                    {"there", found.isThere},
                    {"inside", found.inside}};
        if (found.goneIn) object["goneIn"] = *found.goneIn;
        if (found.movedTo) object["movedTo"] = repairedUtf8(*found.movedTo);
        if (found.keptIn) object["keptIn"] = *found.keptIn;
        if (found.notKept) object["notKept"] = repairedUtf8(*found.notKept);
        if (!found.isThere && found.keptIn) object["command"] = repairedUtf8(report.command(found));
        if (const auto rows = rowsOf(report, found); rows.size() == 1 && rows.front()->type == Type::turn) {
            if (rows.front()->agent) object["agent"] = repairedUtf8(*rows.front()->agent);
            object["title"] = repairedUtf8(rows.front()->title);
        }
        list.push_back(std::move(object));
    }
    json warnings = json::array();
    for (const Warning& warning : report.found.warnings) warnings.push_back(repairedUtf8(warningText(warning)));
    return {{"version", 1}, {"paths", list}, {"warnings", warnings}};
}

} // namespace tidewrack
