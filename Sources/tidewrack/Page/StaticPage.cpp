#include "Page/StaticPage.hpp"

#include "Page/Assets.hpp"
#include "Platform/Libraries.hpp"
#include "Support/Errors.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>

namespace tidewrack::page {

namespace {

using nlohmann::json;

constexpr std::size_t largestPicture = 1U << 20U;
constexpr std::size_t picturesInAll = 16U << 20U;
constexpr std::size_t largestDocument = 4U << 20U; // one turn's lines; more would only keep the page from opening

void replaceAll(std::string& text, std::string_view old, std::string_view fresh) {
    for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos; at += fresh.size())
        text.replace(at, old.size(), fresh);
}

std::string_view asset(std::string_view path) {
    const Asset* found = assetAt(path);
    return found == nullptr ? std::string_view() : found->bytes;
}

std::string lastPart(const json& path) {
    return std::string(lastComponent(path.get_ref<const std::string&>()));
}

std::string base64(std::span<const std::uint8_t> bytes) {
    constexpr const char* letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t there = std::min<std::size_t>(bytes.size() - at, 3);
        std::uint32_t bits = 0;
        for (std::size_t each = 0; each < 3; ++each) bits = bits << 8U | (each < there ? bytes[at + each] : 0U);
        for (std::size_t each = 0; each < 4; ++each)
            text += each <= there ? letters[bits >> (18 - 6 * each) & 63U] : '=';
    }
    return text;
}

// Of one row: what somebody wrote, and where the projects lie.
void removeTexts(json& row) {
    row["title"] = "";
    for (json& command : row["commands"]) {
        command["command"] = "";
        if (command.contains("project")) command["project"] = lastPart(command["project"]);
    }
    for (json& other : row["meanwhile"]) other["title"] = "";
    for (json& project : row["projects"]) project = lastPart(project);
}

