#include "Store/EditLog.hpp"

#include "Support/Errors.hpp"
#include "Support/Json.hpp"
#include "Support/JsonFields.hpp"
#include "Support/LineLog.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

std::string editLogPath(const std::string& historyFolder) {
    return historyFolder + "/edits.log";
}

void noteEdit(const std::string& historyFolder, const NotedEdit& edit) {
    nlohmann::json object = {{"time", isoText(edit.time)}, {"agent", edit.agent}, {"path", edit.path}};
    if (edit.session) object["session"] = *edit.session;
    if (edit.turn) object["turn"] = *edit.turn;
    (void)appendLine(editLogPath(historyFolder), compactJson(object), longestEditLog);
}

std::vector<NotedEdit> notedEdits(std::string_view log) {
    std::vector<NotedEdit> edits;
    while (!log.empty()) {
        const std::size_t end = log.find('\n');
        if (end == log.npos) break; // being written just now
        try {
            const JsonFields fields(log.substr(0, end), "edits.log");
            edits.push_back({fields.date("time"), fields.text("agent"), fields.optionalText("session"),
                             fields.optionalText("turn"), fields.text("path")});
        } catch (const TidewrackError&) {
            // A damaged line costs none of the others.
        }
        log.remove_prefix(end + 1);
    }
    return edits;
}

} // namespace tidewrack
