#include "Shell/DeepReading.hpp"

#include "Shell/Budget.hpp"
#include "Shell/ProtectedFolders.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view beforePaths = " \t\n'\"=,(<>|&;[{`@:";
constexpr std::string_view endsOfPaths = " \t\n'\"`;|&<>(),:*?[]{}$\\";

// What lies below belongs to the system or to installed programs.
constexpr std::array systemTrees = {"/bin"sv,  "/boot"sv, "/dev"sv,  "/lib"sv, "/lib64"sv,  "/nix"sv, "/opt/homebrew"sv,
                                    "/proc"sv, "/run"sv,  "/sbin"sv, "/sys"sv, "/System"sv, "/usr"sv};

// The file behind one of these is a program, which is read.
constexpr std::array interpreters = {"python"sv, "python3"sv, "node"sv,      "ruby"sv, "perl"sv,   "bash"sv,
                                     "sh"sv,     "zsh"sv,     "deno"sv,      "bun"sv,  "php"sv,    "lua"sv,
                                     "source"sv, "."sv,       "osascript"sv, "tsx"sv,  "Rscript"sv};
constexpr std::size_t longestInterpreter = 9;
static_assert(std::all_of(interpreters.begin(), interpreters.end(),
                          [](std::string_view name) { return name.size() <= longestInterpreter; }));

// Whether what stands at `at` is the command itself, or the program that an interpreter before it is to run.
bool isProgramsPlace(std::string_view line, std::size_t at) {
    std::string_view before = line.substr(0, at);
    before = before.substr(0, before.find_last_not_of(" \t") + 1);
    if (before.empty() || "|&;\n("sv.find(before.back()) != before.npos) return true;
    before.remove_prefix(before.size() - std::min(before.size(), longestInterpreter + 1));
    const std::string_view word = before.substr(before.find_last_of(" \t\n;|&(/") + 1);
    return std::find(interpreters.begin(), interpreters.end(), word) != interpreters.end();
}

// The length of the "~/", "../", "$HOME/" or "/" that the text begins with, without the slash; none when it begins no
// path.
std::optional<std::size_t> pathStart(std::string_view text) {
    for (const std::string_view start : {""sv, ".."sv, "~"sv, "$HOME"sv, "${HOME}"sv})
        if (text.starts_with(start) && text.substr(start.size()).starts_with('/')) return start.size();
    return std::nullopt;
}

// What may still be kept on suspicion.
struct Room {
    std::size_t entries = 0;
    std::int64_t bytes = 0;
};

// Whether what a folder holds fits, which is then taken off.
bool isSmall(const std::string& folder, Room& left) {
    return visitNames(folder,
                      [&](const char* name) {
                          if (left.entries == 0 || --left.entries == 0) return false;
                          const std::string path = joined(folder, name);
                          struct stat status {};
                          if (lstat(path.c_str(), &status) != 0) return true;
                          if (S_ISDIR(status.st_mode)) return isSmall(path, left);
                          left.bytes -= status.st_size;
                          return left.bytes >= 0;
                      }) == 0 &&
           left.entries > 0 && left.bytes >= 0;
}

// Gathers what a line and the lists that it reads mention.
class Mentions {
  public:
    explicit Mentions(const Context& context) : context_(context), protected_(context.home, context.projectRoots) {}

    // A line names programs too, which are only read; a list does not.
    void scan(std::string_view text, bool namesPrograms);
    void scanLists(std::string_view line);

    std::vector<std::string> take() {
        std::sort(paths_.begin(), paths_.end());
        paths_.erase(std::unique(paths_.begin(), paths_.end()), paths_.end());
        return std::move(paths_);
    }

    void addFolder(const std::string& folder);

  private:
    void scanList(std::string_view name);
    bool isWorthKeeping(const std::string& path);

    const Context& context_;
    ProtectedFolders protected_;
    std::size_t entries_ = 0; // of folders, looked at so far
    std::int64_t bytesLeft_ = Budget::bytesKeptOnSuspicion;
    std::vector<std::string> paths_;
    std::size_t looks_ = 0;
    std::size_t listBytes_ = 0;
};

