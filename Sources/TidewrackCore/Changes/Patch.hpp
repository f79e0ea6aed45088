#pragma once
// One file's change as a section of a patch in the unified form that `git apply` and `patch -p1` read.

#include <optional>
#include <string>

namespace tidewrack {

// What was at a path, before or after the change.
struct PatchSide {
    enum class Kind { file, link };
    Kind kind = Kind::file;
    unsigned mode = 0644; // permission bits; not looked at for a link
    // For a file the path of a file that holds its content, or none when the content was not kept; for a link
    // its destination.
    std::optional<std::string> content;
    std::string notKeptReason; // without a content: why, as the end of a sentence
};

struct PatchFile {
    std::string path; // relative, as the patch names it
    // A file that was added has no `before`, one that was deleted no `after`. A folder counts as nothing.
    std::optional<PatchSide> before;
    std::optional<PatchSide> after;
};

enum class Colours { off, on };
enum class Controls { kept, escaped };

// The section for one file; sections are simply written one after the other. Empty when both sides are the same.
//
// What a patch cannot carry is said in one line, below a line "diff a/<path> b/<path>" that patch programs pass
// over, so that everything else still applies: "Binary files a/<path> and b/<path> differ", "File <path> is too
// large to compare", a content that was not kept or cannot be read, and permissions other than those to execute.
// A changed link, and a link that became a file or the reverse, is deleted and added.
//
// Adding or removing a final line feed is a change of the last line. A path with control characters, quotes or
// backslashes, or that is not UTF-8, is written as a C string. `Colours::on` adds terminal colours: headers bold,
// hunk positions cyan, removed lines red, added lines green. `Controls::escaped` writes out what a terminal would obey,
// tabs apart: such a patch is for looking at.
[[nodiscard]] std::string patchText(const PatchFile& file, Colours colours, Controls controls = Controls::kept);

} // namespace tidewrack
