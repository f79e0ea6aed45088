#include "Support/TestFolders.hpp"
#include "Support/VolumeFacts.hpp"

#include "Changes/LineDiff.hpp"
#include "Changes/Patch.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>

using namespace tidewrack;

namespace {

struct Node {
    PatchSide::Kind kind = PatchSide::Kind::file;
    unsigned mode = 0644;
    std::string content; // bytes, or a link's destination
    bool operator==(const Node&) const = default;
};
using Tree = std::map<std::string, Node>;

std::ostream& operator<<(std::ostream& out, const Node& node) {
    return out << (node.kind == PatchSide::Kind::link ? "link " : "file ") << std::oct << node.mode << " '"
               << node.content << "'";
}

Node file(std::string content, unsigned mode = 0644) {
    return {PatchSide::Kind::file, mode, std::move(content)};
}
Node link(std::string destination) {
    return {PatchSide::Kind::link, 0777, std::move(destination)};
}

// Trees on disk, patches between them, and the programs that apply patches.
class Patch : public ::testing::Test {
  protected:
    // A path for content that a snapshot would have kept.
    std::string kept(const std::string& bytes) {
        const std::string name = "kept" + std::to_string(++keptCount_);
        folder_.write(name, bytes);
        return folder_.at(name);
    }

    PatchSide side(const Node& node) {
        return {node.kind, node.mode, node.kind == PatchSide::Kind::link ? node.content : kept(node.content), ""};
    }

    PatchFile change(const std::string& path, const Node* before, const Node* after) {
        PatchFile result{path, std::nullopt, std::nullopt};
        if (before) result.before = side(*before);
        if (after) result.after = side(*after);
        return result;
    }

    std::string text(const std::string& path, const Node& before, const Node& after) {
        return patchText(change(path, &before, &after), Colours::off);
    }

    std::string between(const Tree& before, const Tree& after) {
        std::string patch;
        std::map<std::string, std::pair<const Node*, const Node*>> paths;
        for (const auto& [path, node] : before) paths[path].first = &node;
        for (const auto& [path, node] : after) paths[path].second = &node;
        for (const auto& [path, nodes] : paths)
            patch += patchText(change(path, nodes.first, nodes.second), Colours::off);
        return patch;
    }

    void write(const Tree& tree) {
        std::filesystem::remove_all(work());
        folder_.makeFolder("work");
        for (const auto& [path, node] : tree) {
            if (node.kind == PatchSide::Kind::link) {
                folder_.link("work/" + path, node.content);
                continue;
            }
            folder_.write("work/" + path, node.content);
            ASSERT_EQ(::chmod((work() + "/" + path).c_str(), static_cast<mode_t>(node.mode)), 0);
        }
    }

    Tree read() {
        Tree tree;
        for (const auto& item : std::filesystem::recursive_directory_iterator(work())) {
            const std::string path = item.path().string().substr(work().size() + 1);
            if (item.is_symlink())
                tree[path] = link(std::filesystem::read_symlink(item.path()).string());
            else if (item.is_regular_file())
                tree[path] = file(folder_.read("work/" + path), static_cast<unsigned>(item.status().permissions()));
        }
        return tree;
    }

    // Applies `patch` to `before` with a shell command that reads it from standard input.
    Tree apply(const std::string& command, const Tree& before, const std::string& patch) {
        write(before);
        folder_.write("patch", patch);
        const std::string shell = "cd '" + work() + "' && umask 022 && env -i PATH=\"$PATH\" HOME='" + folder_.path() +
                                  "' GIT_CONFIG_NOSYSTEM=1 GIT_CEILING_DIRECTORIES='" + folder_.path() + "' " +
                                  command + " <../patch >../output 2>&1";
        EXPECT_EQ(std::system(shell.c_str()), 0) << folder_.read("output") << patch;
        return read();
    }

    static constexpr const char* git = "git apply --whitespace=nowarn -";
    static constexpr const char* gnuPatch = "patch -p1 -f";

    // Some systems have another program of that name, which knows neither quoted names nor modes and links; and from
    // 2.8 on GNU's refuses names with a line feed.
    static bool gnuPatchTakes(const Tree& before, const Tree& after) {
        const auto isVersion = [](const std::string& pattern) {
            return std::system(("patch --version 2>/dev/null | grep -q '^GNU patch " + pattern + "'").c_str()) == 0;
        };
        static const bool any = isVersion("2\\.7");
        static const bool singleLines = any || isVersion("2\\.[89]");
        const auto isSingleLine = [](const auto& item) { return item.first.find('\n') == std::string::npos; };
        return any || (singleLines && std::all_of(before.begin(), before.end(), isSingleLine) &&
                       std::all_of(after.begin(), after.end(), isSingleLine));
    }

    void expectApplies(const Tree& before, const Tree& after) {
        const std::string patch = between(before, after);
        if (patch.empty()) return;
        for (const char* program : {git, gnuPatch}) {
            if (program == gnuPatch && !gnuPatchTakes(before, after)) continue;
            const Tree applied = apply(program, before, patch);
            for (const auto& [path, node] : after)
                EXPECT_TRUE(applied.count(path) && applied.at(path) == node)
                    << program << ": " << path << ": " << node << "\n"
                    << patch;
            EXPECT_EQ(applied.size(), after.size()) << patch;
        }
    }

