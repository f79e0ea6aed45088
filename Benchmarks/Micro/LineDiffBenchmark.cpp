// The largest comparisons that the size limit allows, and an everyday one.

#include "Changes/LineDiff.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>

using namespace tidewrack;

namespace {

// A text of the largest size whose lines are `length` random letters out of `letters`.
std::string randomText(unsigned seed, unsigned letters, std::size_t length) {
    std::mt19937 random(seed);
    std::string text;
    while (text.size() + length + 1 <= LineDiff::sizeLimit) {
        for (std::size_t at = 0; at < length; ++at) text += static_cast<char>('!' + random() % letters);
        text += '\n';
    }
    return text;
}

// A text of the largest size whose lines are empty, but for one in `interval` on average.
std::string mostlyEmptyLines(unsigned seed, unsigned interval) {
    std::mt19937 random(seed);
    std::string text;
    while (text.size() + 2 <= LineDiff::sizeLimit) text += random() % interval == 0 ? "x\n" : "\n";
    return text;
}

// A source file of 20,000 lines, and a copy with one line in `interval` changed.
std::string sourceText(unsigned interval) {
    std::string text;
    for (unsigned line = 0; line < 20000; ++line)
        text += "    call(" + std::to_string(line * 7919 % 5000) + (line % interval == 1 ? ", changed);\n" : ");\n");
    return text;
}

void compare(benchmark::State& state, const std::string& before, const std::string& after) {
    LineDiff::Result result;
    for (auto step : state) {
        (void)step;
        result = LineDiff::diff(before, after, LineDiff::usualContext);
    }
    state.counters["changed"] = static_cast<double>(result.added + result.removed);
}

void randomLetters(benchmark::State& state) {
    const auto letters = static_cast<unsigned>(state.range(0));
    const auto length = static_cast<std::size_t>(state.range(1));
    compare(state, randomText(1, letters, length), randomText(2, letters, length));
}

void reversed(benchmark::State& state) {
    const std::string before = randomText(1, 90, 1);
    std::string after(before.rbegin() + 1, before.rend());
    compare(state, before, after + "\n");
}

void shifted(benchmark::State& state) {
    std::string text = randomText(1, 90, 1);
    const std::string before = text;
    std::rotate(text.begin(), text.begin() + state.range(0), text.end());
    compare(state, before, text);
}

void emptyLines(benchmark::State& state) {
    compare(state, mostlyEmptyLines(1, static_cast<unsigned>(state.range(0))),
            mostlyEmptyLines(2, static_cast<unsigned>(state.range(1))));
}

void repeated(benchmark::State& state) {
    compare(state, std::string(LineDiff::sizeLimit, '\n'), std::string(LineDiff::sizeLimit / 3, '\n'));
}

void nothingInCommon(benchmark::State& state) {
    std::string after = randomText(2, 40, 1);
    for (char& byte : after)
        if (byte != '\n') byte = static_cast<char>(byte + 45);
    compare(state, randomText(1, 40, 1), after);
}

void source(benchmark::State& state) {
    compare(state, sourceText(1000000), sourceText(static_cast<unsigned>(state.range(0))));
}

} // namespace

BENCHMARK(randomLetters)
    ->ArgNames({"letters", "length"})
    ->ArgsProduct({{1, 2, 3, 26, 64, 90}, {1}})
    ->Args({20, 2})
    ->Args({90, 2})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(reversed)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(shifted)->Arg(2000)->Arg(200000)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(emptyLines)->Args({50, 50})->Args({5, 5})->Args({50, 2})->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(repeated)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(nothingInCommon)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(source)->Arg(5000)->Arg(200)->Arg(10)->UseRealTime()->Unit(benchmark::kMillisecond);
