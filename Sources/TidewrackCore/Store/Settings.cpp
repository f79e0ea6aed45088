#include "Store/Settings.hpp"

#include "Store/ProjectLock.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"
#include "Support/JsonFields.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <cerrno>

namespace tidewrack {

namespace {

constexpr std::int64_t leastFree = std::int64_t{1} << 30;
constexpr std::int64_t partOfVolume = 20;
constexpr std::int64_t partOfSmallVolume = 10; // which holds less than ten times the least

// Empty where there is no such file.
std::string textOf(const std::string& path) {
    std::string text;
    const int error = readFile(path, text);
    if (error != 0 && error != ENOENT) throw TidewrackError::io("read", path, error);
    return error == 0 ? text : "{}";
}

Settings decode(const std::string& text, const std::string& path) {
    const JsonFields fields(std::string_view(text), path);
    return {fields.optionalInteger("floor"), fields.optionalInteger("cap")};
}

} // namespace

std::int64_t Settings::floorOf(const VolumeRoom& room) const {
    return floor.value_or(std::max(std::min(leastFree, room.all / partOfSmallVolume), room.all / partOfVolume));
}

std::string settingsPath(std::string_view storeHome) {
    return joined(storeHome, "settings.json");
}

Settings readSettings(std::string_view storeHome) {
    const std::string path = settingsPath(storeHome);
    return decode(textOf(path), path);
}

Settings settingsOrNone(std::string_view storeHome) {
    try {
        return readSettings(storeHome);
    } catch (const TidewrackError&) {
        return {};
    }
}

bool isAlmostFull(const std::string& storeHome) {
    const VolumeRoom room = volumeRoom(storeHome);
    return room.free < settingsOrNone(storeHome).floorOf(room);
}

void changeSettings(std::string_view storeHome, const std::function<void(Settings&)>& change) {
    const ProjectLock lock(joined(storeHome, "settings.lock"));
    const std::string path = settingsPath(storeHome);
    const std::string text = textOf(path);
    Settings settings = decode(text, path);
    change(settings);
    nlohmann::json object = nlohmann::json::parse(text);
    const auto put = [&](const char* key, const std::optional<std::int64_t>& value) {
        object.erase(key);
        if (value) object[key] = *value;
    };
    put("floor", settings.floor);
    put("cap", settings.cap);
    writeFileAtomically(path, compactJson(object));
}

} // namespace tidewrack
