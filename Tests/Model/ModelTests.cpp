#include "Model/History.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <future>

using namespace tidewrack::testing;

namespace {

constexpr std::uint64_t usualSteps = 400;
constexpr std::uint64_t usualHistories = 8;

std::uint64_t fromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

// Empty, or which promise broke and what had happened until then.
std::string historyFailure(std::uint64_t seed, std::uint64_t steps) {
    History history(seed);
    try {
        history.run(steps);
        return {};
    } catch (const std::exception& error) {
        const auto& log = history.log();
        std::string text = "TIDEWRACK_MODEL_SEED=" + std::to_string(seed) +
                           " TIDEWRACK_MODEL_STEPS=" + std::to_string(log.size()) + "\n";
        for (std::size_t i = 0; i < log.size(); ++i) text += std::to_string(i + 1) + " " + shown(log[i], 4000) + "\n";
        return text + "broken: " + error.what();
    }
}

} // namespace

TEST(RandomHistories, keepEveryPromise) {
    const std::uint64_t steps = fromEnvironment("TIDEWRACK_MODEL_STEPS", usualSteps);
    const std::uint64_t only = fromEnvironment("TIDEWRACK_MODEL_SEED", 0);
    std::vector<std::future<std::string>> histories;
    for (std::uint64_t seed = 1; seed <= (only != 0 ? 1 : usualHistories); ++seed)
        histories.push_back(std::async(std::launch::async, historyFailure, only != 0 ? only : seed, steps));
    for (auto& history : histories) {
        const std::string failure = history.get();
        EXPECT_TRUE(failure.empty()) << failure;
    }
}
