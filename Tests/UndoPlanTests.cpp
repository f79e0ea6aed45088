#include "Timeline/UndoPlan.hpp"

#include <gtest/gtest.h>

#include <sstream>

using namespace tidewrack;

namespace {

// "path=text" words; "path/" is a folder, "path=>x" a link, "path=!" a file that was not kept, "path=+text" one that
// anybody may execute. "|" ends a line of a text, "'" at its end stands for a copy kept elsewhere.
Manifest listing(const std::string& words) {
    ManifestBuilder builder;
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        Entry entry;
        entry.mode = 0644;
        const auto equals = word.find('=');
        std::string blob = equals == word.npos ? "" : word.substr(equals + 1);
        if (equals == word.npos) {
            entry.kind = EntryKind::dir;
            word.pop_back();
        } else if (blob.starts_with('>')) {
            entry.kind = EntryKind::link;
        } else if (blob.starts_with('+')) {
            entry.mode = 0755;
            blob.erase(0, 1);
        } else if (blob == "!") {
            blob = "big:9:9";
        }
        entry.size = static_cast<std::int64_t>(blob.size()) - (blob.ends_with('\'') ? 1 : 0);
        entry.blob = blob;
        builder.add(word.substr(0, equals), entry);
    }
    return builder.finish();
}

std::string textOf(const Entry& entry) {
    std::string text(entry.blob.substr(0, entry.blob.find('\'')));
    for (char& letter : text)
        if (letter == '|') letter = '\n';
    return text;
}

std::string planned(const std::vector<std::string>& words, const std::string& now, UndoOptions options = {},
                    const std::string& company = "") {
    const UndoContents contents{[](const Entry& a, const Entry& b) { return textOf(a) == textOf(b); },
                                [](const Entry& entry) {
                                    return LineDiff::Content{textOf(entry), false, 0};
                                }};
    std::vector<UndoStep> steps;
    for (std::size_t at = 0; at < words.size(); at += 2)
        steps.push_back({listing(words[at]), listing(words[at + 1]), at == 0 ? company : ""});
    const Manifest listed = listing(now);
    static const char* const kinds[] = {"+", "-", "~", "merge ", "! ", "keep "};
    static const char* const reasons[] = {"",         " clash",     " changed", " too large",
                                          " deleted", " made anew", " company", " not kept"};
    std::string text;
    for (const UndoAction& action : planUndo(steps, listed, options, contents)) {
        text += (text.empty() ? "" : ", ") + std::string(kinds[static_cast<int>(action.kind)]) + action.path;
        if (action.folder) text += "/";
        text += reasons[static_cast<int>(action.reason)];
        if (action.wanted != nullptr && action.wanted->kind != EntryKind::dir)
            text += "=" + std::string(action.wanted->blob);
        if (action.kind == UndoAction::Kind::merge) {
            std::string merged = action.merged;
            for (char& letter : merged)
                if (letter == '\n') letter = '|';
            text += "=" + std::string(action.mode == 0755 ? "+" : "") + merged;
        }
    }
    return text;
}

} // namespace

TEST(UndoPlan, ofOneTurnWithLaterWork) {
    struct Row {
        const char* before;
        const char* after;
        const char* now;
        const char* wanted;
    };
    const Row rows[] = {
        {"a=1", "a=2", "a=2", "~a=1"},
        {"a=1", "", "", "+a=1"},
        {"", "a=1", "a=1", "-a"},
        {"d/ d/a=1", "", "", "+d/, +d/a=1"},
        {"", "d/ d/a=1", "d/ d/a=1", "-d/, -d/a"},
        {"", "d/ d/a=1", "d/ d/a=1 d/b=2", "-d/a"},
        {"", "d/ d/a=1", "d/ d/a=1 d/e/", "-d/a"},
        {"", "d/ d/e/ d/e/a=1", "d/ d/e/ d/e/a=1", "-d/, -d/e/, -d/e/a"},
        {"a=1", "a=1'", "a=2", ""},     // touched
        {"a=1", "a=2", "a=2'", "~a=1"}, // touched since
        {"a=1", "a=2", "a=1'", ""},     // taken back by hand
        {"a=1", "", "a=1", ""},
        {"", "a=1", "", ""},
        {"a=1", "a=1", "a=2", ""}, // somebody else's
        {"a=1|2|3|", "a=x|2|3|", "a=x|2|y|", "merge a=1|2|y|"},
        {"a=1|2|3|", "a=x|2|3|", "a=+x|2|y|", "merge a=+1|2|y|"},
        {"a=+1|2|3|", "a=x|2|3|", "a=x|2|y|", "merge a=+1|2|y|"},
        {"a=1|2|", "a=1|2|3|", "a=1|2|4|", "! a clash"},
        {"a=1", "a=2", "a=3", "! a clash"},
        {"a=1", "a=2", "", "! a deleted"},
        {"a=1", "", "a=3", "! a made anew"},
        {"", "a=1", "a=3", "! a changed"},
        {"a=>1", "a=>2", "a=>3", "! a changed"},
        {"a=>1", "a=>2", "a=>2", "~a=>1"},
        {"a=1", "a=>2", "a=>2", "~a=1"},
        {"a=!", "a=2", "a=2", "! a not kept"},
        {"a=!", "a=2", "a=3", "! a not kept"},
        {"a=1", "a=!", "a=!", "~a=1"},
        {"a=1", "a=!", "a=2", "! a too large"},
        {"", "a=!", "a=!", "-a"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(planned({row.before, row.after}, row.now), row.wanted)
            << row.before << " -> " << row.after << " -> " << row.now;
}

TEST(UndoPlan, ofSeveralStepsAndWithOptions) {
    const auto later = [](UndoOptions::Later each) { return UndoOptions{each, nullptr}; };
    // Newest first: the newer step's change, then the older's; in between somebody added the third line.
    EXPECT_EQ(planned({"a=x|2|3|", "a=x|y|3|", "a=1|2|", "a=x|2|"}, "a=x|y|3|"), "merge a=1|2|3|");
    EXPECT_EQ(planned({"a=2", "a=3", "a=1", "a=2"}, "a=3"), "~a=1");
    EXPECT_EQ(planned({"a=2", "a=3", "", "a=2"}, "a=3"), "-a");
    EXPECT_EQ(planned({"a=1", "a=2"}, "a=3", later(UndoOptions::Later::overwritten)), "~a=1");
    EXPECT_EQ(planned({"a=1", "a=2"}, "", later(UndoOptions::Later::overwritten)), "+a=1");
    EXPECT_EQ(planned({"", "a=2"}, "a=3", later(UndoOptions::Later::overwritten)), "-a");
    EXPECT_EQ(planned({"a=1|2|3| b=1", "a=x|2|3| b=2"}, "a=x|2|y| b=2", later(UndoOptions::Later::kept)),
              "keep a changed, ~b=1");
    EXPECT_EQ(planned({"a=1 b=1", "a=2 b=2"}, "a=2 b=2", {{}, [](std::string_view path) { return path == "b"; }}),
              "~b=1");
    EXPECT_EQ(planned({"a=1", "a=2"}, "a=2", {}, "codex"), "! a company");
    EXPECT_EQ(planned({"a=1", "a=2"}, "a=2", later(UndoOptions::Later::overwritten), "codex"), "~a=1");
}
