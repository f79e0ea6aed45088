#include "Support/TestFolders.hpp"

#include "Store/Records.hpp"
#include "Support/Errors.hpp"
#include "Support/Json.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

const std::string projectText = R"({"created":"2025-01-02T03:04:05Z","excludes":[".git","node_modules"],)"
                                R"("excludesIfIgnored":["build"],"id":"app-0123abcd","maxFileSize":1000,)"
                                R"("root":"\/Users\/ann\/app"})";
const std::string snapshotText =
    R"({"added":1,"agent":"claude","background":true,"began":5,"created":"2025-01-02T03:04:05Z","deleted":3,)"
    R"("durationMs":12,"files":4,"folders":2,"interrupted":false,"kind":"prompt","label":"fix \"a\/b\" ü","manifestOf":6,)"
    R"("modified":2,"notKept":8,"pinned":true,"reversal":"undo","seq":7,"session":"s",)"
    R"("title":"fix","tookBack":[{"from":3,"to":5}],"turn":"t"})";

} // namespace

TEST(Records, goldenBytes) {
    const Project project = decodeProject(projectText, "p");
    EXPECT_EQ(project.root, "/Users/ann/app");
    EXPECT_EQ(project.created.time_since_epoch().count(), 1735787045);
    EXPECT_EQ(compactJson(toJson(project)), projectText);

    const SnapshotMeta meta = decodeSnapshotMeta(snapshotText, "s");
    EXPECT_EQ(meta.label, "fix \"a/b\" ü");
    EXPECT_EQ(compactJson(toJson(meta)), snapshotText);
}

TEST(Records, keysThatAreMissingOrOfAnotherType) {
    const auto fault = [](const nlohmann::json& object) {
        return thrownBy([&] {
            if (object.contains("seq") || object.contains("manifestOf"))
                return (void)decodeSnapshotMeta(object.dump(), "r");
            (void)decodeProject(object.dump(), "r");
        });
    };
    for (const std::string& text : {projectText, snapshotText}) {
        const auto whole = nlohmann::json::parse(text);
        for (const auto& [key, value] : whole.items()) {
            const bool optional =
                std::set<std::string>{
                    "excludesIfIgnored", "maxFileSize", "label",   "agent", "session",     "turn",  "reversal",
                    "tookBack",          "background",  "notKept", "began", "interrupted", "title", "folders"}
                    .contains(key);
            auto other = whole;
            other.erase(key);
            EXPECT_EQ(fault(other),
                      optional ? "<nothing thrown>" : "Corrupt store data: r: \"" + key + "\" is missing");
            for (const nlohmann::json& wrong : {nlohmann::json{{"a", 1}}, nlohmann::json{1.5}, nlohmann::json(1.5)}) {
                other[key] = wrong;
                EXPECT_EQ(fault(other).find("Corrupt store data: r"), 0U) << key << wrong;
            }
        }
        auto more = whole;
        more["future"] = {1, 2};
        EXPECT_EQ(fault(more), "<nothing thrown>");
    }
    auto large = nlohmann::json::parse(snapshotText);
    large["seq"] = 18446744073709551615ULL;
    EXPECT_THROW((void)decodeSnapshotMeta(large.dump(), "r"), TidewrackError);
}

TEST(Records, dates) {
    for (const char* text : {"1970-01-01T00:00:00Z", "2024-02-29T23:59:59Z", "1969-12-31T23:59:59Z"})
        EXPECT_EQ(isoText(parseIsoDate(text).value()), text);
    for (const char* text :
         {"", "2025-01-02", "2025-01-02 03:04:05Z", "2025-01-02T03:04:05", "2025-01-02T03:04:05+00:00",
          "2025-02-29T00:00:00Z", "2025-13-01T00:00:00Z", "2025-01-02T24:00:00Z", "2025-1-02T03:04:05Z",
          "2025-01-02T03:04:05Zx", "-025-01-02T03:04:05Z"})
        EXPECT_EQ(parseIsoDate(text), std::nullopt) << text;
}
