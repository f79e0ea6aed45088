#include "Mcp/Plan.hpp"

#include "Mcp/Answers.hpp"
#include "PlanIdentity.hpp"
#include "Support/Json.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack::mcp {

using nlohmann::json;

json planOrDo(const std::vector<std::string>& words, const std::string& plan, const Surroundings& around) {
    const Ran told = runInside(withOption(withOption(words, "--dry-run"), "--json"), around);
    auto value = parseJson(told.out);
    if (!value) return failure(errorIn(told.err));
    const std::string identifier = planIdentity(words, *value, around.currentFolder);
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
