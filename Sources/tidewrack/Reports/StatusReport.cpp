#include "Reports/StatusReport.hpp"

#include "Agents/SnapshotTexts.hpp"
#include "Reports/TextReports.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack {

namespace {

constexpr std::size_t mostFailed = 3;

const char* gitText(StatusReport::Git git) {
    switch (git) {
    case StatusReport::Git::answers: return "answers";
    case StatusReport::Git::silent: return "doesn't answer";
    case StatusReport::Git::missing: return "is missing";
    }
    return "";
}

std::string notKeptText(const NotKept& notKept, const Look& look) {
    std::string text;
    const auto add = [&](const std::string& line) { text += "  " + line + "\n"; };
    if (notKept.tooLarge > 0) add(tooLargeText(notKept) + ": over the limit of size");
    for (std::size_t i = 0; i < std::min(notKept.failed.size(), mostFailed); ++i)
        add("Not kept: " + look.shown(notKept.failed[i].path) + ": " + look.shown(notKept.failed[i].reason));
    if (notKept.failed.size() > mostFailed) add("and " + std::to_string(notKept.failed.size() - mostFailed) + " more");
    const std::string folders = notKept.ignoredFolders > 0 ? countText(notKept.ignoredFolders, "folder") : "";
    const std::string files = notKept.ignoredFiles > 0 ? countText(notKept.ignoredFiles, "file") : "";
    if (notKept.ignoredFolders + notKept.ignoredFiles > 0)
        add(folders + (folders.empty() || files.empty() ? "" : " and ") + files +
            (notKept.ignoredFolders + notKept.ignoredFiles == 1 ? " is" : " are") + " left out as ignored");
    return text;
}

std::string projectText(const StatusReport& report, Date now, const Look& look) {
    std::string text = look.shown(report.project->root) + ": ";
    text += countText(report.snapshots, "snapshot");
    if (report.newest)
        text += ", the newest #" + std::to_string(report.newest->seq) + " " + ago(report.newest->created, now) + " (" +
                look.shown(report.newest->kind) + ")";
    text += "\n" + notKeptText(report.notKept, look);
    return text + "  " + bytesText(report.bytes) + " of room; blocks are " + (report.sharesBlocks ? "" : "not ") +
           "shared with the project; git " + gitText(report.git) + "\n";
}

} // namespace

std::string statusText(const StatusReport& report, Date now, const Look& look) {
    std::string text = report.project ? projectText(report, now, look) : look.shown(report.folder) + ": not tracked\n";
    text += "Agents\n";
    std::size_t widest = 0;
    for (const StatusReport::AgentState& each : report.agents) widest = std::max(widest, each.agent.size());
    for (const StatusReport::AgentState& each : report.agents) {
        std::string line = "  " + each.agent;
        line.resize(2 + widest, ' ');
        line += "  " + each.state;
        if (each.hint) line += ", " + look.shown(*each.hint);
        if (each.latest) line += "; " + look.shown(each.latest->event) + " " + ago(each.latest->time, now);
        text += line + "\n";
    }
    if (!report.failures.empty()) text += "The latest failures of hooks\n";
    for (const LoggedEvent& failure : report.failures)
        text += "  " + ago(failure.time, now) + "  " + look.shown(failure.agent + " " + failure.event) + "  " +
                look.shown(failure.message) + "\n";
    if (report.troubles.empty()) return text + "All is well.\n";
    text += "Something is wrong\n";
    for (const StatusReport::Trouble& trouble : report.troubles)
        text += "  " + look.shown(trouble.what) + (trouble.mend.empty() ? "" : ". " + look.shown(trouble.mend)) + "\n";
    return text;
}

nlohmann::json statusJson(const StatusReport& report) {
    nlohmann::json object = {{"version", 1},
                             {"healthy", report.troubles.empty()},
                             {"snapshots", report.snapshots},
                             {"bytes", report.bytes},
                             {"sharesBlocks", report.sharesBlocks},
                             {"git", gitText(report.git)},
                             {"tooLarge", report.notKept.tooLarge},
                             {"tooLargeBytes", report.notKept.tooLargeBytes},
                             {"ignoredFolders", report.notKept.ignoredFolders},
                             {"ignoredFiles", report.notKept.ignoredFiles},
                             {"failed", nlohmann::json::array()},
                             {"agents", nlohmann::json::array()},
                             {"failures", nlohmann::json::array()},
                             {"troubles", nlohmann::json::array()}};
    if (report.project) object["root"] = repairedUtf8(report.project->root);
    if (report.newest) object["newest"] = toJson(*report.newest);
    for (const NotKept::Failed& each : report.notKept.failed)
        object["failed"].push_back({{"path", repairedUtf8(each.path)}, {"reason", repairedUtf8(each.reason)}});
    const auto event = [](const LoggedEvent& of) {
        return nlohmann::json{{"time", isoText(of.time)},
                              {"agent", repairedUtf8(of.agent)},
                              {"event", repairedUtf8(of.event)},
                              {"message", repairedUtf8(of.message)}};
    };
    for (const StatusReport::AgentState& each : report.agents) {
        nlohmann::json agent = {{"agent", each.agent}, {"state", each.state}};
        if (each.hint) agent["hint"] = repairedUtf8(*each.hint);
        if (each.latest) agent["latest"] = event(*each.latest);
        object["agents"].push_back(agent);
    }
    for (const LoggedEvent& failure : report.failures) object["failures"].push_back(event(failure));
    for (const StatusReport::Trouble& trouble : report.troubles)
        object["troubles"].push_back({{"what", repairedUtf8(trouble.what)}, {"mend", repairedUtf8(trouble.mend)}});
    return object;
}

} // namespace tidewrack
