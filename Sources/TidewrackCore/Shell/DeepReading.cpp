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

bool isProgramsPlace(std::string_view line, std::size_t at) {
    const std::size_t end = line.find_last_not_of(" \t", at == 0 ? 0 : at - 1);
    if (at == 0 || end == line.npos) return true; // the command itself
    if (line.find_first_of("|&;\n(", end) == end) return true;
    const std::size_t begin = line.find_last_of(" \t\n;|&(", end);
    const std::string_view word =
        line.substr(begin == line.npos ? 0 : begin + 1, end - (begin == line.npos ? 0 : begin + 1) + 1);
    return std::find(interpreters.begin(), interpreters.end(), lastComponent(word)) != interpreters.end();
}

// The length of the "~/", "../", "$HOME/" or "/" that the text begins with, without the slash; none when it begins no
// path.
std::optional<std::size_t> pathStart(std::string_view text) {
    for (const std::string_view start : {""sv, ".."sv, "~"sv, "$HOME"sv, "${HOME}"sv})
        if (text.starts_with(start) && text.substr(start.size()).starts_with('/')) return start.size();
    return std::nullopt;
}

// Whether a folder holds no more files than may be kept on suspicion.
bool isSmall(const std::string& folder, std::size_t& left) {
    return visitNames(folder,
                      [&](const char* name) {
                          if (left == 0 || --left == 0) return false;
                          const std::string path = joined(folder, name);
                          struct stat status {};
                          const bool isFolder = lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
                          return !isFolder || isSmall(path, left);
                      }) == 0 &&
           left > 0;
}

} // namespace

bool isWorthKeeping(const std::string& path, const Context& context) {
    for (const std::string_view tree : systemTrees)
        if (isAtOrBelow(path, tree)) return false;
    ProtectedFolders protectedFolders(context.home, context.projectRoots);
    struct stat status {};
    if (protectedFolders.holdsText(path) || lstat(path.c_str(), &status) != 0) return false;
    if (S_ISREG(status.st_mode)) return (status.st_mode & 0111) == 0;
    std::size_t left = Budget::filesKeptOnSuspicion + 1;
    return S_ISDIR(status.st_mode) && !protectedFolders.holdsFolder(path, false) && isSmall(path, left);
}

std::vector<std::string> mentionedPaths(std::string_view line, const Context& context) {
    std::vector<std::string> paths;
    line = line.substr(0, Budget::nestedBytes);
    std::size_t looks = 0;
    for (std::size_t at = 0; at < line.size() && looks < Budget::mentions; ++at) {
        if (at > 0 && beforePaths.find(line[at - 1]) == beforePaths.npos) continue;
        const auto start = pathStart(line.substr(at));
        if (!start) continue;
        const std::size_t slash = at + *start;
        const bool isAddress = at > 0 && line[at - 1] == ':' && line.substr(slash).starts_with("//");
        const std::size_t end = std::min(line.find_first_of(endsOfPaths, slash), line.size());
        const std::string_view text = line.substr(slash, end - slash);
        const bool isProgram = isProgramsPlace(line, at);
        if (isAddress || isProgram || text.size() < 2) continue;
        const bool climbs = line[at] == '.';
        const std::string_view relative = climbs ? line.substr(at, end - at) : text.substr(1);
        std::string path = absolutePath(relative, climbs ? context.cwd : *start == 0 ? "/" : context.home);
        at = end;
        ++looks;
        if (isWorthKeeping(path, context)) paths.push_back(std::move(path));
    }
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    return paths;
}

} // namespace tidewrack::shell
