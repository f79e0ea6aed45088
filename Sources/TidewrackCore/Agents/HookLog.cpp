#include "Agents/HookLog.hpp"

#include "Platform/Attributes.hpp"
#include "Platform/Deadline.hpp"
#include "Platform/Process.hpp"
#include "Support/Dates.hpp"
#include "Support/LineLog.hpp"
#include "Support/Text.hpp"

#include <algorithm>
#include <cerrno>
#include <exception>

namespace tidewrack {

void HookLog::append(std::string_view agent, std::string_view event, Instant start, std::string_view message) const
    try {
    std::string line = isoText(now());
    line.append(" ").append(agent).append(" ").append(event).append(" ");
    line.append(std::to_string(millisecondsSince(start))).append("ms ").append(message);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r' || c == '\0'; }, ' ');
    line = escapedControls(line); // whoever looks at the log does so in a terminal
    store_.refuseForeign();
    const std::string path = store_.home + "/hooks.log";
    if (appendLine(path, line, longest) == ENOENT && store_.makeHome() == 0) (void)appendLine(path, line, longest);
} catch (const std::exception&) { // no answer is worth less because of its line
}

} // namespace tidewrack
