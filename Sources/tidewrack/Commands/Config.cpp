// What can be set for a project, and for all of them.

#include "Commands/Commands.hpp"
#include "Invocation.hpp"
#include "Platform/Volumes.hpp"
#include "Store/Settings.hpp"
#include "Support/Errors.hpp"
#include "Support/Text.hpp"
#include "Walk/Walker.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>

namespace tidewrack::commands {

namespace {

struct Setting {
    std::string key;
    std::vector<std::string> values;
    bool isOwn = false; // else it is the program's
    std::string note{}; // behind it, where people read it
};

constexpr std::string_view ofStore = "store.";

std::string textOf(std::optional<std::int64_t> bytes) {
    return bytes ? std::to_string(*bytes) : "none";
}

Setting capSetting(const char* key, std::optional<std::int64_t> bytes) {
    return {key, {textOf(bytes)}, bytes.has_value(), bytes ? bytesText(*bytes) : ""};
}

std::vector<Setting> settingsOf(const Store& store) {
    const Settings settings = readSettings(store.home);
    const std::int64_t floor = settings.floorOf(volumeRoom(store.home));
    return {{"store.floor", {std::to_string(floor)}, settings.floor.has_value(), bytesText(floor)},
            capSetting("store.cap", settings.cap)};
}

std::vector<Setting> settingsOf(const Project& project) {
    const std::int64_t largest = project.maxFileSize.value_or(Project::defaultMaxFileSize);
    return {{"maxFileSize", {std::to_string(largest)}, project.maxFileSize.has_value(), bytesText(largest)},
            capSetting("project.cap", project.cap),
            {"excludes", project.excludes, true},
            {"excludesIfIgnored", project.excludesIfIgnored.value_or(defaultExcludesIfIgnored()),
             project.excludesIfIgnored.has_value()},
            {"patterns", project.patterns, !project.patterns.empty()}};
}

Setting settingCalled(Invocation& call, const std::string& key) {
    const bool isStores = key.starts_with(ofStore);
    std::string known;
    for (Setting& each : isStores ? settingsOf(call.store()) : settingsOf(call.project())) {
        if (each.key == key) return std::move(each);
        known += (known.empty() ? "" : ", ") + each.key;
    }
    throw CliError("There is no setting " + key + ". Known: " + known + (isStores ? "." : ", store.floor, store.cap."));
}

// "1000", "300M": with K, M, G or T for powers of 1024. None for anything else.
std::optional<std::int64_t> sizeOf(std::string_view text) {
    constexpr std::string_view units = "KMGT";
    std::int64_t factor = 1;
    if (const auto unit = text.empty() ? std::string_view::npos : units.find(text.back());
        unit != std::string_view::npos) {
        factor <<= 10 * (unit + 1);
        text.remove_suffix(1);
    }
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 0 || number > INT64_MAX / factor)
        return std::nullopt;
    return number * factor;
}

std::string text(Invocation& call, const Setting& setting) {
    std::string line = setting.key + " =";
    for (const std::string& value : setting.values) line += " " + call.shown(value);
    if (!setting.note.empty()) line += " (" + setting.note + ")";
    return line + (setting.isOwn ? "\n" : "  default\n");
}

} // namespace

int configList(Invocation& call) {
    std::vector<Setting> settings = settingsOf(call.project());
    for (Setting& each : settingsOf(call.store())) settings.push_back(std::move(each));
    nlohmann::json list = nlohmann::json::array();
    for (const Setting& setting : settings) {
        if (!call.json()) call.print(text(call, setting));
        nlohmann::json values = nlohmann::json::array();
        for (const std::string& value : setting.values) values.push_back(repairedUtf8(value));
        list.push_back({{"key", setting.key}, {"values", values}, {"isDefault", !setting.isOwn}});
    }
    if (call.json()) call.printJson({{"version", 1}, {"settings", list}});
    return 0;
}

int configGet(Invocation& call) {
    if (!call.args.word(0)) throw CliError("missing key");
    const Setting setting = settingCalled(call, *call.args.word(0));
    for (const std::string& value : setting.values) call.print(call.shown(value) + "\n");
    return 0;
}

int configSet(Invocation& call) {
    const auto key = call.args.word(0);
    const auto value = call.args.word(1);
    if (!key || !value) throw CliError(key ? "missing value" : "missing key");
    (void)settingCalled(call, *key); // there is such a one
    const bool isFloor = *key == "store.floor";
    if (!isFloor && *key != "store.cap" && *key != "project.cap" && *key != "maxFileSize")
        throw CliError(*key + " is changed by: tidewrack exclude PATH, tidewrack include PATH");
    const auto size = sizeOf(*value);
    if (*value != "default" && (!size || (*size == 0 && !isFloor)))
        throw CliError(*key + " takes a size, such as 300M, or default.");
    if (key->starts_with(ofStore)) {
        changeSettings(call.store().home,
                       [&](Settings& settings) { (isFloor ? settings.floor : settings.cap) = size; });
        return 0;
    }
    const History history = call.store().history(call.project());
    const ProjectLock lock(history.lockPath());
    history.changeProject(lock,
                          [&](Project& record) { (*key == "project.cap" ? record.cap : record.maxFileSize) = size; });
    return 0;
}

// `config` alone lists.
int config(Invocation& call) {
    if (const auto word = call.args.word(0)) throw CliError("unknown command config " + *word);
    return configList(call);
}

} // namespace tidewrack::commands