std::vector<std::string> linesIn(std::string_view text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        if (end > at) lines.emplace_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// What the page would ask a server for, by the names that page.js makes of its questions.
class Documents {
  public:
    Documents(const StaticSettings& settings, const Runner& runner) : settings_(settings), runner_(runner) {}

    std::optional<json> add(const char* name, const Values& values) {
        const auto command = reading(name, values);
        const Ran ran = runner_(command->forProject(settings_.root));
        auto document = parseJson(ran.out);
        noteMissing(ran, document.has_value(), command->shown());
        if (!document || ran.out.size() > largestDocument) return std::nullopt;
        if (!settings_.contents) {
            if (document->contains("turn")) removeTexts((*document)["turn"]);
            if (document->contains("rows"))
                for (json& row : (*document)["rows"]) removeTexts(row);
        }
        all_[keyOf(name, values)] = {{"command", command->shown()}, {"body", *document}, {"warnings", ""}};
        return document;
    }
    // Both sides of the pictures that changed in a row, `lines` being what was found of it. One that is too large, or
    // can't be read, is not in the file, and the page says so in its place.
    void addPictures(const json& lines) {
        for (const json& file : lines["files"]) {
            const std::string& path = file["path"].get_ref<const std::string&>();
            if (!isPicture(path)) continue;
            if (file["status"] != "added") addPicture(file["from"].get<std::int64_t>(), path);
            if (file["status"] != "deleted" && file.contains("to")) addPicture(file["to"].get<std::int64_t>(), path);
        }
    }
    void addConfig() {
        all_["config"] = {
            {"command", ""},
            {"warnings", ""},
            {"body",
             {{"root", repairedUtf8(settings_.contents ? settings_.root : std::string(lastComponent(settings_.root)))},
              {"readOnly", true},
              {"version", settings_.version},
              {"contents", settings_.contents},
              {"missing", missing_}}}};
    }
    [[nodiscard]] const std::vector<std::string>& missing() const { return missing_; }
    // As a script may hold it: no end of a script can be in it.
    [[nodiscard]] std::string text() const {
        std::string all = compactJson(all_);
        replaceAll(all, "<", "\\u003c");
        return all;
    }

  private:
    static std::string keyOf(const char* name, const Values& values) {
        std::string key = name;
        char sign = '?';
        for (const auto& [each, value] : values) {
            key.append(1, sign).append(each).append("=").append(value);
            sign = '&';
        }
        return key;
    }

    static bool isPicture(std::string_view path) {
        constexpr std::string_view endings[] = {".png",  ".jpg", ".jpeg", ".gif", ".webp",
                                                ".avif", ".bmp", ".ico",  ".svg"};
        const auto isSame = [](char one, char other) { return (one >= 'A' && one <= 'Z' ? one + 32 : one) == other; };
        return std::any_of(std::begin(endings), std::end(endings), [&](std::string_view ending) {
            const std::string_view last = path.substr(path.size() - std::min(path.size(), ending.size()));
            return std::equal(last.begin(), last.end(), ending.begin(), ending.end(), isSame);
        });
    }

    void addPicture(std::int64_t seq, const std::string& path) {
        const Values values{{"path", path}, {"seq", std::to_string(seq)}};
        const std::string key = keyOf("content", values);
        if (all_.contains(key)) return;
        const auto command = reading("content", values);
        const Ran ran = runner_(command->forProject(settings_.root));
        if (ran.status != 0 || ran.out.size() > largestPicture || ran.out.size() > picturesInAll - pictureBytes_)
            return;
        pictureBytes_ += ran.out.size();
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(ran.out.data());
        all_[key] = {{"command", command->shown()}, {"body", base64({bytes, ran.out.size()})}, {"warnings", ""}};
    }

    // What a command warns of may name folders and prompts: without contents it is told that there was something.
    void noteMissing(const Ran& ran, bool isRead, const std::string& command) {
        std::vector<std::string> lines;
        if (ran.out.size() > largestDocument) lines.push_back(command + " prints more than the file may hold");
        if (!isRead || !ran.err.empty()) lines.push_back(command + " could not be read in full");
        if (settings_.contents && !ran.err.empty()) lines = linesIn(repairedUtf8(ran.err));
        for (std::string& line : lines)
            if (std::find(missing_.begin(), missing_.end(), line) == missing_.end())
                missing_.push_back(std::move(line));
    }

    const StaticSettings& settings_;
    const Runner& runner_;
    std::vector<std::string> missing_;
    std::size_t pictureBytes_ = 0;
    json all_ = json::object();
};

// A part that stands in the file, and is told to the browser by its digest: nothing else may run.
class Inline {
  public:
    // In a text or a pattern of a script "<\/" reads as "</".
    std::string script(std::string_view bytes) {
        std::string text = "\n" + std::string(bytes);
        replaceAll(text, "</script", "<\\/script");
        replaceAll(text, "<!--", "<\\!--");
        allow(scripts_, text);
        return "<script>" + text + "</script>\n";
    }
    std::string style(std::string_view bytes) {
        allow(styles_, bytes);
        return "<style>" + std::string(bytes) + "</style>";
    }
    // Loads nothing, and talks to nobody; pictures are made of what is in the file.
    [[nodiscard]] std::string policy() const {
        return "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src" + styles_ +
               "; script-src" + scripts_ + "; img-src blob:; base-uri 'none'; form-action 'none'\">\n";
    }

  private:
    static void allow(std::string& list, std::string_view text) { list += " 'sha256-" + base64(sha256(text)) + "'"; }

    std::string scripts_;
    std::string styles_;
};

} // namespace

StaticPage staticPage(const StaticSettings& settings, const Runner& runner) {
    Documents documents(settings, runner);
    Values asked{{"n", std::to_string(settings.rows)}};
    if (!settings.agent.empty()) asked["agent"] = settings.agent;
    if (!settings.session.empty()) asked["session"] = settings.session;
    const auto timeline = documents.add("timeline", asked);
    if (!timeline) throw TidewrackError::refused("The timeline can't be read.");
    for (const json& row : (*timeline)["rows"]) {
        const std::string first = std::to_string(row["first"].get<std::int64_t>());
        const bool isTurn = row["type"] == "turn";
        Values span{{"from", first}, {"to", std::to_string(row["last"].get<std::int64_t>())}};
        if (isTurn) span = {{"turn", first}};
        (void)documents.add(isTurn ? "show" : "changes", span);
        if (!settings.contents) continue;
        if (const auto lines = documents.add("lines", span)) documents.addPictures(*lines);
    }
    documents.addConfig();
    Inline parts;
    const std::string style = parts.style(asset("/page.css"));
    std::string scripts = "<script type=\"application/json\" id=\"documents\">" + documents.text() + "</script>\n";
    if (settings.contents) scripts += parts.script(asset("/highlight.js"));
    scripts += parts.script(asset("/page.js"));
    std::string page(asset("/index.html"));
    replaceAll(page, "<link rel=\"stylesheet\" href=\"page.css\">", parts.policy() + style);
    replaceAll(page, "<script src=\"page.js\" defer></script>", "");
    replaceAll(page, "</body>", scripts + "</body>");
    return {std::move(page), documents.missing()};
}

} // namespace tidewrack::page
