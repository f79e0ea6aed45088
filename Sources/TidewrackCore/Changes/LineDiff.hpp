#pragma once
// How one file's text changed: the lines removed and added, in hunks with some unchanged lines around them.

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

struct LineDiff {
    struct Line {
        enum class Kind { context, added, removed };
        Kind kind = Kind::context;
        std::string text;                     // without its line end, unless diffLines was given it
        std::optional<std::size_t> oldNumber; // from 1; none for an added line
        std::optional<std::size_t> newNumber; // from 1; none for a removed line
        bool operator==(const Line&) const = default;
    };

    // In a replaced stretch the removed lines come before the added ones.
    struct Hunk {
        std::vector<Line> lines;
        bool operator==(const Hunk&) const = default;
    };

    struct Result {
        enum class Kind {
            text,      // a line diff; without hunks when only the final line feed differs
            binary,    // one side is not text
            tooLarge,  // one side is over the size limit
            unchanged, // both sides are the same
        };
        Kind kind = Kind::unchanged;
        // For Kind::text only:
        std::vector<Hunk> hunks;
        std::size_t added = 0;   // lines, over all hunks
        std::size_t removed = 0; // lines, over all hunks
        bool operator==(const Result&) const = default;
    };

    static constexpr std::size_t sizeLimit = 524288; // bytes per side
    static constexpr std::size_t usualContext = 3;   // lines

    // What a file holds, as far as it may be compared.
    struct Content {
        std::string bytes;     // empty unless error is 0 and the file is within the limit
        bool tooLarge = false; // over sizeLimit
        int error = 0;         // an errno when the file could not be read
    };

    // Reads a regular file, or finds out that it is too large, reading no more than sizeLimit + 1 bytes.
    // Follows links; does not wait for pipes and devices, which count as unreadable (EINVAL).
    [[nodiscard]] static Content read(const std::string& path);

    // Compares two files, with the usual context. A side without a path or that cannot be read is empty.
    [[nodiscard]] static Result compare(const std::optional<std::string>& oldPath,
                                        const std::optional<std::string>& newPath);

    // Compares two texts; never binary or tooLarge. Changes with at most 2 * `context` lines between them
    // share a hunk.
    [[nodiscard]] static Result diff(std::string_view oldText, std::string_view newText, std::size_t context);

    // The same for lines that the caller has split, whole or without their ends. Always Kind::text.
    [[nodiscard]] static Result diffLines(std::span<const std::string_view> oldLines,
                                          std::span<const std::string_view> newLines, std::size_t context);

    // The hunks of a patch. Lines are whole, so that a last one without a line feed counts.
    [[nodiscard]] static std::vector<Hunk> patchHunks(std::string_view oldText, std::string_view newText);

    // Tells a hunk of a patch from another one of the same number: what it does to the old text, and where.
    [[nodiscard]] static std::string digest(const Hunk& hunk);

    // Some hunks of a patch, by number from 1, each with its digest or with nothing, where the number alone is known.
    using ChosenHunks = std::map<std::size_t, std::string>;

    // The first that is not there, or is another one; null where all are those that were chosen.
    [[nodiscard]] static const ChosenHunks::value_type* firstOther(const std::vector<Hunk>& hunks,
                                                                   const ChosenHunks& chosen);

    // `newText` with some of the hunks taken back that lead to it from `oldText`. None where one of them is not there,
    // or is another one.
    [[nodiscard]] static std::optional<std::string> withoutHunks(std::string_view oldText, std::string_view newText,
                                                                 const ChosenHunks& chosen);

    // Splits at line feeds, which belong to no line; a final one makes no extra line. A carriage return stays
    // with its line. The views point into `text`.
    [[nodiscard]] static std::vector<std::string_view> lines(std::string_view text);

    // The same with their line feeds, so that a last line without one differs from the same line with one.
    [[nodiscard]] static std::vector<std::string_view> wholeLines(std::string_view text);

    // The text that `bytes` are, or none for binary: a zero among the first 8,000 bytes, or not UTF-8.
    [[nodiscard]] static std::optional<std::string_view> text(std::string_view bytes);
};

} // namespace tidewrack