  private:
    std::string work() const { return folder_.at("work"); }

    tidewrack::testing::TemporaryFolder folder_;
    int keptCount_ = 0;
};

std::string randomContent(std::mt19937& random) {
    static const char* const lines[] = {"one", "two", "", "-- a", "++ b", "\xc3\xa9", "cr\r", "@@ -1 +1 @@", " x "};
    std::string content;
    for (auto count = random() % 14; count > 0; --count) content += std::string(lines[random() % 9]) + "\n";
    if (random() % 3 == 0 && !content.empty()) content.pop_back();
    return content;
}

Node randomNode(std::mt19937& random) {
    if (random() % 6 == 0) return link("to/" + std::to_string(random() % 3) + (random() % 4 ? "" : "\nmore"));
    return file(random() % 8 ? randomContent(random) : "", random() % 4 ? 0644 : 0755);
}

void alter(std::mt19937& random, Node& node) {
    if (random() % 5 == 0 || node.kind == PatchSide::Kind::link)
        node = randomNode(random);
    else if (random() % 3 == 0)
        node.mode ^= 0111;
    else if (random() % 3 == 0 && node.content.ends_with('\n'))
        node.content.pop_back();
    else
        node.content.insert(node.content.find('\n', random() % (node.content.size() + 1)) + 1, "changed\n");
}

} // namespace

TEST_F(Patch, takesRandomTreesToTheirNextState) {
    std::mt19937 random(11);
    for (int round = 0; round < 12 && !HasFailure(); ++round) {
        Tree before;
        Tree after;
        for (const char* each : {"plain", "with space", "tab\tname", "quote\"d", "back\\slash", "caf\xc3\xa9",
                                 "\xff raw", "dir/inner", "dir/deep er/x b/x", "-dash", "trailing ", "new\nline",
                                 "it's", "a/a b/a", "spa ce/sub\x01e", "dev/null", "\xe2\x98\x83 \"snow\""}) {
            const std::string name = tidewrack::testing::ofAnyBytes(each);
            if (random() % 3) before[name] = randomNode(random);
            if (random() % 4 == 0) continue;
            after[name] = before.count(name) ? before[name] : randomNode(random);
            if (random() % 2) alter(random, after[name]);
        }
        expectApplies(before, after);
    }
}

TEST_F(Patch, hasTheUnifiedForm) {
    EXPECT_EQ(text("f", file("1\n2\n3\n4\n5\n6\n"), file("1\n2\n3\n4\nfive\n6\n", 0755)), "diff --git a/f b/f\n"
                                                                                          "old mode 100644\n"
                                                                                          "new mode 100755\n"
                                                                                          "--- a/f\n"
                                                                                          "+++ b/f\n"
                                                                                          "@@ -2,5 +2,5 @@\n"
                                                                                          " 2\n"
                                                                                          " 3\n"
                                                                                          " 4\n"
                                                                                          "-5\n"
                                                                                          "+five\n"
                                                                                          " 6\n");
    EXPECT_EQ(text("a b", file("x"), file("x\n")), "diff --git \"a/a b\" \"b/a b\"\n"
                                                   "--- a/a b\t\n"
                                                   "+++ b/a b\t\n"
                                                   "@@ -1 +1 @@\n"
                                                   "-x\n"
                                                   "\\ No newline at end of file\n"
                                                   "+x\n");
    EXPECT_EQ(text("same", file("x"), file("x")), "");
    EXPECT_EQ(text("k", file("x\n"), link("to")), "diff --git a/k b/k\n"
                                                  "deleted file mode 100644\n"
                                                  "--- a/k\n"
                                                  "+++ /dev/null\n"
                                                  "@@ -1 +0,0 @@\n"
                                                  "-x\n"
                                                  "diff --git a/k b/k\n"
                                                  "new file mode 120000\n"
                                                  "--- /dev/null\n"
                                                  "+++ b/k\n"
                                                  "@@ -0,0 +1 @@\n"
                                                  "+to\n"
                                                  "\\ No newline at end of file\n");
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
    EXPECT_EQ(apply(git, before, patch), applied) << patch;
    if (!gnuPatchTakes({}, {})) GTEST_SKIP() << "there is no GNU patch here";
    EXPECT_EQ(apply(gnuPatch, before, patch), applied) << patch;
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
    EXPECT_EQ(apply(git, asFile, between(asFile, asFolder)), asFolder);
    EXPECT_EQ(apply(git, asFolder, between(asFolder, asFile)), asFile);
}

TEST_F(Patch, coloursLinesWhole) {
    const Node before = file("a\nb\n");
    const Node after = file("a\nc");
    EXPECT_EQ(patchText(change("f", &before, &after), Colours::on), "\x1b[1mdiff --git a/f b/f\x1b[m\n"
                                                                    "\x1b[1m--- a/f\x1b[m\n"
                                                                    "\x1b[1m+++ b/f\x1b[m\n"
                                                                    "\x1b[36m@@ -1,2 +1,2 @@\x1b[m\n"
                                                                    " a\n"
                                                                    "\x1b[31m-b\x1b[m\n"
                                                                    "\x1b[32m+c\x1b[m\n"
                                                                    "\\ No newline at end of file\n");
}
