// How long judging one command takes: over a few hundred commands as agents write them, and for a mebibyte
// of input made to be slow.

#include "Shell/Guard.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <vector>

using namespace tidewrack::shell;

namespace {

using Clock = std::chrono::steady_clock;

// One command per line, with "\n" for a line feed and "\\" for a backslash.
std::vector<std::string> realCommands() {
    std::ifstream file(TIDEWRACK_BENCHMARK_DATA "/commands.txt");
    std::vector<std::string> commands;
    for (std::string line; std::getline(file, line);) {
        std::string command;
        for (std::size_t at = 0; at < line.size(); ++at) {
            const bool escape = line[at] == '\\' && at + 1 < line.size();
            if (escape) ++at;
            command += escape && line[at] == 'n' ? '\n' : line[at];
        }
        commands.push_back(command);
    }
    return commands;
}

Context context() {
    Context context;
    context.cwd = "/tmp/project";
    context.home = "/tmp/home";
    for (int number = 0; number < 50; ++number) context.env["VARIABLE_" + std::to_string(number)] = "some value";
    for (int number = 0; number < 10; ++number)
        context.projectRoots.push_back("/tmp/projects/p" + std::to_string(number));
    return context;
}

double microseconds(Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

// Every command is timed on its own; the counters give the distribution, the time column the whole corpus.
void judgeRealCommands(benchmark::State& state) {
    const std::vector<std::string> commands = realCommands();
    const Context where = context();
    if (commands.empty()) return state.SkipWithError("no commands");
    std::vector<double> times;
    for (auto _ : state) {
        for (const std::string& command : commands) {
            const auto start = Clock::now();
            benchmark::DoNotOptimize(analyze(command, where));
            times.push_back(microseconds(Clock::now() - start));
        }
    }
    std::sort(times.begin(), times.end());
    state.counters["commands"] = static_cast<double>(commands.size());
    state.counters["median_us"] = times[times.size() / 2];
    state.counters["p90_us"] = times[times.size() * 9 / 10];
    state.counters["p99_us"] = times[times.size() * 99 / 100];
    state.counters["max_us"] = times.back();
}

std::string mebibyteOf(std::string_view start, std::string_view piece, bool numbered = false) {
    std::string text(start);
    for (int number = 0; text.size() < (std::size_t{1} << 20); ++number) {
        text += piece;
        if (numbered) text += std::to_string(number);
    }
    return text;
}

void judgeHostileInput(benchmark::State& state, const std::string& command) {
    const Context where = context();
    for (auto _ : state) benchmark::DoNotOptimize(analyze(command, where));
}

const std::vector<std::pair<const char*, std::string>> hostileInputs = {
    {"oneWord", mebibyteOf("rm ", "a")},
    {"separators", mebibyteOf("", "a;")},
    {"onlySeparators", mebibyteOf("", ";")},
    {"parentheses", mebibyteOf("", "(")},
    {"nestedFolders", mebibyteOf("", "(cd a;")},
    {"operands", mebibyteOf("rm", " a")},
    {"numberedOperands", mebibyteOf("rm -rf", " ", true)},
    {"absoluteOperands", mebibyteOf("rm -rf", " /", true)},
    {"climbingOperands", mebibyteOf("rm -rf", " ../", true)},
    {"operandsInLongFolder", "cd " + std::string(4000, 'x') + mebibyteOf(";rm", " ", true)},
    {"copies", mebibyteOf("cp ", " ", true) + " /tmp"},
    {"moves", mebibyteOf("mv ", " ", true)},
    {"redirects", mebibyteOf("", ">", true)},
    {"removals", mebibyteOf("", ";rm ", true)},
    {"globs", mebibyteOf("rm", " *", true)},
    {"globsOfRoot", mebibyteOf("rm", " /*/*", true)},
    {"assignments", mebibyteOf("", ";a", true) + "=1"},
    {"namedAssignments", mebibyteOf("", "=1;a", true)},
    {"doublingVariable", mebibyteOf("X=aa", ";X=$X$X")},
    {"oneVariable", mebibyteOf("rm ", "$X")},
    {"splitVariable", mebibyteOf("X='a b';rm", " $X")},
    {"protectedDollars", mebibyteOf("rm ", "'$'")},
    {"braces", mebibyteOf("rm ", "${")},
    {"braceLists", mebibyteOf("rm", " {a,b}")},
    {"oneBraceList", mebibyteOf("rm ", "{a,b}")},
    {"openBraceLists", mebibyteOf("rm ", "{a,")},
    {"loops", mebibyteOf("", ";for a in b c d e f;do rm $a")},
    {"loopedOperands", mebibyteOf("for a in b c d e f g h;do rm", " $a")},
    {"loopedCopies", mebibyteOf("for a in {1..1000};do cp", " b") + " $a"},
    {"loopedLongWord", mebibyteOf("for a in {1..1000};do cp ", "b") + "$a c"},
    {"loopedFolders", mebibyteOf("for a in {1..1000};do ", "cd $a;")},
    {"longLoopValue", mebibyteOf("for a in " + std::string(500'000, 'b') + " c;do ", "cp $a d;")},
    {"nestedLoops", mebibyteOf("for a in {1..1000};do for b in {1..1000};do ", "cp $a $b;")},
    {"unknownWords", mebibyteOf("read a;mv", " $a")},
    {"gitPatterns", mebibyteOf("git", " -C *") + " reset"},
    {"hereDocuments", mebibyteOf("", "<<A\n")},
    {"hereDocumentsInOneLine", mebibyteOf("", "<<A ")},
    {"closedHereDocuments", mebibyteOf("", "<<A\nA\n")},
    {"inputs", mebibyteOf("", "<a ")},
    {"comments", mebibyteOf("", "#a\n")},
    {"quotes", mebibyteOf("rm ", "'\"")},
    {"substitutions", mebibyteOf("", "$(")},
    {"keywords", mebibyteOf("", "! ")},
    {"wrappers", mebibyteOf("", "sudo ")},
    {"folders", mebibyteOf("", "cd a;")},
    {"interpreters", mebibyteOf("", "cd a;sh;cd ..;")},
    {"marks", mebibyteOf("rm e", "\u0301")},
    {"characters", mebibyteOf("rm ", "\u5b57")},
    {"emoji", mebibyteOf("rm ", "\U0001F469\u200D\U0001F4BB")},
    {"invalidBytes", mebibyteOf("rm ", "\xff")},
    {"nulBytes", mebibyteOf("rm ", std::string_view("\0", 1))},
    {"carriageReturns", mebibyteOf("", "a\r\n")},
};

const bool registered = [] {
    benchmark::RegisterBenchmark("judgeRealCommands", judgeRealCommands);
    for (const auto& [name, command] : hostileInputs)
        benchmark::RegisterBenchmark((std::string("judgeHostile/") + name).c_str(), [&input = command](
                                                                                        benchmark::State& state) {
            judgeHostileInput(state, input);
        })->Unit(benchmark::kMillisecond);
    return true;
}();

} // namespace
