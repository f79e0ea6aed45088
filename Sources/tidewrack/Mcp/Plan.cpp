#include "Mcp/Plan.hpp"

#include "Mcp/Answers.hpp"
#include "Platform/Attributes.hpp"
#include "Platform/Libraries.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <fcntl.h>

#include <algorithm>
#include <set>

namespace tidewrack::mcp {

namespace {

using nlohmann::json;

// The paths that a dry run of `restore` or `undo` names.
std::set<std::string> touched(const json& told) {
    std::set<std::string> paths;
    for (const char* key : {"restored", "removed"})
        if (told.contains(key))
            for (const json& path : told[key]) paths.insert(path.get<std::string>());
    if (told.contains("projects"))
        for (const json& project : told["projects"])
            for (const json& action : project["actions"]) paths.insert(action["path"].get<std::string>());
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

std::string identifierOf(const std::vector<std::string>& words, json told, const std::string& root) {
    const std::set<std::string> paths = touched(told);
    // A running turn grows by the snapshots that hooks take; what is taken back of it stays the same.
    if (told.contains("projects"))
        for (json& project : told["projects"])
            for (json& span : project["takesBack"]) span.erase("to");
    std::string text = compactJson({words, told});
    for (const std::string& path : paths) text += path + '\0' + stateOf(joined(root, path)) + '\0';
    const auto digest = sha256(text);
    return hexText({reinterpret_cast<const char*>(digest.data()), 8});
}

} // namespace

json planOrDo(const std::vector<std::string>& words, const std::string& plan, const Surroundings& around) {
    const Ran told = runInside(withOption(withOption(words, "--dry-run"), "--json"), around);
    auto value = parseJson(told.out);
    if (!value) return failure(errorIn(told.err));
    const std::string identifier = identifierOf(words, *value, around.currentFolder);
    if (plan.empty()) {
        (*value)["plan"] = identifier;
        return answered(*value, told.err);
    }
    if (plan != identifier)
        return failure(
            "Nothing was changed: this is not the plan that would be carried out now. Call without `plan` to "
            "see that one.");
    const Ran done = runInside(withOption(words, "--json"), around);
    const auto result = parseJson(done.out);
    return result ? answered(*result, done.err) : failure(errorIn(done.err));
}

} // namespace tidewrack::mcp