// Whether what stands there is small, and nobody's but the user's.
bool Mentions::isWorthKeeping(const std::string& path) {
    for (const std::string_view tree : systemTrees)
        if (isAtOrBelow(path, tree)) return false;
    struct stat status {};
    if (protected_.holdsText(path) || lstat(path.c_str(), &status) != 0) return false;
    if (S_ISREG(status.st_mode)) {
        if ((status.st_mode & 0111) != 0 || status.st_size > bytesLeft_) return false;
        bytesLeft_ -= status.st_size;
        return true;
    }
    if (!S_ISDIR(status.st_mode) || entries_ >= Budget::entriesLookedAt || protected_.holdsFolder(path, false))
        return false;
    Room left{Budget::filesKeptOnSuspicion + 1, bytesLeft_};
    const bool small = isSmall(path, left);
    entries_ += Budget::filesKeptOnSuspicion + 1 - left.entries;
    if (small) bytesLeft_ = left.bytes;
    return small;
}

void Mentions::addFolder(const std::string& folder) {
    const auto& roots = context_.projectRoots;
    const auto holds = [&](const std::string& root) { return isAtOrBelow(folder, root); };
    if (std::none_of(roots.begin(), roots.end(), holds) && isWorthKeeping(folder)) paths_.push_back(folder);
}

void Mentions::scan(std::string_view text, bool namesPrograms) {
    for (std::size_t at = 0; at < text.size() && looks_ < Budget::mentions; ++at) {
        if (at > 0 && beforePaths.find(text[at - 1]) == beforePaths.npos) continue;
        const auto start = pathStart(text.substr(at));
        if (!start) continue;
        const std::size_t slash = at + *start;
        const bool isAddress = at > 0 && text[at - 1] == ':' && text.substr(slash).starts_with("//");
        const std::size_t end = std::min(text.find_first_of(endsOfPaths, slash), text.size());
        if (isAddress || end < slash + 2 || (namesPrograms && isProgramsPlace(text, at))) continue;
        const bool climbs = text[at] == '.';
        const std::string_view relative = text.substr(climbs ? at : slash + 1, end - (climbs ? at : slash + 1));
        std::string path = absolutePath(relative, climbs ? context_.cwd : *start == 0 ? "/" : context_.home);
        at = end;
        ++looks_;
        if (isWorthKeeping(path)) paths_.push_back(std::move(path));
    }
}

// The words of a list become operands: cat LIST | xargs rm, xargs -a LIST, while read ... < LIST.
void Mentions::scanLists(std::string_view line) {
    const auto holds = [&](std::string_view word) { return line.find(word) != line.npos; };
    if (!holds("xargs") && !holds("read") && !holds("mapfile") && !holds("parallel") && !holds("$(")) return;
    for (const std::string_view before : {"cat "sv, "< "sv, "<"sv, "-a "sv, "--arg-file="sv})
        for (std::size_t at = line.find(before); at != line.npos && looks_ < Budget::mentions;
             at = line.find(before, at + 1)) {
            const std::size_t begin = at + before.size();
            scanList(line.substr(begin, line.find_first_of(" \t\n;|&<>()'\"`$", begin) - begin));
        }
}

void Mentions::scanList(std::string_view name) {
    if (name.empty()) return;
    ++looks_;
    const std::string path = absolutePath(name, context_.cwd);
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    listBytes_ += static_cast<std::size_t>(status.st_size);
    if (std::string read; listBytes_ <= Budget::listBytes && readFile(path, read) == 0) scan(read, false);
}

} // namespace

std::vector<std::string> pathsAtRisk(std::string_view line, const std::vector<std::string>& opaque,
                                     const Context& context) {
    Mentions mentions(context);
    line = line.substr(0, Budget::nestedBytes);
    mentions.scan(line, true);
    mentions.scanLists(line);
    for (const std::string& folder : opaque) mentions.addFolder(folder);
    return mentions.take();
}

} // namespace tidewrack::shell
