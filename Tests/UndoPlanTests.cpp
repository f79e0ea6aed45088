#include "Timeline/UndoPlan.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>

using namespace tidewrack;

namespace {

// "path=text" words; "path/" is a folder, "path//" one that git ignores, "path=>x" a link, "path=!" a file that was not
// kept, "path=-" one that its owner leaves out, "path=+text" one that anybody may execute. "|" ends a line of a text,
// "'" at its end stands for a copy kept elsewhere.
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
            if (word.ends_with('/')) {
                word.pop_back();
                blob = "ign";
            }
        } else if (blob.starts_with('>')) {
            entry.kind = EntryKind::link;
        } else if (blob.starts_with('+')) {
            entry.mode = 0755;
            blob.erase(0, 1);
        } else if (blob == "!") {
            blob = "big:9:9";
        } else if (blob == "-") {
            blob = "ign";
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
                    const UndoStep& noted = {}) {
    // A text with "?" was damaged, and a folder "full" holds what no listing has. What is below an ignored folder in
    // `now` is on the disk alone.
    const Manifest listed = listing(now);
    const auto isWhole = [](const Entry& entry) { return entry.blob.find('?') == entry.blob.npos; };
    const UndoContents contents{
        [](const Entry& a, const Entry& b) { return textOf(a) == textOf(b); },
        [&](const Entry& entry) {
            return LineDiff::Content{textOf(entry), false, isWhole(entry) ? 0 : EIO};
        },
        isWhole,
        [](const std::string& folder) -> std::string { return folder.ends_with("full") ? "node_modules" : ""; },
        [&](const std::string& path) {
            const Entry* there = listed.find(path);
            return there == nullptr ? std::nullopt : std::optional(*there);
        }};
    std::vector<UndoStep> steps;
    for (std::size_t at = 0; at < words.size(); at += 2) {
        steps.push_back(at == 0 ? noted : UndoStep{});
        steps.back().before = listing(words[at]);
        steps.back().after = listing(words[at + 1]);
    }
    static const char* const kinds[] = {"+", "-", "~", "merge ", "! ", "keep "};
    static const char* const reasons[] = {"",           " clash",    " changed",  " too large", " deleted",
                                          " made anew", " doubt",    " not kept", " damaged",   " hidden",
                                          " ignored",   " unlisted", " blocked",  " obstacle"};
    std::string text;
    for (const UndoAction& action : planUndo(steps, listed, options, contents)) {
        text += (text.empty() ? "" : ", ") + std::string(kinds[static_cast<int>(action.kind)]) + action.path;
        if (action.folder) text += "/";
        text += reasons[static_cast<int>(action.reason)];
        if (action.wanted && action.wanted->kind != EntryKind::dir)
            text += (action.wanted->mode == 0755 ? "=+" : "=") + std::string(action.wanted->blob);
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
        {"a=1?", "", "", "! a damaged"},
        {"a=1?|2|3|", "a=x|2|3|", "a=x|2|y|", "! a damaged"},
        // One side changed the mode alone, of what is no text to be merged.
        {"a=!", "a=1", "a=+1", "! a not kept"},
        {"a=1|", "a=2", "a=+2", "~a=+1|"},
        {"a=1?", "a=+1?", "a=+3", "~a=3"},
        // Folders that git ignores, and names that no listing has.
        {"", "t//", "t//", "keep t/ ignored"},
        {"", "d/ d/t//", "d/ d/t//", "keep d/t/ ignored"},
        {"t//", "", "", "! t/ not kept"},
        {"t//", "", "t/ t/a=1", ""},
        {"d/ d/a=1", "d//", "d// d/a=1'", ""}, // ignored from then on: nothing was deleted
        {"d/ d/a=1 d/b=1 d/e/ d/e/f=1", "d//", "d// d/b=2", "! d/ hidden, +d/a=1, +d/e/f=1"},
        {"d/ d/a=1", "d//", "d/ d/a=2", "! d/a doubt"},
        {"d//", "d/ d/a=1", "d/ d/a=1", ""},
        {"d/ d/a=1 d/b=1", "d/ d/a=2", "d// d/a=2", "! d/ hidden, +d/b=1"},
        {"", "d/ d/a=1", "d// d/a=1", "! d/ hidden"},
        {"a=1", "a/ a/b=2", "a//", "! a/ hidden"},
        {"a=1", "a//", "", "! a deleted"},
        {"sub/ sub/a=1", "sub/ sub/a=2", "", "! sub/ hidden"},
        // Files that their owner leaves out.
        {"a=1", "a=-", "a=-", "! a hidden"},
        {"a=1", "a=2", "a=-", "! a hidden"},
        {"", "a=-", "a=-", ""},
        {"a=-", "a=1", "a=1", ""},
        {"a=-", "", "", ""},
        {"", "full/ full/a=1", "full/ full/a=1", "keep full/ unlisted, -full/a"},
        {"", "d/ d/full/ d/full/a=1", "d/ d/full/ d/full/a=1", "keep d/full/ unlisted, -d/full/a"},
        // A folder in a file's place goes only with all that is in it.
        {"a=1", "a/ a/b=2", "a/ a/b=2", "~a=1, -a/b"},
        {"a=1", "a/ a/b=2", "a/ a/b=2 a/c=3", "! a/ changed, ! a/b blocked"},
        {"full=1", "full/ full/b=2", "full/ full/b=2", "! full/ unlisted, ! full/b blocked"},
        // What was moved stays where it is unless it gets back.
        {"d/ d/a=1", "n/ n/a=1", "d=9 n/ n/a=1", "! d made anew, ! d/a blocked, ! n/a blocked"},
        {"d/ d/a=1", "n/ n/a=1", "d=9 n/ n/a=2", "! d made anew, ! d/a blocked, ! n/a changed"},
        {"d/ d/a=1 d/b=1", "d/", "d=>9", "! d/a blocked, ! d/b blocked"},
        {"a=1 b=1", "x/ x/a=1 x/b=1", "a=3 x/ x/a=1 x/b=1", "! a made anew, +b=1, ! x/a blocked, -x/b"},
        {"a=1|", "a=2?", "a=3", "! a changed"}, // the copy to compare with was damaged
    };
    for (const Row& row : rows)
        EXPECT_EQ(planned({row.before, row.after}, row.now, {{}, nullptr, {"sub"}}), row.wanted)
            << row.before << " -> " << row.after << " -> " << row.now;
    UndoOptions owned{};
    owned.leavesOut = [](std::string_view) { return true; };
    EXPECT_EQ(planned({"d/ d/a=1", "d//"}, "d//", owned), "! d/ hidden") << "who removed it since is not on record";
    EXPECT_EQ(planned({"a=1", "a=-"}, "", owned), "! a hidden");
    EXPECT_EQ(planned({"d/ d/a=1", "d/"}, "d//", owned), "+d/a=1") << "that is";
}

