#include "Page/StaticPage.hpp"

#include "Page/Assets.hpp"
#include "Support/Errors.hpp"
#include "Support/Json.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>

namespace tidewrack::page {

namespace {

using nlohmann::json;

constexpr std::size_t largestDocument = 4U << 20U; // one turn's lines; more would only keep the page from opening

// Loads nothing, and talks to nobody.
constexpr const char* policy =
    "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'; "
    "script-src 'unsafe-inline'; base-uri 'none'; form-action 'none'\">\n";

void replaceAll(std::string& text, std::string_view old, std::string_view fresh) {
    for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos; at += fresh.size())
        text.replace(at, old.size(), fresh);
}

std::string_view asset(std::string_view path) {
    const Asset* found = assetAt(path);
    return found == nullptr ? std::string_view() : found->bytes;
}

// What the page would ask a server for, by the names that page.js makes of its questions.
class Documents {
  public:
    Documents(const StaticSettings& settings, const Runner& runner) : settings_(settings), runner_(runner) {}

    std::optional<json> add(const char* name, const Values& values) {
        const auto command = reading(name, values);
        const Ran ran = runner_(command->forProject(settings_.root));
        auto document = parseJson(ran.out);
        if (!document || ran.out.size() > largestDocument) return std::nullopt;
        std::string key = name;
        char sign = '?';
        for (const auto& [each, value] : values) {
            key.append(1, sign).append(each).append("=").append(value);
            sign = '&';
        }
        all_[key] = {{"command", command->shown()}, {"body", *document}};
        return document;
    }
    void addConfig() {
        all_["config"] = {{"command", ""},
                          {"body",
                           {{"root", repairedUtf8(settings_.root)},
                            {"readOnly", true},
                            {"version", settings_.version},
                            {"contents", settings_.contents}}}};
    }
    // As a script may hold it: no end of a script can be in it.
    [[nodiscard]] std::string text() const {
        std::string all = compactJson(all_);
        replaceAll(all, "<", "\\u003c");
        return all;
    }

  private:
    const StaticSettings& settings_;
    const Runner& runner_;
    json all_ = json::object();
};

// In a text or a pattern of a script both read the same.
std::string script(std::string_view bytes) {
    std::string text(bytes);
    replaceAll(text, "</script", "<\\/script");
    replaceAll(text, "<!--", "<\\!--");
    return "<script>\n" + text + "</script>\n";
}

} // namespace

std::string staticPage(const StaticSettings& settings, const Runner& runner) {
    Documents documents(settings, runner);
    documents.addConfig();
    const auto timeline = documents.add("timeline", {{"n", std::to_string(settings.rows)}});
    if (!timeline) throw TidewrackError::refused("The timeline can't be read.");
    for (const json& row : (*timeline)["rows"]) {
        const std::string first = std::to_string(row["first"].get<std::int64_t>());
        const bool isTurn = row["type"] == "turn";
        Values span{{"from", first}, {"to", std::to_string(row["last"].get<std::int64_t>())}};
        if (isTurn) span = {{"turn", first}};
        (void)documents.add(isTurn ? "show" : "changes", span);
        if (settings.contents) (void)documents.add("lines", span);
    }
    std::string page(asset("/index.html"));
    replaceAll(page, "<link rel=\"stylesheet\" href=\"page.css\">",
               std::string(policy) + "<style>\n" + std::string(asset("/page.css")) + "</style>");
    std::string scripts = "<script type=\"application/json\" id=\"documents\">" + documents.text() + "</script>\n";
    if (settings.contents) scripts += script(asset("/highlight.js"));
    scripts += script(asset("/page.js"));
    replaceAll(page, "<script src=\"page.js\" defer></script>", "");
    replaceAll(page, "</body>", scripts + "</body>");
    return page;
}

} // namespace tidewrack::page
