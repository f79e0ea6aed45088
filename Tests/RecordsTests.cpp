#include "Support/TestHistory.hpp"

#include "Store/Records.hpp"
#include "Support/Errors.hpp"
#include "Support/Json.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace tidewrack;
using namespace tidewrack::testing;

namespace {

const std::string projectText = R"({"created":"2025-01-02T03:04:05Z","excludes":[".git","node_modules"],)"
                                R"("excludesIfIgnored":["build"],"id":"app-0123abcd","maxFileSize":1000,)"
                                R"("root":"\/Users\/ann\/app"})";
const std::string snapshotText = R"({"added":1,"agent":"claude","created":"2025-01-02T03:04:05Z","deleted":3,)"
                                 R"("durationMs":12,"files":4,"kind":"prompt","label":"fix \"a\/b\" ü","manifestOf":6,)"
                                 R"("modified":2,"pinned":true,"seq":7,"session":"s","turn":"t"})";

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

TEST(Records, requiredAndOptionalKeys) {
    const auto without = [](const std::string& text, const std::string& key) {
        auto object = nlohmann::json::parse(text);
        EXPECT_EQ(object.erase(key), 1U) << key;
        return object.dump();
    };
    for (const char* key : {"id", "root", "created", "excludes"})
        EXPECT_EQ(thrownBy([&] { return decodeProject(without(projectText, key), "p"); }),
                  std::string("Corrupt store data: p: \"") + key + "\" is missing");
    for (const char* key :
         {"seq", "created", "kind", "manifestOf", "files", "added", "modified", "deleted", "pinned", "durationMs"})
        EXPECT_EQ(thrownBy([&] { return decodeSnapshotMeta(without(snapshotText, key), "s"); }),
                  std::string("Corrupt store data: s: \"") + key + "\" is missing");
    for (const char* key : {"excludesIfIgnored", "maxFileSize"}) {
        const std::string text = without(projectText, key);
        EXPECT_EQ(compactJson(toJson(decodeProject(text, "p"))), compactJson(nlohmann::json::parse(text)));
    }
    for (const char* key : {"label", "agent", "session", "turn"}) {
        const std::string text = without(snapshotText, key);
        EXPECT_EQ(compactJson(toJson(decodeSnapshotMeta(text, "s"))), compactJson(nlohmann::json::parse(text)));
    }
}

TEST(Records, wrongTypesAndUnknownKeys) {
    const auto with = [](const std::string& text, const char* key, const nlohmann::json& value) {
        auto object = nlohmann::json::parse(text);
        object[key] = value;
        return object.dump();
    };
    EXPECT_EQ(decodeProject(with(projectText, "future", {1, 2}), "p"), decodeProject(projectText, "p"));
    EXPECT_EQ(decodeSnapshotMeta(with(snapshotText, "future", nullptr), "s"), decodeSnapshotMeta(snapshotText, "s"));
    const std::pair<const char*, nlohmann::json> wrong[] = {{"id", 1},         {"root", nullptr}, {"created", 5},
                                                            {"excludes", "x"}, {"excludes", {1}}, {"maxFileSize", "1"}};
    for (const auto& [key, value] : wrong)
        EXPECT_THROW((void)decodeProject(with(projectText, key, value), "p"), TidewrackError) << key;
    const std::pair<const char*, nlohmann::json> wrongMeta[] = {
        {"seq", "1"},       {"seq", 1.5},  {"seq", 18446744073709551615ULL}, {"pinned", 1}, {"label", 1},
        {"durationMs", {}}, {"kind", true}};
    for (const auto& [key, value] : wrongMeta)
        EXPECT_THROW((void)decodeSnapshotMeta(with(snapshotText, key, value), "s"), TidewrackError) << key;
    for (std::size_t length = 0; length < snapshotText.size(); ++length)
        EXPECT_THROW((void)decodeSnapshotMeta(snapshotText.substr(0, length), "s"), TidewrackError) << length;
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
