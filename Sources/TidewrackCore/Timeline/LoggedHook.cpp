#include "Timeline/LoggedHook.hpp"

#include "Support/Text.hpp"

#include <array>
#include <charconv>

namespace tidewrack {

namespace {

constexpr std::string_view arrow = " → ";
constexpr std::string_view betweenNotes = "; ";

void replaceAll(std::string& text, std::string_view what, std::string_view by) {
    for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
}

// The text up to the next space, which is taken off `rest` as well.
std::string_view nextWord(std::string_view& rest) {
    const std::size_t end = rest.find(' ');
    const std::string_view word = rest.substr(0, end);
    rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    return word;
}

// "#7 /home/ann/app", maybe with ", 3 skipped" behind it.
void readSnapshot(std::string_view note, LoggedHook& hook) {
    std::string_view root = note;
    const std::string_view number = nextWord(root).substr(1);
    std::int64_t seq = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), seq);
    if (error != std::errc() || end != number.data() + number.size()) return;
    constexpr std::string_view late = " skipped";
    if (root.ends_with(late)) {
        const std::string_view rest = root.substr(0, root.size() - late.size());
        const std::size_t digits = rest.find_last_not_of("0123456789") + 1;
        if (rest.substr(0, digits).ends_with(", ")) root = rest.substr(0, digits - 2);
    }
    hook.snapshots.emplace_back(seq, root);
}

void readNotes(std::string_view notes, LoggedHook& hook) {
    constexpr std::string_view vault = "vault ";
    while (!notes.empty()) {
        const std::size_t end = notes.find(betweenNotes);
        const std::string_view note = notes.substr(0, end);
        notes.remove_prefix(end == notes.npos ? notes.size() : end + betweenNotes.size());
        if (note.starts_with('#')) readSnapshot(note, hook);
        if (note.starts_with(vault)) hook.vault.emplace_back(note.substr(vault.size(), note.find(':') - vault.size()));
    }
}

std::optional<LoggedHook> readLine(std::string_view line) {
    LoggedHook hook;
    const auto time = parseIsoDate(nextWord(line));
    if (!time) return std::nullopt;
    hook.time = *time;
    hook.agent = nextWord(line);
    (void)nextWord(line); // the event
    (void)nextWord(line); // how long it took
    hook.verdict = nextWord(line);
    if (hook.verdict != "allow" && hook.verdict != "ask" && hook.verdict != "deny") return std::nullopt;
    const std::size_t notes = line.rfind(arrow);
    hook.command = line.substr(0, notes);
    if (notes != line.npos) readNotes(line.substr(notes + arrow.size()), hook);
    return hook;
}

} // namespace

std::string loggedCommand(std::string_view command) {
    std::string text = escapedControls(command);
    replaceAll(text, arrow, "\\x20→ ");
    return text;
}

std::string loggedText(std::string_view text) {
    std::string logged = loggedCommand(text);
    replaceAll(logged, betweenNotes, ";\\x20");
    return logged;
}

std::vector<LoggedHook> loggedHooks(std::string_view log) {
    std::vector<LoggedHook> hooks;
    while (!log.empty()) {
        const std::size_t end = log.find('\n');
        if (end == log.npos) break; // cut off
        if (auto hook = readLine(log.substr(0, end))) hooks.push_back(std::move(*hook));
        log.remove_prefix(end + 1);
    }
    return hooks;
}

} // namespace tidewrack
