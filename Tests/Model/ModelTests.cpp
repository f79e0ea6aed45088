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

struct Ended {
    std::string failure; // which promise broke and what had happened until then
    std::map<std::string, std::size_t> done;
};

Ended live(std::uint64_t seed, std::uint64_t steps) {
    History history(seed);
    try {
        history.run(steps);
        return {"", history.done()};
    } catch (const std::exception& error) {
        const auto& log = history.log();
        std::string text = "TIDEWRACK_MODEL_SEED=" + std::to_string(seed) +
                           " TIDEWRACK_MODEL_STEPS=" + std::to_string(log.size()) + "\n";
        for (std::size_t i = 0; i < log.size(); ++i)
            text += std::to_string(i + 1) + " " + ::testing::PrintToString(log[i]) + "\n";
        return {text + "broken: " + error.what(), history.done()};
    }
}

} // namespace

TEST(RandomHistories, keepEveryPromise) {
    const std::uint64_t steps = fromEnvironment("TIDEWRACK_MODEL_STEPS", usualSteps);
    const std::uint64_t seed = fromEnvironment("TIDEWRACK_MODEL_SEED", 0);
    std::vector<std::future<Ended>> histories; // side by side: mostly they wait for the clock to tick
    for (std::uint64_t i = 1; i <= (seed != 0 ? 1 : usualHistories); ++i)
        histories.push_back(std::async(std::launch::async, live, seed != 0 ? seed : i, steps));
    std::map<std::string, std::size_t> done;
    for (auto& history : histories) {
        const Ended ended = history.get();
        EXPECT_TRUE(ended.failure.empty()) << ended.failure;
        for (const auto& [what, count] : ended.done) done[what] += count;
    }
    for (const char* what : {"restored", "removed", "warned", "pruned"})
        EXPECT_TRUE(seed != 0 || done[what] > steps / 4) << done[what] << " " << what << " is too few to tell";
    EXPECT_TRUE(seed != 0 || done["forgotten"] > steps / 16) << done["forgotten"];
}
