#include "Store/EditLog.hpp"

#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/JsonFields.hpp"
#include "Support/LineLog.hpp"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <utility>

namespace tidewrack {

std::string editLogPath(const std::string& historyFolder) {
    return historyFolder + "/edits.log";
}

void noteEdit(const std::string& historyFolder, const NotedEdit& edit) {
    nlohmann::json object = {{"time", isoText(edit.time)}, {"agent", edit.agent}, {"path", edit.path}};
    if (edit.session) object["session"] = *edit.session;
    if (edit.turn) object["turn"] = *edit.turn;
    if (edit.after) object["after"] = *edit.after;
    (void)appendLine(editLogPath(historyFolder), compactJson(object), longestEditLog, FullLog::rotated);
}

namespace {

// None where the line is damaged.
std::optional<NotedEdit> readNote(std::string_view line) {
    try {
        const JsonFields fields(line, "edits.log");
        return NotedEdit{fields.date("time"),         fields.text("agent"), fields.optionalText("session"),
                         fields.optionalText("turn"), fields.text("path"),  fields.optionalInteger("after")};
    } catch (const TidewrackError&) {
        return std::nullopt;
    }
}

} // namespace

EditNotes notedEdits(std::string_view log) {
    EditNotes notes;
    bool lost = false; // a note since the last one that could be read
    while (!log.empty()) {
        const std::size_t end = log.find('\n');
        auto note = end == log.npos ? std::nullopt : readNote(log.substr(0, end));
        // Two that began a new line behind one that was cut short leave an empty one.
        lost = lost || (!note && end != 0);
        if (note && lost) notes.lackingUntil = note->time;
        if (note) {
            lost = false;
            notes.edits.push_back(std::move(*note));
        }
        log.remove_prefix(end == log.npos ? log.size() : end + 1);
    }
    if (lost) notes.lackingUntil = Date::max();
    return notes;
}

EditNotes readNotedEdits(const std::string& historyFolder) {
    const std::string path = editLogPath(historyFolder);
    std::string log;
    std::string older;
    // The newer one first: a log that is moved aside in between is read twice rather than not at all.
    const int failure = readFile(path, log);
    const int olderFailure = readFile(rotatedLogPath(path), older);
    const bool rotated = olderFailure != ENOENT;
    if (rotated && !older.empty() && !older.ends_with('\n')) older += '\n';
    EditNotes notes = notedEdits(older.starts_with(log) ? older : older + log);
    const bool unread = (failure != 0 && failure != ENOENT) || (rotated && olderFailure != 0);
    if (unread || (rotated && notes.edits.empty()))
        notes.lackingUntil = Date::max();
    else if (rotated && !notes.lackingUntil) // what was moved aside before is gone
        notes.lackingUntil = notes.edits.front().time;
    return notes;
}

} // namespace tidewrack
