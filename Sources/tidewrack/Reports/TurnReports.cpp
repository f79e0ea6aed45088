#include "Reports/TurnReports.hpp"

#include "Agents/SnapshotTexts.hpp"
#include "Reports/JsonReports.hpp"
#include "Reports/OutcomeTexts.hpp"
#include "Reports/TextReports.hpp"
#include "SnapshotWord.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

namespace {

using nlohmann::json;
using Type = TimelineRow::Type;
using End = TimelineRow::End;
using Kind = UndoAction::Kind;
using Reason = UndoAction::Reason;

const char* name(Type type) {
    switch (type) {
    case Type::turn: return "turn";
    case Type::outside: return "outside";
    case Type::manual: return "manual";
    case Type::restore: return "restore";
    case Type::undo: return "undo";
    }
    return "";
}

const char* name(End end) {
    switch (end) {
    case End::stop: return "stop";
    case End::interrupted: return "interrupted";
    case End::running: return "running";
    case End::unknown: return "unknown";
    }
    return "";
}

std::string agentText(const TimelineRow& row, const Look& look) {
    return row.agent ? look.shown(repairedUtf8(*row.agent)) : "an agent";
}

std::string whoText(const TimelineRow& row, const Look& look) {
    switch (row.type) {
    case Type::turn: return agentText(row, look);
    // Turns of which no snapshot is left, or none that can be read, look the same.
    case Type::outside: return row.last == row.first + 1 ? "changes outside of turns" : "changes, snapshots missing";
    case Type::manual: return "by hand";
    case Type::restore: return "restore";
    case Type::undo: return row.redo ? "redo" : "undo";
    }
    return "";
}

std::string notes(const TimelineRow& row, const Look& look) {
    std::string text;
    const auto add = [&](const std::string& note) { text += (text.empty() ? "  (" : ", ") + note; };
    if (row.undone) add("taken back");
    switch (row.end) {
    case End::stop: break;
    case End::interrupted: add("interrupted"); break;
    case End::running: add("running"); break;
    case End::unknown: add("end not seen"); break;
    }
    if (row.thinned) add(row.beginUnread ? "its beginning can't be read" : "its beginning is pruned");
    std::string before;
    for (const TimelineRow::Company& each : row.company) {
        const std::string agent = look.shown(repairedUtf8(each.agent));
        const std::string who = each.agent.empty()        ? "another session"
                                : each.agent == row.agent ? "another session of " + agent
                                                          : agent;
        const std::string note = (each.seen ? who : "maybe " + who) + " at work meanwhile";
        if (note != before) add(note);
        before = note;
    }
    for (const std::string& root : row.projects) add("also in " + look.shown(repairedUtf8(root)));
    if (!row.vault.empty()) add("vault " + std::to_string(row.vault.size()));
    return text.empty() ? text : text + ")";
}

std::string sign(const UndoAction& action) {
    switch (action.kind) {
    case Kind::putBack: return "+ ";
    case Kind::remove: return "- ";
    case Kind::overwrite:
    case Kind::merge: return "~ ";
    case Kind::leave: return "! ";
    case Kind::keep: return "  ";
    }
    return "";
}

std::string laterText(const UndoneAction& each, const std::string& what, const Look& look) {
    std::string text = what + (each.changedIn == 0 ? " since" : " in #" + std::to_string(each.changedIn));
    if (each.agent)
        text += " (" + look.shown(repairedUtf8(*each.agent)) +
                (each.title.empty() ? "" : ", " + titleText(each.title, look)) + ")";
    return text;
}

std::string reasonText(const UndoneAction& each, const Look& look) {
    switch (each.action.reason) {
    case Reason::none: return each.action.kind == Kind::merge ? "merged" : "";
    case Reason::clash: return laterText(each, "the same lines changed again", look);
    case Reason::changed: return laterText(each, "changed again", look);
    case Reason::tooLarge: return laterText(each, "changed again", look) + ", too large to merge";
    case Reason::deleted: return laterText(each, "deleted", look);
    case Reason::madeAnew: return laterText(each, "made anew", look);
    case Reason::doubt: return look.shown(repairedUtf8(each.action.detail));
    case Reason::notKept: return "was not kept: " + each.action.detail;
    case Reason::damaged: return "what was kept of it is damaged";
    case Reason::hidden: return "is not in history any more: " + each.action.detail;
    case Reason::ignored: return "it is ignored, so its content isn't in history";
    case Reason::unlisted:
        return "history doesn't hold all that is in it (" + look.shown(repairedUtf8(each.action.detail)) + ")";
    case Reason::blocked: return look.shown(repairedUtf8(each.action.detail));
    case Reason::obstacle: return look.shown(repairedUtf8(reasonText(each.obstacle, 0)));
    }
    return "";
}

const char* name(Kind kind) {
    switch (kind) {
    case Kind::putBack: return "put back";
    case Kind::remove: return "remove";
    case Kind::overwrite: return "overwrite";
    case Kind::merge: return "merge";
    case Kind::leave: return "leave";
    case Kind::keep: return "keep";
    }
    return "";
}

std::string commandText(const TimelineRow::Command& command, Date now, const Look& look) {
    std::string text = "    " + (command.seq != 0 ? "#" + std::to_string(command.seq) : "vault");
    if (!command.project.empty()) text += " in " + look.shown(repairedUtf8(command.project));
    text += "  " + clockText(command.time, now) + "  " + look.shown(repairedUtf8(command.command));
    return text + (command.verdict == "ask" ? "  (asked)" : "") + "\n";
}

json rowJson(const TimelineRow& row) {
    json commands = json::array();
    for (const TimelineRow::Command& each : row.commands) {
        json command{{"command", repairedUtf8(each.command)}, {"verdict", each.verdict}, {"time", isoText(each.time)}};
        if (each.seq != 0) command["seq"] = each.seq;
        if (!each.project.empty()) command["project"] = repairedUtf8(each.project);
        if (!each.vault.empty()) command["vault"] = each.vault;
        commands.push_back(std::move(command));
    }
    json meanwhile = json::array();
    for (const TimelineRow::Company& each : row.company)
        meanwhile.push_back({{"agent", each.agent},
                             {"session", each.session},
                             {"title", repairedUtf8(each.title)},
                             {"from", each.during.from}});
    for (std::size_t at = 0; at < row.company.size(); ++at)
        if (row.company[at].during.to != untilNow) meanwhile[at]["to"] = row.company[at].during.to;
    json projects = json::array();
    for (const std::string& root : row.projects) projects.push_back(repairedUtf8(root));
    json object{{"type", name(row.type)},
                {"first", row.first},
                {"last", row.last},
                {"title", repairedUtf8(row.title)},
                {"began", isoText(row.began)},
                {"end", name(row.end)},
                {"commands", commands},
                {"meanwhile", meanwhile},
                {"projects", projects},
                {"vault", row.vault},
                {"undone", row.undone}};
    if (row.type == Type::restore || row.type == Type::undo) {
        object["tookBack"] = json::array();
        for (const Stretch& each : row.tookBack) object["tookBack"].push_back({{"from", each.from}, {"to", each.to}});
        object["redo"] = row.redo;
    }
    if (row.counts) {
        object["added"] = row.counts->added;
        object["modified"] = row.counts->modified;
        object["deleted"] = row.counts->deleted;
    }
    if (row.agent) object["agent"] = repairedUtf8(*row.agent);
    if (row.session) object["session"] = repairedUtf8(*row.session);
    if (row.turn) object["turn"] = repairedUtf8(*row.turn);
    if (row.ended) object["ended"] = isoText(*row.ended);
    return object;
}

} // namespace

