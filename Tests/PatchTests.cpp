// Patches between trees, which the programs that apply patches must understand. Hunks of any texts at all are checked
// by Fuzz/LineDiffTarget.cpp.

#include "Support/TestFolders.hpp"

#include "Changes/LineDiff.hpp"
#include "Changes/Patch.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <map>
#include <regex>

using namespace tidewrack;

namespace {

struct Node {
    PatchSide::Kind kind = PatchSide::Kind::file;
    unsigned mode = 0644;
    std::string content; // bytes, or a link's destination
};
using Tree = std::map<std::string, Node>;

Node file(std::string content, unsigned mode = 0644) {
    return {PatchSide::Kind::file, mode, std::move(content)};
}
Node link(std::string destination) {
    return {PatchSide::Kind::link, 0777, std::move(destination)};
}

class Patch : public ::testing::Test {
  protected:
    // A path for content that a snapshot would have kept.
    std::string kept(const std::string& bytes) {
        const std::string name = "kept" + std::to_string(++keptCount_);
        folder_.write(name, bytes);
        return folder_.at(name);
    }

    std::optional<PatchSide> side(const Node* node) {
        if (node == nullptr) return std::nullopt;
        const bool isLink = node->kind == PatchSide::Kind::link;
        return PatchSide{node->kind, node->mode, isLink ? node->content : kept(node->content), ""};
    }

    std::string text(const std::string& path, const Node* before, const Node* after, Colours colours = Colours::off) {
        return patchText({path, side(before), side(after)}, colours);
    }

    std::string between(const Tree& before, const Tree& after) {
        std::string patch;
        std::map<std::string, std::pair<const Node*, const Node*>> paths;
        for (const auto& [path, node] : before) paths[path].first = &node;
        for (const auto& [path, node] : after) paths[path].second = &node;
        for (const auto& [path, nodes] : paths) patch += text(path, nodes.first, nodes.second);
        return patch;
    }

    std::string written(const Tree& tree) const {
        folder_.makeFolder("work");
        folder_.remove("work");
        folder_.makeFolder("work");
        for (const auto& [path, node] : tree) {
            if (node.kind == PatchSide::Kind::link) {
                folder_.link("work/" + path, node.content);
                continue;
            }
            folder_.write("work/" + path, node.content);
            EXPECT_EQ(::chmod(folder_.at("work/" + path).c_str(), static_cast<mode_t>(node.mode)), 0);
        }
        return folder_.listing("work");
    }

    // Expects `after` where a shell command applies the patch, from standard input, to `before`.
    void expectApplied(const std::string& command, const Tree& before, const std::string& patch, const Tree& after) {
        if (command == gnuPatch && std::system("patch --version 2>/dev/null | grep -q '^GNU patch '") != 0) return;
        (void)written(before);
        folder_.write("patch", patch);
        const std::string shell = "cd '" + folder_.at("work") + "' && umask 022 && env -i PATH=\"$PATH\" HOME='" +
                                  folder_.path() + "' GIT_CONFIG_NOSYSTEM=1 GIT_CEILING_DIRECTORIES='" +
                                  folder_.path() + "' " + command + " <../patch >../output 2>&1";
        EXPECT_EQ(std::system(shell.c_str()), 0) << folder_.read("output") << patch;
        const std::string applied = folder_.listing("work");
        EXPECT_EQ(applied, written(after)) << command << "\n" << patch;
    }

    static constexpr const char* git = "git apply --whitespace=nowarn -";
    static constexpr const char* gnuPatch = "patch -p1 -f";

  private:
    tidewrack::testing::TemporaryFolder folder_;
    int keptCount_ = 0;
};

} // namespace

// Every kind of node becomes every other one, under names that are hard to write down.
TEST_F(Patch, takesAnyTreeToAnyOther) {
    const std::string lines = "one\n\n-- a\n++ b\n\xc3\xa9\ncr\r\n@@ -1 +1 @@\n x ";
    const std::optional<Node> nodes[] = {
        std::nullopt,   file(""),        file("one", 0755),        file("one\n"),
        file("1\none"), file(lines),     file(lines + "\n", 0755), file("1\n" + lines + "\n2\n"),
        link("to/one"), link("to\nmore")};
    const std::size_t kinds = std::size(nodes);
    for (const char* program : {git, gnuPatch}) {
        for (std::size_t pair = 0; pair < kinds * kinds;) {
            Tree before;
            Tree after;
            for (const char* each : {"plain", "with space", "tab\tname", "quote\"d", "back\\slash", "caf\xc3\xa9",
                                     "\xff raw", "dir/inner", "dir/deep er/x b/x", "-dash", "trailing ", "it's",
                                     "a/a b/a", "dev/null", "spa ce/sub\x01", "\xe2\x98\x83 \"snow\"", "new\nline"}) {
                const std::string name = tidewrack::testing::ofAnyBytes(each);
                if (program == gnuPatch && name == "new\nline") continue; // from 2.8 on it refuses such names
                if (const auto& node = nodes[pair / kinds % kinds]) before[name] = *node;
                if (const auto& node = nodes[pair++ % kinds]) after[name] = *node;
            }
            expectApplied(program, before, between(before, after), after);
        }
    }
}

