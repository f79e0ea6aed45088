#include "Support/JsonFields.hpp"

#include "Support/Errors.hpp"
#include "Support/Json.hpp"

namespace tidewrack {

JsonFields::JsonFields(std::string_view text, std::string source) : source_(std::move(source)) {
    auto value = parseJson(text);
    if (!value || !value->is_object()) fail("it is not a JSON object");
    object_ = std::move(*value);
}

JsonFields::JsonFields(nlohmann::json object, std::string source)
    : object_(std::move(object)), source_(std::move(source)) {
    if (!object_.is_object()) fail("it is not a JSON object");
}

std::string JsonFields::text(const char* key) const {
    const auto& value = required(key);
    if (!value.is_string()) fail(std::string("\"") + key + "\" is not a text");
    return value.get<std::string>();
}

std::int64_t JsonFields::integer(const char* key) const {
    const auto& value = required(key);
    if (value.is_number_unsigned() && value.get<std::uint64_t>() > INT64_MAX)
        fail(std::string("\"") + key + "\" is too large");
    if (!value.is_number_integer()) fail(std::string("\"") + key + "\" is not an integer");
    return value.get<std::int64_t>();
}

bool JsonFields::boolean(const char* key) const {
    const auto& value = required(key);
    if (!value.is_boolean()) fail(std::string("\"") + key + "\" is not true or false");
    return value.get<bool>();
}

Date JsonFields::date(const char* key) const {
    const auto date = parseIsoDate(text(key));
    if (!date) fail(std::string("\"") + key + "\" is not a date");
    return *date;
}

std::vector<std::string> JsonFields::texts(const char* key) const {
    const auto& value = required(key);
    if (!value.is_array()) fail(std::string("\"") + key + "\" is not a list");
    std::vector<std::string> result;
    for (const auto& item : value) {
        if (!item.is_string()) fail(std::string("\"") + key + "\" holds something else than texts");
        result.push_back(item.get<std::string>());
    }
    return result;
}

std::vector<JsonFields> JsonFields::objects(const char* key) const {
    const auto& value = required(key);
    if (!value.is_array()) fail(std::string("\"") + key + "\" is not a list");
    std::vector<JsonFields> result;
    for (const auto& item : value) result.emplace_back(item, source_);
    return result;
}

std::optional<std::string> JsonFields::optionalText(const char* key) const {
    if (absent(key)) return std::nullopt;
    return text(key);
}

std::optional<std::int64_t> JsonFields::optionalInteger(const char* key) const {
    if (absent(key)) return std::nullopt;
    return integer(key);
}

std::optional<bool> JsonFields::optionalBoolean(const char* key) const {
    if (absent(key)) return std::nullopt;
    return boolean(key);
}

std::optional<std::vector<std::string>> JsonFields::optionalTexts(const char* key) const {
    if (absent(key)) return std::nullopt;
    return texts(key);
}

std::vector<JsonFields> JsonFields::optionalObjects(const char* key) const {
    if (absent(key)) return {};
    return objects(key);
}

const nlohmann::json& JsonFields::required(const char* key) const {
    const auto found = object_.find(key);
    if (found == object_.end()) fail(std::string("\"") + key + "\" is missing");
    return *found;
}

bool JsonFields::absent(const char* key) const {
    const auto found = object_.find(key);
    return found == object_.end() || found->is_null();
}

void JsonFields::fail(const std::string& what) const {
    throw TidewrackError::corrupt(source_ + ": " + what);
}

} // namespace tidewrack