std::string timelineText(const std::vector<TimelineRow>& rows, bool commands, Date now, const Look& look) {
    std::string text;
    for (const TimelineRow& row : rows) {
        text += spanText(row.first, row.last) + "  " + clockText(row.began, now) + "  " + whoText(row, look);
        if (row.type == Type::turn || !row.title.empty()) text += "  " + titleText(row.title, look);
        if (row.type != Type::manual && row.counts)
            text += "  " + (row.foldersAlone ? "folders alone" : countsText(*row.counts));
        text += notes(row, look) + "\n";
        if (!commands) continue;
        for (const TimelineRow::Command& each : row.commands) text += commandText(each, now, look);
    }
    return text;
}

json timelineJson(const std::vector<TimelineRow>& rows) {
    json list = json::array();
    for (const TimelineRow& row : rows) list.push_back(rowJson(row));
    return {{"version", 1}, {"rows", list}};
}

std::string timesText(const TimelineRow& row, Date now, const Look& look) {
    std::string text = "    ";
    if (row.session) text += "session " + look.shown(repairedUtf8(*row.session)) + ", ";
    text += "from " + clockText(row.began, now);
    if (row.ended) return text + " to " + clockText(*row.ended, now) + "\n";
    return text + (row.isRunning() ? " on\n" : ", its end was not seen\n");
}

