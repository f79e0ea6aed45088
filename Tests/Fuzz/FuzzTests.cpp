// Gives every target its corpus, where the regressions are kept, and mutations of it. scripts/fuzz does the long runs.

#include "Fuzz/Fuzz.hpp"
#include "Support/TestFolders.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

using tidewrack::fuzz::Target;
using tidewrack::testing::inCheckout;
namespace fs = std::filesystem;

namespace {

std::string bytesOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// By path, so that every machine makes the same mutations of them.
std::vector<std::pair<std::string, std::string>> corpusOf(const std::string& target) {
    std::vector<std::pair<std::string, std::string>> files;
    const std::string folder = target.substr(0, target.find('_'));
    for (const fs::path from : {inCheckout("Tests/Fuzz/Corpus/" + folder), inCheckout("Tests/Data/" + folder)}) {
        if (!fs::is_directory(from)) continue;
        for (const auto& entry : fs::recursive_directory_iterator(from))
            if (entry.is_regular_file()) files.emplace_back(entry.path().string(), bytesOf(entry.path()));
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Changes bytes, and puts pieces of other files in: those hold the words that matter.
class Mutator {
  public:
    std::string mutated(std::string text, const std::string& other) {
        for (std::size_t count = 1 + pick(6); count > 0; --count) {
            const std::size_t at = pick(text.size() + 1);
            switch (pick(5)) {
            case 0: text.insert(at, other.substr(pick(other.size() + 1), pick(24))); break;
            case 1: text.erase(at, pick(8)); break;
            case 2: text.insert(at, 1, static_cast<char>(pick(256))); break;
            case 3: text.insert(at, 1, punctuation[pick(punctuation.size())]); break;
            default: text.insert(at, text.substr(pick(text.size() + 1), pick(20))); break;
            }
        }
        return text;
    }

    std::size_t pick(std::size_t count) { return static_cast<std::size_t>(random_() % count); }

  private:
    static constexpr std::string_view punctuation = "'\"\\$(){}[]<>|&;*?~#`=/-,:\t\n\r 0";
    std::mt19937_64 random_{20'260'101};
};

class FuzzTarget : public testing::TestWithParam<Target> {
  protected:
    void run(const std::string& input, const std::string& from) {
        try {
            GetParam().run(input);
        } catch (const std::exception& error) {
            FAIL() << error.what() << "\n" << from << ": " << testing::PrintToString(input);
        }
    }
};

} // namespace

TEST_P(FuzzTarget, keepsItsPromises) {
    const auto corpus = corpusOf(GetParam().name);
    ASSERT_GT(corpus.size(), 3u);
    for (const auto& [path, bytes] : corpus) run(bytes, path);
    Mutator mutator;
    const bool slow = GetParam().name == std::string("shell_time");
    for (int round = 0; round < (slow ? 50 : 2'000) && !HasFailure(); ++round) {
        const auto& [path, bytes] = corpus[mutator.pick(corpus.size())];
        run(mutator.mutated(bytes, corpus[mutator.pick(corpus.size())].second), "from " + path);
    }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, FuzzTarget, testing::ValuesIn(tidewrack::fuzz::targets()),
                         [](const auto& target) { return target.param.name; });
