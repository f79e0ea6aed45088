#include "Changes/Patch.hpp"

#include "Changes/LineDiff.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace tidewrack {

namespace {

enum class Style { plain, header, position, removed, added };

std::string_view escapeFor(Style style) {
    switch (style) {
    case Style::plain: return "";
    case Style::header: return "\x1b[1m";
    case Style::position: return "\x1b[36m";
    case Style::removed: return "\x1b[31m";
    case Style::added: return "\x1b[32m";
    }
    return "";
}

class PatchWriter {
  public:
    PatchWriter(Colours colours, Controls controls) : colours_(colours), controls_(controls) {}

    void line(Style style, std::string_view text) {
        const bool coloured = colours_ == Colours::on && style != Style::plain;
        if (coloured) text_ += escapeFor(style);
        if (controls_ == Controls::escaped)
            text_ += escapedControls(text, Tabs::kept);
        else
            text_ += text;
        if (coloured) text_ += "\x1b[m";
        text_ += '\n';
    }

    std::string take() { return std::move(text_); }

  private:
    Colours colours_;
    Controls controls_;
    std::string text_;
};

bool needsQuotes(unsigned char byte, bool utf8) {
    return byte < 0x20 || byte == 0x7f || byte == '"' || byte == '\\' || (byte >= 0x80 && !utf8);
}

void appendEscaped(std::string& text, unsigned char byte) {
    static constexpr std::string_view named = "\a\b\t\n\v\f\r\"\\";
    static constexpr std::string_view letters = "abtnvfr\"\\";
    text += '\\';
    if (const std::size_t at = named.find(static_cast<char>(byte)); at != std::string_view::npos) {
        text += letters[at];
        return;
    }
    for (const int shift : {6, 3, 0}) text += static_cast<char>('0' + ((byte >> shift) & 7));
}

// `name` as a C string.
std::string inQuotes(const std::string& name) {
    const bool utf8 = isUtf8(name);
    std::string text = "\"";
    for (const char byte : name) {
        if (needsQuotes(static_cast<unsigned char>(byte), utf8))
            appendEscaped(text, static_cast<unsigned char>(byte));
        else
            text += byte;
    }
    return text + '"';
}

// `name`, or a C string where a plain name would be misread.
std::string quoted(const std::string& name) {
    const bool utf8 = isUtf8(name);
    const auto special = [utf8](char byte) { return needsQuotes(static_cast<unsigned char>(byte), utf8); };
    // `patch` cuts a plain name's last spaces off.
    const bool plain = std::none_of(name.begin(), name.end(), special) && !name.ends_with(' ');
    return plain ? name : inQuotes(name);
}

// The same for the line "diff --git", where `patch` ends a plain name at its first space.
std::string quotedWithSpaces(const std::string& name) {
    return name.find(' ') == std::string::npos ? quoted(name) : inQuotes(name);
}

std::string octal(unsigned mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%06o", mode);
    return text.data();
}

// Patches know two kinds of files and links.
std::string patchMode(const PatchSide& side) {
    if (side.kind == PatchSide::Kind::link) return "120000";
    return (side.mode & 0100) != 0 ? "100755" : "100644";
}

// The bytes of one side, or why a patch cannot show them.
struct Body {
    enum class Kind { text, binary, tooLarge, missing };
    Kind kind = Kind::text;
    std::string bytes;
    std::string reason; // for Kind::missing, a sentence's end
};

Body bodyOf(const std::optional<PatchSide>& side) {
    if (!side) return {};
    if (!side->content) return {Body::Kind::missing, "", "was not kept: " + side->notKeptReason};
    LineDiff::Content content;
    if (side->kind == PatchSide::Kind::link)
        content.bytes = *side->content;
    else
        content = LineDiff::read(*side->content);
    if (content.error != 0)
        return {Body::Kind::missing, "", std::string("couldn't be read: ") + std::strerror(content.error)};
    if (content.tooLarge) return {Body::Kind::tooLarge, "", ""};
    // A link's destination is always shown: a patch can carry any bytes, and there is nothing else to say it.
    const bool text = side->kind == PatchSide::Kind::link || LineDiff::text(content.bytes);
    return {text ? Body::Kind::text : Body::Kind::binary, std::move(content.bytes), ""};
}

std::string oldName(const PatchFile& file) {
    return quoted("a/" + file.path);
}
std::string newName(const PatchFile& file) {
    return quoted("b/" + file.path);
}

void writeNote(PatchWriter& writer, const PatchFile& file, const std::string& note) {
    writer.line(Style::header, "diff " + oldName(file) + " " + newName(file));
    writer.line(Style::plain, note);
}

// Why the contents cannot be shown, or nothing when they can.
std::string contentNote(const PatchFile& file, const Body& before, const Body& after) {
    const auto either = [&](Body::Kind kind) { return before.kind == kind || after.kind == kind; };
    for (const Body* body : {&before, &after})
        if (body->kind == Body::Kind::missing) return "The content of " + quoted(file.path) + " " + body->reason;
    if (either(Body::Kind::tooLarge)) return "File " + quoted(file.path) + " is too large to compare";
    if (either(Body::Kind::binary))
        return "Binary files " + (file.before ? oldName(file) : "/dev/null") + " and " +
               (file.after ? newName(file) : "/dev/null") + " differ";
    return "";
}

// An empty file is added and deleted without any line; `patch` takes that only from git's name for "no bytes".
constexpr std::string_view emptyAdded = "index 0000000..e69de29";
constexpr std::string_view emptyDeleted = "index e69de29..0000000";

void writeHeader(PatchWriter& writer, const PatchFile& file, const Body& before, const Body& after) {
    writer.line(Style::header,
                "diff --git " + quotedWithSpaces("a/" + file.path) + " " + quotedWithSpaces("b/" + file.path));
    if (!file.before) {
        writer.line(Style::header, "new file mode " + patchMode(*file.after));
        if (after.bytes.empty()) writer.line(Style::header, emptyAdded);
    } else if (!file.after) {
        writer.line(Style::header, "deleted file mode " + patchMode(*file.before));
        if (before.bytes.empty()) writer.line(Style::header, emptyDeleted);
    } else if (patchMode(*file.before) != patchMode(*file.after)) {
        writer.line(Style::header, "old mode " + patchMode(*file.before));
        writer.line(Style::header, "new mode " + patchMode(*file.after));
    }
}

void writeNames(PatchWriter& writer, const PatchFile& file) {
    // Without a tab `patch` would end a name at its first space.
    const auto ended = [](const std::string& name) {
        return name.front() != '"' && name.find(' ') != std::string::npos ? name + '\t' : name;
    };
    writer.line(Style::header, "--- " + (file.before ? ended(oldName(file)) : "/dev/null"));
    writer.line(Style::header, "+++ " + (file.after ? ended(newName(file)) : "/dev/null"));
}

// "12,3", or "12" for one line. No lines at all, with some context asked for, is an empty file: "0,0".
std::string position(std::size_t first, std::size_t count) {
    return std::to_string(first) + (count == 1 ? "" : "," + std::to_string(count));
}

void writeHunk(PatchWriter& writer, const LineDiff::Hunk& hunk) {
    std::size_t oldFirst = 0;
    std::size_t oldCount = 0;
    std::size_t newFirst = 0;
    std::size_t newCount = 0;
    for (const LineDiff::Line& line : hunk.lines) {
        if (line.oldNumber && oldCount++ == 0) oldFirst = *line.oldNumber;
        if (line.newNumber && newCount++ == 0) newFirst = *line.newNumber;
    }
    writer.line(Style::position, "@@ -" + position(oldFirst, oldCount) + " +" + position(newFirst, newCount) + " @@");
    for (const LineDiff::Line& line : hunk.lines) {
        std::string_view text = line.text;
        const bool ended = !text.empty() && text.back() == '\n';
        if (ended) text.remove_suffix(1);
        switch (line.kind) {
        case LineDiff::Line::Kind::context: writer.line(Style::plain, " " + std::string(text)); break;
        case LineDiff::Line::Kind::removed: writer.line(Style::removed, "-" + std::string(text)); break;
        case LineDiff::Line::Kind::added: writer.line(Style::added, "+" + std::string(text)); break;
        }
        if (!ended) writer.line(Style::plain, "\\ No newline at end of file");
    }
}

void writeContents(PatchWriter& writer, const PatchFile& file, const Body& before, const Body& after) {
    const LineDiff::Result result = LineDiff::diffLines(LineDiff::wholeLines(before.bytes),
                                                        LineDiff::wholeLines(after.bytes), LineDiff::usualContext);
    if (result.hunks.empty()) return;
    writeNames(writer, file);
    for (const LineDiff::Hunk& hunk : result.hunks) writeHunk(writer, hunk);
}

bool sameContent(const PatchFile& file, const Body& before, const Body& after) {
    if (!file.before || !file.after) return false;
    if (file.before->content && file.before->content == file.after->content) return true;
    const auto known = [](Body::Kind kind) { return kind == Body::Kind::text || kind == Body::Kind::binary; };
    return known(before.kind) && before.kind == after.kind && before.bytes == after.bytes;
}

// Where a link is involved the path is deleted and added: `patch` refuses to change a link, and nothing turns
// a file into one.
bool isReplaced(const PatchFile& file) {
    if (!file.before || !file.after) return false;
    if (file.before->kind != file.after->kind) return true;
    return file.before->kind == PatchSide::Kind::link && file.before->content != file.after->content;
}

// For two files, one side alone, or a link that stayed the same.
void writeChange(PatchWriter& writer, const PatchFile& file) {
    const Body before = bodyOf(file.before);
    const Body after = bodyOf(file.after);
    const bool both = file.before && file.after;
    const bool same = sameContent(file, before, after);
    const std::string note = same ? "" : contentNote(file, before, after);
    if (!note.empty()) writeNote(writer, file, note);

    const bool modeShown = both && patchMode(*file.before) != patchMode(*file.after);
    if (both && !modeShown && file.before->kind == PatchSide::Kind::file && file.before->mode != file.after->mode)
        writeNote(writer, file,
                  "The mode of " + quoted(file.path) + " changed from " + octal(file.before->mode) + " to " +
                      octal(file.after->mode));
    const bool contentShown = !same && note.empty();
    if (!contentShown && !modeShown) return;
    writeHeader(writer, file, before, after);
    if (contentShown) writeContents(writer, file, before, after);
}

} // namespace

std::string patchText(const PatchFile& file, Colours colours, Controls controls) {
    PatchWriter writer(colours, controls);
    if (!isReplaced(file)) {
        writeChange(writer, file);
        return writer.take();
    }
    // Half of a replacement would not apply: when one side cannot be shown, neither is.
    const std::string note = contentNote(file, bodyOf(file.before), bodyOf(file.after));
    if (!note.empty()) {
        writeNote(writer, file, note);
    } else {
        writeChange(writer, {file.path, file.before, std::nullopt});
        writeChange(writer, {file.path, std::nullopt, file.after});
    }
    return writer.take();
}

} // namespace tidewrack