TEST(UndoPlan, ofSeveralStepsAndWithOptions) {
    const auto later = [](UndoOptions::Later each) { return UndoOptions{each, nullptr, {}}; };
    // Newest first: the newer step's change, then the older's; in between somebody added the third line.
    EXPECT_EQ(planned({"a=x|2|3|", "a=x|y|3|", "a=1|2|", "a=x|2|"}, "a=x|y|3|"), "merge a=1|2|3|");
    EXPECT_EQ(planned({"a=2", "a=3", "a=1", "a=2"}, "a=3"), "~a=1");
    EXPECT_EQ(planned({"a=2", "a=3", "", "a=2"}, "a=3"), "-a");
    EXPECT_EQ(planned({"a=1", "a=2"}, "a=3", later(UndoOptions::Later::overwritten)), "~a=1");
    EXPECT_EQ(planned({"a=1", "a=2"}, "", later(UndoOptions::Later::overwritten)), "+a=1");
    EXPECT_EQ(planned({"", "a=2"}, "a=3", later(UndoOptions::Later::overwritten)), "-a");
    EXPECT_EQ(planned({"a=1|", "a=2?"}, "a=3", later(UndoOptions::Later::overwritten)), "~a=1|");
    EXPECT_EQ(planned({"d/ d/a=1", "n/ n/a=1"}, "d=9 n/ n/a=1", later(UndoOptions::Later::overwritten)),
              "~d/, +d/a=1, -n/, -n/a");
    EXPECT_EQ(planned({"d/ d/a=1", "n/ n/a=1"}, "d=9 n/ n/a=1", later(UndoOptions::Later::kept)),
              "keep d made anew, keep d/a blocked, keep n/a blocked");
    EXPECT_EQ(planned({"a=1|2|3| b=1", "a=x|2|3| b=2"}, "a=x|2|y| b=2", later(UndoOptions::Later::kept)),
              "keep a changed, ~b=1");
    EXPECT_EQ(planned({"y=1", "y/ y/a=1"}, "y/ y/a=1 y/b=2", later(UndoOptions::Later::kept)),
              "keep y/ changed, keep y/a blocked");
    EXPECT_EQ(planned({"y=1", "y/ y/a=1"}, "y/ y/a=1 y/b=2", later(UndoOptions::Later::overwritten)),
              "! y/ blocked, ! y/a blocked");
    // What comes back as a file holds nothing.
    EXPECT_EQ(planned({"d=2", "", "d/ d/a=1", "d/"}, ""), "+d=2, ! d/a blocked");
    EXPECT_EQ(planned({"a=1 b=1", "a=2 b=2"}, "a=2 b=2", {{}, [](std::string_view path) { return path == "b"; }, {}}),
              "~b=1");
    // Whose it was can't be told, but by the names that were noted.
    const UndoStep doubtful{{}, {}, "codex", {{"a", "d/x", "e"}, {"a", "d/x", "e"}}, {{"b"}, {"b", "e/o"}}};
    const std::string both = planned({"a=1 b=1 c=1", "a=2 b=2 c=2 d/ d/x=1"}, "a=2 b=2 c=2 d/ d/x=1", {}, doubtful);
    EXPECT_EQ(both, "~a=1, ! c doubt, -d/, -d/x");
    EXPECT_EQ(planned({"e/ e/m=1 e/o=1", ""}, "", {}, doubtful), "+e/, +e/m=1, ! e/o doubt"); // all of e was named
    EXPECT_EQ(planned({"b=1 c=1", "b=2 c=2"}, "b=2 c=2", later(UndoOptions::Later::overwritten), doubtful), "~c=1");
    EXPECT_EQ(planned({"c=1", "c=2"}, "c=2", later(UndoOptions::Later::kept), doubtful), "keep c doubt");
    // What others did in between is later work, of the lines before it.
    EXPECT_EQ(planned({"b=x|2|3|", "b=x|2|y|", "b=1|2|3|", "b=x|2|3|"}, "b=x|2|y|", {}, doubtful), "merge b=1|2|y|");
}
