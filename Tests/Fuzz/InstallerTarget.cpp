// Agents' configuration files, edited on disk: the first byte chooses the agent, the others are the file.

#include "Fuzz/Fuzz.hpp"
#include "Platform/Copies.hpp"
#include "Platform/Descriptor.hpp"
#include "Platform/Process.hpp"

#include "Agents/HookEntries.hpp"
#include "Agents/Installer.hpp"
#include "Support/Files.hpp"
#include "Support/Json.hpp"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <stdlib.h>
#include <unistd.h>

using namespace tidewrack;
using fuzz::require;
using nlohmann::json;

namespace {

// A home for the whole program; in memory where the system has such a place, for the sake of speed.
const std::string& home() {
    struct Folder {
        Folder() {
            const char* chosen = ::getenv("TMPDIR");
            const char* inMemory = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
            path = std::string(chosen ? chosen : inMemory) + "/tidewrack-fuzz-XXXXXX";
            require(::mkdtemp(path.data()) != nullptr, "there is room for temporary files");
        }
        ~Folder() { (void)removeTree(path); }
        std::string path;
    };
    static const Folder folder;
    return folder.path;
}

// Lists and objects that are empty go with our entries: whether they were there before, nothing tells.
json withoutEmptyParts(json config, Agent agent) {
    const auto hooks = config.find("hooks");
    if (hooks != config.end() && hooks->is_object()) {
        const json ours = HookEntries("/opt/tidewrack", agent).block();
        for (const auto& [event, list] : ours.items())
            if (hooks->contains(event) && (*hooks)[event] == json::array()) hooks->erase(event);
        if (hooks->empty()) config.erase(hooks);
    }
    if (traitsOf(agent).config == AgentTraits::Config::hooks) config.erase("version");
    return config;
}

// The commands of other tools in the lists of hooks, in their order.
void collectForeign(const json& value, const HookEntries& ours, std::string& commands) {
    if (value.is_array()) {
        for (const json& item : value) collectForeign(item, ours, commands);
    } else if (value.is_object() && !(value.contains("command") && ours.areIn({{"command", value["command"]}}))) {
        if (value.contains("command")) commands += compactJson(value["command"]) + '\n';
        if (value.contains("hooks")) collectForeign(value["hooks"], ours, commands);
    }
}

std::string foreignCommands(const json& config, const HookEntries& ours) {
    std::string commands;
    if (config.contains("hooks"))
        for (const json& event : config["hooks"]) collectForeign(event, ours, commands);
    return commands;
}

class Configuration {
  public:
    Configuration(Agent agent, std::string_view bytes)
        : agent_(agent), installer_{home(), "/opt/it's here/tidewrack"}, path_(installer_.configPath(agent)) {
        (void)makeFolders(path_.substr(0, path_.rfind('/')), 0755);
        ::unlink(path_.c_str()); // cutting a file short can wait for the disk
        const Descriptor file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        require(file && writeAll(file.get(), bytes) == 0, "a temporary file is written");
    }

    std::string bytes() const {
        std::string text;
        const bool mayBeGone = traitsOf(agent_).isOwnFile && !isInstalled();
        require(readFile(path_, text) == 0 || mayBeGone, "the file is there");
        return text;
    }

    json value() const {
        if (bytes().empty()) return json::object();
        const auto parsed = parseJsonKeepingDigits(bytes());
        require(parsed && parsed->is_object(), "what was written is plain JSON");
        return *parsed;
    }

    HookInstaller::Result install() { return installer_.install(agent_); }
    HookInstaller::Result uninstall() { return installer_.uninstall(agent_); }
    bool isInstalled() const { return installer_.isInstalled(agent_); }

    // For a file that held `before`, an object.
    void checkEdits(const json& before) {
        const bool foreign = !isInstalled();
        const auto installed = install();
        const std::string once = bytes();
        require(!install().changed && bytes() == once, "installing twice is installing once");
        // What is in the way is named in a note.
        require(isInstalled() || installed.note, "what was installed is found");
        uninstall();
        require(!isInstalled(), "what was taken out is not found");
        const std::string without = bytes();
        require(!uninstall().changed && bytes() == without, "what was taken out is out");
        const json after = withoutEmptyParts(installed.changed ? value() : before, agent_);
        const HookEntries ours(installer_.binary, agent_);
        require(foreignCommands(after, ours) == foreignCommands(before, ours), "other tools keep their hooks");
        if (foreign) require(after == withoutEmptyParts(before, agent_), "taking out gives back what was");
        Configuration other(agent_, prettyJson(before, Slashes::plain));
        other.uninstall();
        require(withoutEmptyParts(other.value(), agent_) == after, "what was installed leaves no trace");
    }

  private:
    Agent agent_;
    HookInstaller installer_;
    std::string path_;
};

} // namespace

FUZZ_TARGET(installer) {
    if (input.empty()) return;
    const Agent agent = allAgents[static_cast<unsigned char>(input[0]) % allAgents.size()];
    if (traitsOf(agent).config == AgentTraits::Config::plugin) return; // nobody's but ours
    input.remove_prefix(1);
    Configuration file(agent, input);
    const auto before = parseJsonKeepingDigits(input);
    if (before && before->is_object()) {
        file.checkEdits(*before);
    } else if (input.find_first_not_of("\xEF\xBB\xBF \t\r\n") != input.npos) {
        require(!file.install().changed && !file.uninstall().changed, "what is no object is not edited");
        require(file.bytes() == input, "what is not edited stays byte for byte");
    }
}
