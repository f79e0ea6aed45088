#include "Reports/GuardReport.hpp"

#include "Support/Files.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tidewrack {

namespace {

using nlohmann::json;
using shell::Command;
using shell::Substitution;
using shell::Verdict;

const char* name(Verdict::Kind kind) {
    switch (kind) {
    case Verdict::Kind::allow: return "allow";
    case Verdict::Kind::ask: return "ask";
    case Verdict::Kind::deny: return "deny";
    }
    return "";
}

const char* placeholder(Substitution::Kind kind) {
    switch (kind) {
    case Substitution::Kind::output: return "$(...)";
    case Substitution::Kind::number: return "$((...))";
    case Substitution::Kind::file: return "<(...)";
    }
    return "";
}

// A word's text with its marks as a person would write what they stand for.
std::string wordText(const shell::Word& word, const Command& command) {
    std::string text;
    for (std::string_view rest = word.text; !rest.empty();) {
        const auto number = shell::markedSubstitution(rest);
        if (rest.starts_with(shell::protectedDollar)) {
            text += '$';
            rest.remove_prefix(shell::protectedDollar.size());
        } else if (number && *number < command.nested.size()) {
            text += placeholder(command.nested[*number].kind);
            rest.remove_prefix(shell::markLength);
        } else {
            text += rest.front();
            rest.remove_prefix(1);
        }
    }
    const bool plain = !text.empty() && text.find_first_of(" \t\n'\"\\;&|<>") == std::string::npos;
    return plain || !word.quoted ? text : "'" + text + "'";
}

std::string treeText(const shell::Program& program, std::size_t depth, const Look& look) {
    std::string text;
    for (const Command& command : program.commands) {
        text += std::string(2 + 2 * depth, ' ') + look.shown(commandText(command)) +
                (command.opaque ? "  (not all of it can be read)" : "") + (command.toPipe ? " |" : "") + "\n";
        for (const Substitution& nested : command.nested) text += treeText(nested.program, depth + 1, look);
    }
    return text;
}

json treeJson(const shell::Program& program) {
    json list = json::array();
    for (const Command& command : program.commands) {
        json object{{"words", json::array()},
                    {"writes", json::array()},
                    {"nested", json::array()},
                    {"opaque", command.opaque},
                    {"toPipe", command.toPipe}};
        for (const shell::Word& word : command.words) object["words"].push_back(repairedUtf8(wordText(word, command)));
        for (const shell::Word& word : command.redirects)
            object["writes"].push_back(repairedUtf8(wordText(word, command)));
        for (const Substitution& nested : command.nested) object["nested"].push_back(treeJson(nested.program));
        list.push_back(std::move(object));
    }
    return list;
}

json listOf(const std::vector<std::string>& texts) {
    json list = json::array();
    for (const std::string& text : texts) list.push_back(repairedUtf8(text));
    return list;
}

// One line for each path, with the command because of which it is there.
std::string pathsText(const GuardReport& report, const char* title, const std::vector<std::string>& paths,
                      const Look& look, bool looks) {
    if (paths.empty()) return "";
    std::string text = std::string(title) + "\n";
    for (const std::string& path : paths) {
        text += "  " + look.shown(path);
        if (looks && !exists(path)) text += "  (nothing is there now)";
        if (const auto found = report.because.find(path); found != report.because.end())
            text += "  because of: " + look.shown(found->second);
        text += "\n";
    }
    return text;
}

std::string savedText(const GuardReport& report, const Look& look) {
    std::string text;
    const auto add = [&](const char* what, const std::vector<std::string>& of, const char* condition) {
        for (const std::string& each : of) text += "  " + std::string(what) + look.shown(each) + condition + "\n";
    };
    add("a snapshot of ", report.snapshots, "");
    add("a snapshot of ", report.beginning, ", which begins to be tracked");
    add("a snapshot of ", report.ifChanged, ", if something changed since the newest one");
    add("a copy in the vault of ", report.vault, "");
    add("a copy in the vault of ", report.vaultGuess, ", if there is room");
    add("a copy in the vault of git's state of ", report.gitStates, ", if there is room");
    return "Saved first\n" + (text.empty() ? "  nothing\n" : text);
}

json becauseJson(const GuardReport& report, const char* key, const std::vector<std::string>& paths) {
    json list = json::array();
    for (const std::string& path : paths) {
        json object{{key, repairedUtf8(path)}};
        if (const auto found = report.because.find(path); found != report.because.end())
            object["because"] = repairedUtf8(found->second);
        list.push_back(std::move(object));
    }
    return list;
}

} // namespace

std::string commandText(const Command& command) {
    std::string text;
    for (const shell::Word& word : command.words) text += (text.empty() ? "" : " ") + wordText(word, command);
    for (const shell::Word& word : command.redirects)
        text += std::string(text.empty() ? "" : " ") + (word.appends ? ">>" : ">") + wordText(word, command);
    return text;
}

std::string guardText(const GuardReport& report, const Look& look) {
    const shell::Decision& decision = report.decision;
    std::string text = "Commands\n" + treeText(report.program, 0, look);
    if (!report.isCut) text += "  (not all of the line can be read)\n";
    text += std::string("Verdict: ") + name(decision.verdict.kind) + "\n";
    if (!decision.verdict.reason.empty()) text += "  " + look.shown(decision.verdict.reason) + "\n";
    text += pathsText(report, "It may delete or overwrite", decision.targets, look, true);
    text += pathsText(report, "Only running it shows what happens in", decision.opaqueDirs, look, false);
    text += pathsText(report, "By a guess, something may change in", decision.suspected, look, false);
    text += pathsText(report, "By a guess, it may change", decision.mentioned, look, false);
    return text + savedText(report, look);
}

json guardJson(const GuardReport& report) {
    const shell::Decision& decision = report.decision;
    json targets = becauseJson(report, "path", decision.targets);
    for (std::size_t at = 0; at < targets.size(); ++at) {
        const std::string& path = decision.targets[at];
        targets[at]["there"] = exists(path);
        targets[at]["removed"] = std::binary_search(decision.removed.begin(), decision.removed.end(), path);
    }
    return {{"version", 1},
            {"command", repairedUtf8(report.line)},
            {"folder", repairedUtf8(report.folder)},
            {"commands", treeJson(report.program)},
            {"verdict", name(decision.verdict.kind)},
            {"reason", repairedUtf8(decision.verdict.reason)},
            {"targets", targets},
            {"opaque", becauseJson(report, "folder", decision.opaqueDirs)},
            {"suspected", becauseJson(report, "folder", decision.suspected)},
            {"mentioned", becauseJson(report, "path", decision.mentioned)},
            {"saved",
             {{"snapshots", listOf(report.snapshots)},
              {"beginning", listOf(report.beginning)},
              {"ifChanged", listOf(report.ifChanged)},
              {"vault", listOf(report.vault)},
              {"vaultIfRoom", listOf(report.vaultGuess)},
              {"gitStates", listOf(report.gitStates)}}}};
}

} // namespace tidewrack
