// Bounded, deterministic fuzzing: whatever bytes arrive, parser, lexer and guard neither crash nor break
// their promises.

#include "Hooks/Hook.hpp"
#include "Hooks/ShellGuard.hpp"
#include "Hooks/ShellLexer.hpp"
#include "Support/Json.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

using namespace tidewrack;

namespace {

constexpr int rounds = 4'000;

const std::vector<std::string> seeds = {
    "cat > 'src/a b.txt' <<'EOF'\n\"hej\" it's\nEOF\nrm -rf build",
    "for f in *.txt; do mv \"$f\" \"${f%.txt}.md\"; done",
    "X=/tmp/a; (cd sub && rm -rf \"$X\"/*) >| log 2>&1 || git -C .. clean -fdx",
    "find . -name '*.o' -print0 | xargs -0 rm -f; cp -r a/. ~/b/",
    "sudo env A=\"1 2\" rm -- -x $(date) `id` ${HOME:-/h} \\$y\r\n",
    "while read -r l; do echo $((1 << 2)) >> \u00e9\u0301.txt; done < <(ls)",
};

const std::vector<std::string> pieces = {"'",   "\"", "\\", "$",    "${",     "}",      "(",      ")",    "<<",  "<",
                                         ">",   ">|", "&>", "&",    ";",      "|",      "\n",     "\r",   "*",   "[",
                                         "~",   "#",  "`",  "=",    "rm ",    "cd ",    "..",     "/",    "do ", "{",
                                         "EOF", "\t", " ",  "\xff", "\u0301", "\u0600", "\uE000", "-rf ", "git "};

class Mutator {
  public:
    std::string bytes(std::size_t length) {
        std::string text(length, '\0');
        for (char& c : text) c = static_cast<char>(pick(256));
        return text;
    }

    std::string mutated(std::string text) {
        for (std::size_t count = 1 + pick(6); count > 0; --count) {
            const std::size_t at = pick(text.size() + 1);
            switch (pick(4)) {
            case 0: text.insert(at, pieces[pick(pieces.size())]); break;
            case 1: text.erase(at, pick(8)); break;
            case 2: text.insert(at, bytes(1 + pick(3))); break;
            default: text.insert(at, text.substr(pick(text.size() + 1), pick(20))); break;
            }
        }
        return text;
    }

    std::size_t pick(std::size_t count) { return static_cast<std::size_t>(random_() % count); }

  private:
    std::mt19937_64 random_{20'260'101};
};

shell::Context context() {
    shell::Context context;
    context.cwd = "/nowhere/project";
    context.home = "/nowhere/home";
    context.env = {{"X", "value"}};
    context.projectRoots = {"/nowhere/project"};
    return context;
}

bool isSortedSet(const std::vector<std::string>& paths) {
    return std::adjacent_find(paths.begin(), paths.end(), [](const auto& a, const auto& b) { return a >= b; }) ==
           paths.end();
}

bool isNormalized(const std::string& path) {
    return path == "/" ||
           (path.starts_with('/') && !path.ends_with('/') && (path + "/").find("/../") == std::string::npos &&
            (path + "/").find("/./") == std::string::npos && path.find("//") == std::string::npos);
}

void expectSound(const std::string& command) {
    const shell::Context where = context();
    const shell::Decision decision = shell::analyze(command, where);
    const shell::Parsed parsed = shell::parse(command);
    for (const shell::Simple& simple : parsed.commands) ASSERT_FALSE(simple.words.empty() && simple.redirects.empty());
    ASSERT_TRUE(isSortedSet(decision.targets) && isSortedSet(decision.opaqueDirs)) << testing::PrintToString(command);
    ASSERT_EQ(decision.opaque, !decision.opaqueDirs.empty()) << testing::PrintToString(command);
    ASSERT_TRUE(decision.opaque || !parsed.opaque) << testing::PrintToString(command);
    bool refused = false;
    for (const std::string& target : decision.targets) {
        ASSERT_TRUE(isNormalized(target)) << testing::PrintToString(target) << testing::PrintToString(command);
        ASSERT_FALSE(target.starts_with("/dev/"));
        refused = refused || shell::catastrophic(target, where.home);
    }
    const auto kind = decision.verdict.kind;
    ASSERT_TRUE(!refused || kind == shell::Verdict::Kind::deny) << testing::PrintToString(command);
    ASSERT_EQ(kind == shell::Verdict::Kind::allow, decision.verdict.reason.empty());
    ASSERT_TRUE(kind == shell::Verdict::Kind::allow || !decision.targets.empty());
    ASSERT_EQ(shell::analyze(command, where), decision);
}

} // namespace

TEST(GuardFuzz, anyBytesAreJudgedSoundly) {
    Mutator mutator;
    for (int round = 0; round < rounds; ++round) {
        expectSound(mutator.bytes(mutator.pick(200)));
        std::string pieced;
        for (std::size_t count = mutator.pick(40); count > 0; --count) pieced += pieces[mutator.pick(pieces.size())];
        expectSound(pieced);
    }
}

TEST(GuardFuzz, mutatedCommandsAreJudgedSoundly) {
    Mutator mutator;
    for (int round = 0; round < rounds; ++round) expectSound(mutator.mutated(seeds[mutator.pick(seeds.size())]));
}

// A command behind a line end is seen whatever stands in the line before, unless that line leaves a quote
// open or makes the whole opaque.
TEST(GuardFuzz, noLineHidesTheNext) {
    Mutator mutator;
    for (int round = 0; round < rounds; ++round) {
        std::string line;
        for (std::size_t count = mutator.pick(12); count > 0; --count) line += pieces[mutator.pick(pieces.size())];
        if (line.find_first_of("'\"\\<$`") != std::string::npos) continue;
        const auto targets = shell::analyze(line + " \nrm /victim", context()).targets;
        ASSERT_TRUE(std::binary_search(targets.begin(), targets.end(), "/victim")) << testing::PrintToString(line);
    }
}

TEST(GuardFuzz, mutatedEventsAreRead) {
    Mutator mutator;
    std::vector<std::string> events;
    const std::filesystem::path folder = std::string(TIDEWRACK_TEST_DATA) + "/events";
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.path().filename() == "expected.json") continue;
        std::ifstream file(entry.path(), std::ios::binary);
        events.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    ASSERT_GT(events.size(), 40u);
    std::sort(events.begin(), events.end());
    int readable = 0;
    for (int round = 0; round < rounds; ++round) {
        const auto object = parseJson(mutator.mutated(events[mutator.pick(events.size())]));
        if (!object) continue;
        ++readable;
        for (const Agent agent : allAgents) {
            const HookEvent event = parseHookEvent(agent, *object, "/w");
            ASSERT_EQ(event.command.has_value(), event.kind == HookEvent::Kind::shell);
            ASSERT_FALSE(event.cwd.empty());
            if (event.command) expectSound(*event.command);
        }
    }
    EXPECT_GT(readable, rounds / 20);
}
