#include "PlanIdentity.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Libraries.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <fcntl.h>

#include <set>
#include <span>

namespace tidewrack {

namespace {

using nlohmann::json;

// The absolute paths that a dry run of `restore`, `undo` or `vault restore` names.
std::set<std::string> touched(const json& told, const std::string& root) {
    std::set<std::string> paths;
    for (const char* key : {"restored", "removed"})
        if (told.contains(key))
            for (const json& path : told[key]) paths.insert(joined(root, path.get<std::string>()));
    if (told.contains("projects"))
        for (const json& project : told["projects"])
            for (const json& action : project["actions"])
                paths.insert(joined(project["root"].get<std::string>(), action["path"].get<std::string>()));
    if (told.contains("items"))
        for (const json& item : told["items"]) paths.insert(item["path"].get<std::string>());
    return paths;
}

// As long as this stays the same, nobody has changed the path. A folder's times change with what is in it, which has
// rows of its own.
std::string stateOf(const std::string& path) {
    Attributes is;
    if (attributesAt(AT_FDCWD, path.c_str(), is) != 0) return "none";
    std::string text = std::to_string(static_cast<int>(is.kind)) + " " + std::to_string(is.mode);
    if (is.kind == Attributes::Kind::folder) return text;
    return text + " " + std::to_string(is.ino) + " " + std::to_string(is.size) + " " + std::to_string(is.ctime);
}

} // namespace

std::string planIdentity(const std::vector<std::string>& words, json told, const std::string& root) {
    if (!told.is_object()) told = json::object();
    const std::set<std::string> paths = touched(told, root);
    // A running turn grows by the snapshots that hooks take; what is taken back of it stays the same.
    if (told.contains("projects"))
        for (json& project : told["projects"])
            for (json& span : project["takesBack"]) span.erase("to");
    std::string text = compactJson({words, told});
    for (const std::string& path : paths) text += path + '\0' + stateOf(path) + '\0';
    const auto digest = sha256(text);
    return hexText(std::span(digest).first(8));
}

} // namespace tidewrack
