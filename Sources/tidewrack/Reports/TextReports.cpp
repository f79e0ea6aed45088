#include "Reports/TextReports.hpp"

#include "Reports/OutcomeTexts.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace tidewrack {

namespace {

constexpr std::size_t longestLabel = 60;
constexpr std::size_t longestTitle = 60;
constexpr std::string_view green = "\x1b[32m";
constexpr std::string_view yellow = "\x1b[33m";
constexpr std::string_view red = "\x1b[31m";
constexpr std::string_view plain = "\x1b[m";

std::string coloured(const std::string& row, std::string_view tint, const Look& look) {
    return look.colour ? std::string(tint) + row + std::string(plain) : row;
}

std::string shownLabel(const std::string& label) {
    if (characterCount(label) <= longestLabel) return label;
    return std::string(firstCharacters(label, longestLabel - 3)) + "...";
}

// Text without line ends, also where a pipe gets it.
std::string rowText(const std::string& text, const Look& look) {
    if (look.terminal) return look.shown(text);
    std::string row;
    for (const char c : text) {
        if (c == '\n')
            row += "\\n";
        else if (c == '\r')
            row += "\\r";
        else
            row += c;
    }
    return row;
}

} // namespace

std::string ago(Date date, Date now) {
    const auto seconds = (now - date).count();
    if (seconds < 60) return std::to_string(seconds) + "s ago";
    if (seconds < 3600) return std::to_string(seconds / 60) + "m ago";
    if (seconds < 86400) return std::to_string(seconds / 3600) + "h ago";
    return std::to_string(seconds / 86400) + "d ago";
}

std::string countsText(const Changes::Counts& counts) {
    if (counts.sum() == 0) return "no changes";
    return "+" + std::to_string(counts.added) + " ~" + std::to_string(counts.modified) + " -" +
           std::to_string(counts.deleted);
}

std::string shortTitle(const std::string& title) {
    std::string repaired = repairedUtf8(title);
    if (characterCount(repaired) <= longestTitle) return repaired;
    return std::string(firstCharacters(repaired, longestTitle - 1)) + "…";
}

std::string titleText(const std::string& title, const Look& look) {
    return title.empty() ? "(no prompt)" : "\"" + look.shown(shortTitle(title)) + "\"";
}

std::string filesText(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " file" : " files");
}

std::string changesText(const Changes& changes, const Look& look) {
    if (changes.isEmpty()) return "No changes.\n";
    std::string text;
    const auto add = [&](const std::vector<std::string>& paths, std::string_view mark, std::string_view tint) {
        for (const std::string& path : paths) {
            std::string row(mark);
            row += look.shown(path);
            if (changes.folders.contains(path)) row += '/';
            text += coloured(row, tint, look) + '\n';
        }
    };
    add(changes.added, "+ ", green);
    add(changes.modified, "~ ", yellow);
    add(changes.deleted, "- ", red);
    return text;
}

std::string restoreText(const RestoreResult& result, const Look& look) {
    const std::string text = "Restored " + filesText(filesAmong(result.outcomes, PathOutcome::Action::restored)) +
                             ", removed " + filesText(filesAmong(result.outcomes, PathOutcome::Action::removed)) +
                             ". Undo this with: tidewrack restore " + std::to_string(result.safety.seq) + "\n";
    return text + warningsText(result, look);
}

std::string interruptedRow(const PathOutcome& outcome, const Look& look) {
    const std::string path = "! " + look.shown(outcome.path);
    if (outcome.action == PathOutcome::Action::toGiveBack)
        return path + "  a restore that was cut short moved it aside; it would be put back";
    return path + "  what a restore that was cut short left of it would become " + look.shown(outcome.found);
}

std::string planText(const RestoreResult& result, const Look& look) {
    using Action = PathOutcome::Action;
    std::vector<std::pair<std::string, std::string>> rows; // by path
    for (const PathOutcome& outcome : result.outcomes) {
        const std::string path = look.shown(outcome.path) + (outcome.kind == EntryKind::dir ? "/" : "");
        const bool overwrites = result.overwritten.contains(outcome.path);
        std::string row;
        if (outcome.action == Action::restored)
            row = coloured((overwrites ? "~ " : "+ ") + path, overwrites ? yellow : green, look);
        else if (outcome.action == Action::removed)
            row = coloured("- " + path, red, look);
        else if (outcome.action == Action::toRecover || outcome.action == Action::toGiveBack)
            row = interruptedRow(outcome, look);
        else
            row = "! " + look.shown(outcome.path) + "  " + look.shown(reasonText(outcome.obstacle, result.target));
        rows.emplace_back(outcome.path, row + "\n");
    }
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string text;
    for (const auto& [path, row] : rows) text += row;
    return text + "Would restore " + filesText(filesAmong(result.outcomes, Action::restored)) + ", remove " +
           filesText(filesAmong(result.outcomes, Action::removed)) + ". Nothing was changed.\n";
}

std::string warningsText(const RestoreResult& result, const Look& look) {
    std::string text;
    for (const std::string& warning : warningTexts(result)) text += "warning: " + look.shown(warning) + "\n";
    return text;
}

std::string logLine(const SnapshotMeta& meta, const std::string& when, const std::string& after, const Look& look) {
    std::string line = "#" + std::to_string(meta.seq);
    if (meta.pinned) line += " \U0001F4CC";
    line += "  " + when + "  ";
    if (meta.agent) line += rowText(*meta.agent, look) + " ";
    line += rowText(meta.kind, look);
    if (meta.label) line += "  \"" + rowText(shownLabel(*meta.label), look) + "\"";
    return line + "  →  " + after;
}

std::string logLine(const UnreadRecord& record, const Look& look) {
    return "#" + std::to_string(record.seq) + "  unreadable  " + rowText(record.reason, look);
}

} // namespace tidewrack
