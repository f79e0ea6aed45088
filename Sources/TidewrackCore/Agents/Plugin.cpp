#include "Agents/Plugin.hpp"

#include "Support/Json.hpp"

#include <nlohmann/json.hpp>

namespace tidewrack {

std::string opencodePlugin(std::string_view binary, std::string_view command) {
    std::string text = "// Runs: ";
    text.append(command).append(R"(
// `tidewrack hooks install` writes this file, `tidewrack hooks uninstall` removes it.
import { spawnSync } from "node:child_process"

const call = (event) =>
  spawnSync()");
    text += prettyJson(std::string(binary), Slashes::plain);
    text += R"(, ["hook", "opencode"], { input: JSON.stringify(event), timeout: 30000, encoding: "utf8" })

export const Tidewrack = async ({ directory }) => ({
  "chat.message": async (input, output) => {
    const prompt = output.parts.map((part) => part.text ?? "").join("\n")
    call({ hook_event_name: "chat.message", session_id: input.sessionID, cwd: directory, prompt })
  },
  "tool.execute.before": async (input, output) => {
    const answer = call({
      hook_event_name: "tool.execute.before",
      session_id: input.sessionID,
      cwd: directory,
      tool_name: input.tool,
      tool_input: output.args,
    })
    if (answer.status === 2) throw new Error(answer.stderr)
  },
  event: async ({ event }) => {
    if (event.type !== "session.idle") return
    call({ hook_event_name: "session.idle", session_id: event.properties.sessionID, cwd: directory })
  },
})
)";
    return text;
}

} // namespace tidewrack
