#pragma once
// Typed reading of a record's JSON fields, shared by every record in the store.

#include "Support/Dates.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// Reads fields of one JSON object. A failure throws TidewrackError corrupt, which names the source and the field.
class JsonFields {
  public:
    // Throws when `text` is no JSON object. `source` names the record in errors.
    JsonFields(std::string_view text, std::string source);
    // Fields of an object inside a record.
    JsonFields(nlohmann::json object, std::string source);

    [[nodiscard]] std::string text(const char* key) const;
    [[nodiscard]] std::int64_t integer(const char* key) const;
    [[nodiscard]] bool boolean(const char* key) const;
    [[nodiscard]] Date date(const char* key) const;
    [[nodiscard]] std::vector<std::string> texts(const char* key) const;
    [[nodiscard]] std::vector<JsonFields> objects(const char* key) const;

    // Absent: the key is missing or null.
    [[nodiscard]] std::optional<std::string> optionalText(const char* key) const;
    [[nodiscard]] std::optional<std::int64_t> optionalInteger(const char* key) const;
    [[nodiscard]] std::optional<bool> optionalBoolean(const char* key) const;
    [[nodiscard]] std::optional<std::vector<std::string>> optionalTexts(const char* key) const;
    [[nodiscard]] std::vector<JsonFields> optionalObjects(const char* key) const; // absent: none

  private:
    [[nodiscard]] const nlohmann::json& required(const char* key) const;
    [[nodiscard]] bool absent(const char* key) const;
    [[noreturn]] void fail(const std::string& what) const;

    nlohmann::json object_;
    std::string source_;
};

} // namespace tidewrack
