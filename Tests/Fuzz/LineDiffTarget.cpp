// Differences and patches: one byte for the context, the old text, byte 0xFF, the new text.

#include "Fuzz/Fuzz.hpp"
#include "Fuzz/Scratch.hpp"

#include "Changes/LineDiff.hpp"
#include "Changes/Patch.hpp"

#include <algorithm>
#include <charconv>
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

// "@@ -3,2 +4 @@" with the old text's first line and the number of its lines.
struct Position {
    std::size_t first = 0;
    std::size_t count = 1;
};

Position oldPosition(std::string_view header) {
    Position position;
    const char* end = header.data() + header.size();
    const auto number = std::from_chars(header.data() + 4, end, position.first);
    require(number.ec == std::errc(), "a hunk says where it begins");
    if (*number.ptr == ',') std::from_chars(number.ptr + 1, end, position.count);
    return position;
}

// What a patch program makes of `before`.
std::string patched(std::string_view before, std::string_view patch) {
    std::string result;
    std::string_view rest = before;
    const auto copyLine = [&] {
        const std::size_t length = std::min(rest.find('\n'), rest.size() - 1) + 1;
        result += rest.substr(0, length);
        rest.remove_prefix(length);
    };
    std::size_t line = 1; // of `before`, at which `rest` begins
    bool inHunk = false;
    char last = ' ';
    while (!patch.empty()) {
        const std::string_view text = fuzz::takeUpTo('\n', patch);
        if (text.starts_with("@@ ")) {
            const Position position = oldPosition(text);
            for (const std::size_t first = position.first + (position.count == 0 ? 1 : 0); line < first; ++line) {
                require(!rest.empty(), "a hunk begins within the text");
                copyLine();
            }
            inHunk = true;
        } else if (inHunk && text == "\\ No newline at end of file") {
            if (last != '-') result.pop_back();
            if (last != '+') require(rest.empty(), "the last line is the last");
        } else if (inHunk) {
            last = text.empty() ? '?' : text[0];
            require(last == ' ' || last == '+' || last == '-', "a line says what it is");
            if (last != '-') (result += text.substr(1)) += '\n';
            if (last == '+') continue;
            require(!rest.empty() && fuzz::takeUpTo('\n', rest) == text.substr(1), "the old lines are as they were");
            ++line;
        }
    }
    return result += rest;
}

void checkPatch(const std::string& path, std::string_view before, std::string_view after) {
    const std::string oldPath = fuzz::scratch().path() + "/old";
    const std::string newPath = fuzz::scratch().path() + "/new";
    fuzz::scratch().write(oldPath, before);
    fuzz::scratch().write(newPath, after);
    const PatchFile change{path, PatchSide{PatchSide::Kind::file, 0644, oldPath, ""},
                           PatchSide{PatchSide::Kind::file, 0644, newPath, ""}};
    const std::string patch = patchText(change, Colours::off);
    if (!LineDiff::text(before) || !LineDiff::text(after))
        require(before == after ? patch.empty() : patch.find("\nBinary files ") != patch.npos,
                "binary files are named");
    else
        require(patched(before, patch) == after, "the patch makes the new text of the old one");
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
    checkPatch(std::string(after.substr(0, 20)), before, after);
}
