#include "Timeline/LoggedHook.hpp"

#include <array>
#include <charconv>

namespace tidewrack {

namespace {

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
    if (root.ends_with(" skipped")) root = root.substr(0, root.rfind(", "));
    hook.snapshots.emplace_back(seq, root);
}

void readNotes(std::string_view notes, LoggedHook& hook) {
    constexpr std::string_view vault = "vault ";
    while (!notes.empty()) {
        const std::size_t end = notes.find("; ");
        const std::string_view note = notes.substr(0, end);
        notes.remove_prefix(end == notes.npos ? notes.size() : end + 2);
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
    constexpr std::string_view arrow = " → ";
    const std::size_t notes = line.rfind(arrow);
    hook.command = line.substr(0, notes);
    if (notes != line.npos) readNotes(line.substr(notes + arrow.size()), hook);
    return hook;
}

} // namespace

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
