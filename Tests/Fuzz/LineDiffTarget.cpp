// Differences: one byte for the context, the old text, byte 0xFF, the new text.

#include "Fuzz/Fuzz.hpp"

#include "Changes/LineDiff.hpp"

#include <algorithm>
#include <optional>
#include <string>

using namespace tidewrack;
using fuzz::require;

namespace {

using Lines = std::vector<std::string_view>;

// Checks one line of a hunk against the text it comes from and steps over it.
void checkSide(const Lines& lines, const std::string& text, std::optional<std::size_t> number, std::size_t& at) {
    if (!number) return;
    require(*number == at + 1 && at < lines.size() && lines[at] == text, "every line is where its number says");
    ++at;
}

void checkHunk(const LineDiff::Hunk& hunk, std::size_t context) {
    using Kind = LineDiff::Line::Kind;
    const auto changed = [](const LineDiff::Line& line) { return line.kind != Kind::context; };
    const auto& lines = hunk.lines;
    const auto first = std::find_if(lines.begin(), lines.end(), changed);
    const auto last = std::find_if(lines.rbegin(), lines.rend(), changed);
    require(first != lines.end(), "every hunk has a change");
    require(static_cast<std::size_t>(first - lines.begin()) <= context &&
                static_cast<std::size_t>(last - lines.rbegin()) <= context,
            "a hunk has no more context than asked for");
}

// The hunks, with what lies between them taken from the old text, make up the new one.
void checkHunks(const Lines& before, const Lines& after, const LineDiff::Result& result, std::size_t context) {
    std::size_t oldAt = 0;
    std::size_t newAt = 0;
    std::size_t added = 0;
    std::size_t removed = 0;
    const auto same = [&](std::size_t until) {
        for (; oldAt < until; ++oldAt, ++newAt)
            require(newAt < after.size() && before[oldAt] == after[newAt], "between the hunks nothing changed");
    };
    for (const LineDiff::Hunk& hunk : result.hunks) {
        checkHunk(hunk, context);
        const LineDiff::Line& first = hunk.lines.front();
        same(first.oldNumber ? *first.oldNumber - 1 : oldAt + (first.newNumber.value() - 1 - newAt));
        for (const LineDiff::Line& line : hunk.lines) {
            checkSide(before, line.text, line.oldNumber, oldAt);
            checkSide(after, line.text, line.newNumber, newAt);
            added += line.oldNumber ? 0U : 1U;
            removed += line.newNumber ? 0U : 1U;
        }
    }
    same(before.size());
    require(newAt == after.size(), "behind the hunks nothing is missing");
    require(added == result.added && removed == result.removed, "the counts are those of the hunks");
}

} // namespace

FUZZ_TARGET(linediff) {
    if (input.empty()) return;
    const std::size_t context = static_cast<unsigned char>(input[0]) % 8;
    input.remove_prefix(1);
    const std::string_view before = fuzz::takeUpTo('\xFF', input);
    const std::string_view after = input;
    const LineDiff::Result result = LineDiff::diff(before, after, context);
    require((result.kind == LineDiff::Result::Kind::unchanged) == (before == after), "what differs is told");
    if (before == after) return;
    checkHunks(LineDiff::lines(before), LineDiff::lines(after), result, context);
}