TEST_F(Patch, hasTheUnifiedFormAndColoursLinesWhole) {
    const Node before = file("1\n2\n3\n4\n5\n6\n");
    const Node after = file("1\n2\n3\n4\nfive\n6", 0755);
    const std::string coloured = text("a b", &before, &after, Colours::on);
    const char* expected = "\x1b[1mdiff --git \"a/a b\" \"b/a b\"\x1b[m\n"
                           "\x1b[1mold mode 100644\x1b[m\n"
                           "\x1b[1mnew mode 100755\x1b[m\n"
                           "\x1b[1m--- a/a b\t\x1b[m\n"
                           "\x1b[1m+++ b/a b\t\x1b[m\n"
                           "\x1b[36m@@ -2,5 +2,5 @@\x1b[m\n"
                           " 2\n"
                           " 3\n"
                           " 4\n"
                           "\x1b[31m-5\x1b[m\n"
                           "\x1b[31m-6\x1b[m\n"
                           "\x1b[32m+five\x1b[m\n"
                           "\x1b[32m+6\x1b[m\n"
                           "\\ No newline at end of file\n";
    EXPECT_EQ(coloured, expected);
    EXPECT_EQ(text("a b", &before, &after), std::regex_replace(coloured, std::regex("\x1b\\[[0-9]*m"), ""));
}

// What cannot be shown must neither be lost silently nor keep the rest from applying.
TEST_F(Patch, namesWhatItCannotCarryAndAppliesTheRest) {
    const std::string zeros("\0\1", 2);
    const std::string large(LineDiff::sizeLimit + 1, 'x');
    const Tree before = {{"a mode", file("m\n")}, {"b binary", file(zeros)}, {"c large", file(large)},
                         {"d empty", file("")},   {"e gone", file(zeros)},   {"f private", file("p\n", 0600)},
                         {"g binary", file("t")}, {"h last", file("old\n")}, {"j kind", file(zeros)}};
    const Tree after = {{"a mode", file("m\n", 0755)}, {"b binary", file(zeros + "x", 0755)},
                        {"c large", file("s\n")},      {"f private", file("p\n")},
                        {"g binary", file(zeros)},     {"h last", file("new\n")},
                        {"i come", file(zeros)},       {"j kind", link("to")}};
    const Tree applied = {{"a mode", file("m\n", 0755)}, {"b binary", file(zeros, 0755)},  {"c large", file(large)},
                          {"e gone", file(zeros)},       {"f private", file("p\n", 0600)}, {"g binary", file("t")},
                          {"h last", file("new\n")},     {"j kind", file(zeros)}};
    const std::string patch = between(before, after);
    for (const char* line :
         {"\ndiff a/b binary b/b binary\nBinary files a/b binary and b/b binary differ\n",
          "\nFile c large is too large to compare\n", "\nBinary files a/e gone and /dev/null differ\n",
          "\nThe mode of f private changed from 000600 to 000644\n", "\nBinary files /dev/null and b/i come differ\n",
          "\nBinary files a/j kind and b/j kind differ\n"})
        EXPECT_NE(patch.find(line), std::string::npos) << line << patch;
    for (const char* program : {git, gnuPatch}) expectApplied(program, before, patch, applied);
}

TEST_F(Patch, saysWhyAContentIsMissing) {
    PatchFile file{"x", PatchSide{PatchSide::Kind::file, 0644, kept("old\n"), ""}, PatchSide{}};
    file.after->notKeptReason = "it was larger than the size limit";
    EXPECT_EQ(patchText(file, Colours::off),
              "diff a/x b/x\nThe content of x was not kept: it was larger than the size limit\n");
    file.after->content = kept("") + "-missing";
    EXPECT_EQ(patchText(file, Colours::off),
              "diff a/x b/x\nThe content of x couldn't be read: No such file or directory\n");
    file.after->content = file.before->content;
    EXPECT_EQ(patchText(file, Colours::off), "");
}

// GNU patch cannot do this within one patch, whoever made it.
TEST_F(Patch, turnsAFileIntoAFolderAndBackWithGit) {
    const Tree asFile = {{"x", file("x\n")}};
    const Tree asFolder = {{"x/y", file("y\n")}};
    expectApplied(git, asFile, between(asFile, asFolder), asFolder);
    expectApplied(git, asFolder, between(asFolder, asFile), asFile);
}