std::string choiceText(const UndoChoice& choice, Date now, const Look& look) {
    const TimelineRow& newest = choice.rows.front();
    const TimelineRow& oldest = choice.rows.back();
    const std::string range = spanText(oldest.first, std::max(newest.last, oldest.first));
    const std::string agent = agentText(newest, look);
    const std::string of = " of " + clockText(newest.began, now);
    if (choice.rows.size() > 1) return std::to_string(choice.rows.size()) + " turns of " + agent + ", " + range;
    switch (newest.type) {
    case Type::turn: break;
    case Type::outside:
    case Type::manual:
        return "what changed from #" + std::to_string(oldest.first) + " to #" + std::to_string(newest.last);
    case Type::restore: return "the restore " + range + of;
    case Type::undo: return (newest.redo ? "the redo " : "the undo ") + range + of;
    }
    std::string turn = "turn " + range + " of " + agent + ", " + titleText(newest.title, look);
    if (!newest.isRunning()) return turn;
    return turn + ", whose end was not seen: all changes from " + clockText(newest.began, now) + " until now";
}

std::string undoText(const UndoResult& result, const Look& look) {
    std::string text;
    for (const UndoneAction& each : result.actions) {
        text += sign(each.action) + look.shown(repairedUtf8(each.action.path)) + (each.action.folder ? "/" : "");
        const std::string reason = reasonText(each, look);
        if (!reason.empty()) text += (each.action.kind == Kind::keep ? "  kept: " : "  ") + reason;
        text += "\n";
    }
    for (const PathOutcome& each : result.interrupted) text += interruptedRow(each, look) + "\n";
    return text;
}

json spansJson(const std::vector<TimelineRow>& rows) {
    json list = json::array();
    for (const TimelineRow& row : rows) list.push_back({{"from", row.first}, {"to", row.last}});
    return list;
}

json undoJson(const std::string& root, const UndoChoice& choice, const UndoResult& result) {
    json actions = json::array();
    for (const UndoneAction& each : result.actions) {
        json object{{"path", repairedUtf8(each.action.path)},
                    {"action", name(each.action.kind)},
                    {"folder", each.action.folder}};
        if (!each.action.acts()) object["reason"] = repairedUtf8(reasonText(each, {}));
        if (each.changedIn != 0) object["changedIn"] = each.changedIn;
        if (each.agent) object["agent"] = repairedUtf8(*each.agent);
        if (!each.title.empty()) object["title"] = repairedUtf8(each.title);
        actions.push_back(std::move(object));
    }
    json warnings = json::array();
    for (const Warning& warning : result.warnings) warnings.push_back(repairedUtf8(warningText(warning)));
    RestoreResult dryRun;
    dryRun.outcomes = result.interrupted;
    for (const std::string& text : warningTexts(dryRun)) warnings.push_back(repairedUtf8(text));
    if (result.restored) warnings = restoreJson(*result.restored)["warnings"];
    json object{{"root", repairedUtf8(root)},
                {"takesBack", spansJson(choice.rows)},
                {"actions", actions},
                {"warnings", warnings}};
    if (result.restored) object["safety"] = result.restored->safety.seq;
    return object;
}

} // namespace tidewrack
