// Runs all tests. The last lines say what came of them, below whatever lists stand before.

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>

namespace {

// How many tests were left out, by their reason.
std::map<std::string, int> skipped(const testing::UnitTest& all) {
    std::map<std::string, int> reasons;
    for (int i = 0; i < all.total_test_suite_count(); ++i)
        for (int j = 0; j < all.GetTestSuite(i)->total_test_count(); ++j) {
            const testing::TestResult& result = *all.GetTestSuite(i)->GetTestInfo(j)->result();
            if (result.Skipped()) ++reasons[result.GetTestPartResult(result.total_part_count() - 1).message()];
        }
    return reasons;
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const int status = RUN_ALL_TESTS();
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (const auto& [reason, count] : skipped(all)) std::printf("%d skipped: %s\n", count, reason.c_str());
    const int passed = all.successful_test_count();
    std::printf("[  PASSED  ] %d tests.\n%d passed, %d failed\n", passed, passed, all.failed_test_count());
    return status;
}
