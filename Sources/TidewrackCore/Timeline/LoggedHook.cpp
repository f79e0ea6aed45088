#include "Timeline/LoggedHook.hpp"

#include "Store/History.hpp"
#include "Support/Text.hpp"

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
    const auto seq = parseSeq(number);
    if (!seq) return;
    constexpr std::string_view late = " skipped";
    if (root.ends_with(late)) {
        const std::string_view rest = root.substr(0, root.size() - late.size());
        const std::size_t digits = rest.find_last_not_of("0123456789") + 1;
        if (rest.substr(0, digits).ends_with(", ")) root = rest.substr(0, digits - 2);
    }
    hook.snapshots.emplace_back(*seq, root);
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

std::optional<LoggedHook> readCommand(const LoggedLine& line) {
    LoggedHook hook;
    std::string_view rest = line.message;
    hook.time = line.time;
    hook.agent = line.agent;
    hook.verdict = nextWord(rest);
    if (hook.verdict != "allow" && hook.verdict != "ask" && hook.verdict != "deny") return std::nullopt;
    const std::size_t notes = rest.rfind(arrow);
    hook.command = rest.substr(0, notes);
    if (notes != rest.npos) readNotes(rest.substr(notes + arrow.size()), hook);
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

std::vector<LoggedLine> loggedLines(std::string_view log) {
    std::vector<LoggedLine> lines;
    for (std::size_t end = log.find('\n'); end != log.npos; end = log.find('\n')) {
        std::string_view rest = log.substr(0, end);
        log.remove_prefix(end + 1);
        const auto time = parseIsoDate(nextWord(rest));
        if (!time) continue;
        LoggedLine& line = lines.emplace_back();
        line.time = *time;
        line.agent = nextWord(rest);
        line.event = nextWord(rest);
        (void)nextWord(rest); // how long it took
        line.message = rest;
    }
    return lines;
}

std::vector<LoggedHook> loggedHooks(std::string_view log) {
    std::vector<LoggedHook> hooks;
    for (const LoggedLine& line : loggedLines(log))
        if (auto hook = readCommand(line)) hooks.push_back(std::move(*hook));
    return hooks;
}

} // namespace tidewrack
