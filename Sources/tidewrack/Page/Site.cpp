#include "Page/Site.hpp"

#include "Page/Assets.hpp"
#include "Support/Json.hpp"
#include "Support/Text.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack::page {

namespace {

using nlohmann::json;

constexpr std::size_t mostPlans = 200;
constexpr std::size_t longestWarnings = 2000;
constexpr std::string_view interface = "/api/";

constexpr const char* jsonType = "application/json; charset=utf-8";

std::string header(const Request& request, std::string_view name) {
    const auto found = request.headers.find(name);
    return found == request.headers.end() ? std::string() : found->second;
}

Answer refusal(int status, const std::string& why) {
    return {status, "text/plain; charset=utf-8", why + "\n", "", ""};
}

// In a time that does not tell how much of it was right.
bool isSame(std::string_view given, std::string_view right) {
    unsigned differences = given.size() == right.size() ? 0U : 1U;
    for (std::size_t at = 0; at < right.size(); ++at)
        differences |= right[at] == (at < given.size() ? given[at] : '\0') ? 0U : 1U;
    return differences == 0;
}

// Cut before they are made whole letters: they go into a header.
std::string warningsOf(const Ran& ran) {
    return repairedUtf8(std::string_view(ran.err).substr(0, longestWarnings));
}

// What a command printed, or why it printed nothing. Some tell by their status that all is not well, and print it.
Answer answerOf(const Ran& ran, const CommandWords& command) {
    const bool failed = command.isJson ? ran.out.empty() : ran.status != 0;
    if (failed) return {422, "text/plain; charset=utf-8", repairedUtf8(ran.err), command.shown(), ""};
    return {200, command.isJson ? jsonType : "application/octet-stream", ran.out, command.shown(), warningsOf(ran)};
}

// While it lives, something is being changed.
class Acting {
  public:
    explicit Acting(std::atomic<bool>& flag) : flag_(flag) { flag_ = true; }
    Acting(const Acting&) = delete;
    Acting& operator=(const Acting&) = delete;
    ~Acting() { flag_ = false; }

  private:
    std::atomic<bool>& flag_;
};

} // namespace

const std::map<std::string, std::string>& securityHeaders() {
    static const std::map<std::string, std::string> headers{
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src blob:; connect-src 'self'; base-uri 'none'; "
         "form-action 'none'; frame-ancestors 'none'"},
        {"X-Content-Type-Options", "nosniff"},
        {"Referrer-Policy", "no-referrer"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cache-Control", "no-store"},
    };
    return headers;
}

// A page of another site can reach this port, by its number or by a name that leads here: then the browser tells.
bool Site::isForUs(const Request& request) const {
    const std::string port = ":" + std::to_string(port_);
    const std::string host = header(request, "host");
    if (host != "127.0.0.1" + port && host != "localhost" + port) return false;
    const std::string origin = header(request, "origin");
    if (!origin.empty() && origin != "http://" + host) return false;
    const std::string from = header(request, "sec-fetch-site");
    if (from.empty() || from == "same-origin" || from == "none") return true;
    // A file leads the browser here when the page is opened. There is nothing of the project in what it gets.
    return request.method == "GET" && request.path == "/" && header(request, "sec-fetch-mode") == "navigate" &&
           header(request, "sec-fetch-dest") == "document";
}

Answer Site::answer(const Request& request) {
    if (!isForUs(request)) return refusal(403, "This page is for this machine's browser only.");
    if (request.path.starts_with(interface)) {
        if (!isSame(header(request, "x-tidewrack-token"), settings_.token))
            return refusal(403, "The token is wrong: open the address that tidewrack browse printed.");
        try {
            Answer answer = ofInterface(request);
            answer.isForUs = true;
            return answer;
        } catch (const BadRequest& bad) {
            return refusal(400, repairedUtf8(bad.what()));
        } catch (const OtherHunk& other) {
            return refusal(409, other.what());
        } catch (const std::exception& error) {
            return refusal(500, repairedUtf8(error.what()));
        }
    }
    const Asset* asset = assetAt(request.path == "/" ? "/index.html" : request.path);
    if (asset == nullptr) return refusal(404, "There is nothing here.");
    if (request.method != "GET") return refusal(405, "This can only be read.");
    return {200, asset->type, std::string(asset->bytes), "", ""};
}

Answer Site::ofInterface(const Request& request) {
    const std::string_view name = std::string_view(request.path).substr(interface.size());
    if (name == "plan" || name == "act") {
        if (request.method != "POST") return refusal(405, "This takes POST.");
        if (!header(request, "content-type").starts_with("application/json")) return refusal(415, "This takes JSON.");
        if (settings_.readOnly) return refusal(403, "This page was started with --read-only.");
        return name == "plan" ? plan(request) : carryOut(request);
    }
    if (request.method != "GET") return refusal(405, "This can only be read.");
    return read(request, name);
}

Answer Site::read(const Request& request, std::string_view name) const {
    if (name == "config")
        return {
            200, jsonType,
            compactJson({{"root", settings_.root}, {"readOnly", settings_.readOnly}, {"version", settings_.version}}),
            "", ""};
    const auto command = reading(name, request.query);
    if (!command) return refusal(404, "There is nothing here.");
    return answerOf(desk_.run(*command), *command);
}

Answer Site::plan(const Request& request) {
    const auto wish = parseJson(request.body);
    if (!wish) throw BadRequest("no JSON");
    const Act act = actOf(*wish);
    const std::lock_guard guard(mutex_);
    const Foreseen foreseen = desk_.foresee(act);
    if (foreseen.told.is_discarded()) return answerOf(foreseen.dry, act.command);
    if (plans_.size() >= mostPlans) plans_.erase(plans_.begin());
    plans_[++newest_] = {act, foreseen.identity};
    const json document{
        {"plan", newest_}, {"command", act.command.shown()}, {"result", foreseen.told}, {"hunks", foreseen.hunks}};
    return {200, jsonType, compactJson(document), act.command.shown(), warningsOf(foreseen.dry)};
}

Answer Site::carryOut(const Request& request) {
    const auto body = parseJson(request.body);
    if (!body || !body->is_object() || !body->contains("plan") || !(*body)["plan"].is_number_unsigned())
        throw BadRequest("no plan");
    const std::lock_guard guard(mutex_);
    const auto found = plans_.find((*body)["plan"].get<std::uint64_t>());
    if (found == plans_.end()) return refusal(409, "That plan is not known: look at it again first.");
    const Plan chosen = found->second;
    plans_.erase(found); // once
    const Acting acting(isActing_);
    if (hasEnded_) return refusal(503, "The page has ended; nothing was done.");
    const auto ran = desk_.carryOut(chosen.act, chosen.identity);
    if (!ran) return refusal(409, "More was changed meanwhile; nothing was done. Look at it again.");
    return answerOf(*ran, chosen.act.command);
}

} // namespace tidewrack::page
