#include "Shell/DeepReading.hpp"

#include "Shell/Budget.hpp"
#include "Shell/Expansion.hpp"
#include "Shell/Lexer.hpp"
#include "Shell/ListRules.hpp"
#include "Shell/NameFilter.hpp"
#include "Support/Files.hpp"
#include "Support/Paths.hpp"
#include "Support/Sorted.hpp"

#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

constexpr std::string_view beforePaths = " \t\n'\"=,(<>|&;[{`@:#"; // sed s#^#../out/#
constexpr std::string_view endsOfPaths = " \t\n'\"`;|&<>(),:*?[]{}$\\";

// What lies in these folders of the root belongs to the system or to installed programs.
constexpr std::array systemTrees = {"bin"sv,  "boot"sv, "dev"sv,  "lib"sv, "lib64"sv,  "nix"sv,
                                    "proc"sv, "run"sv,  "sbin"sv, "sys"sv, "System"sv, "usr"sv};

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
    if (before.ends_with("=(")) return false; // an array's first item
    if (before.empty() || "|&;\n("sv.find(before.back()) != before.npos) return true;
    before.remove_prefix(before.size() - std::min(before.size(), longestInterpreter + 1));
    const std::size_t separator = before.find_last_of(" \t\n;|&(/");
    const std::string_view word = before.substr(separator + 1);
    if (word == "." && separator != before.npos && before[separator] == '/') return false; // x/.
    return std::find(interpreters.begin(), interpreters.end(), word) != interpreters.end();
}

// Whether a path may begin here, behind a blank, a quote, or an option of one letter: -o/abs.
bool mayBegin(std::string_view text, std::size_t at) {
    if (at == 0 || beforePaths.find(text[at - 1]) != beforePaths.npos) return true;
    const bool letter = (text[at - 1] | 0x20) >= 'a' && (text[at - 1] | 0x20) <= 'z';
    return letter && at > 2 && text[at - 2] == '-' && " \t\n'\""sv.find(text[at - 3]) != beforePaths.npos;
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

// Whether a folder's contents fit into `left`, from which they are subtracted.
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

// The commands of a line, and those within their words.
std::vector<const Command*> withNested(const Program& program) {
    std::vector<const Command*> all;
    for (const Command& command : program.commands) {
        all.push_back(&command);
        for (const Substitution& substitution : command.nested)
            for (const Command* inner : withNested(substitution.program)) all.push_back(inner);
    }
    return all;
}

// Gathers what a line and the lists that it reads mention.
class Mentions {
  public:
    Mentions(const Context& context, Effects& effects) : context_(context), effects_(effects) {}

    // A line names programs too, which are only read; a list does not.
    void scan(std::string_view text, bool namesPrograms);
    void scanLists(std::string_view line);
    void scanFiles(std::string_view line);
    void scanVariables(std::string_view text);
    void scanHomes(std::string_view text);
    // The words that name something in a folder of which no copy is made as a whole.
    void scanWordsBelow(const std::string& folder, std::string_view line);

    std::vector<std::string> take() {
        sortAndDedupe(paths_);
        return std::move(paths_);
    }

    void addFolder(const std::string& folder);
    // The files that a command lists, as far as they are small and not too many.
    void addListed(const Listing& listing, const std::string& folder, std::size_t depth);

  private:
    void scanList(std::string_view name);
    bool isWorthKeeping(const std::string& path);
    void mention(std::string path);
    void mentionFolderOf(const std::string& script);
    void takeProtected(const std::string& folder, std::string_view behind);

    const Context& context_;
    Effects& effects_;
    std::size_t entries_ = 0; // of folders, looked at so far
    std::int64_t bytesLeft_ = Budget::bytesKeptOnSuspicion;
    std::vector<std::string> paths_;
    std::size_t looks_ = 0;
    std::size_t listBytes_ = 0;
};

// Whether the path leads to something small that is no program, not protected and not in the system's trees.
bool Mentions::isWorthKeeping(const std::string& path) {
    struct stat status {};
    if (belongsToSystem(path) || lstat(path.c_str(), &status) != 0) return false; // most guesses end here
    ProtectedFolders& protectedFolders = effects_.protectedFolders();
    if (protectedFolders.holdsText(path)) return false;
    if (S_ISREG(status.st_mode)) {
        if ((status.st_mode & 0111) != 0 || status.st_size > bytesLeft_) return false;
        bytesLeft_ -= status.st_size;
        return true;
    }
    if (!S_ISDIR(status.st_mode) || entries_ >= Budget::entriesLookedAt || protectedFolders.holdsFolder(path, false))
        return false;
    Room left{Budget::filesKeptOnSuspicion + 1, bytesLeft_};
    const bool small = isSmall(path, left);
    entries_ += Budget::filesKeptOnSuspicion + 1 - left.entries;
    if (small) bytesLeft_ = left.bytes;
    return small;
}

// Of a project a snapshot is taken, whatever its size.
void Mentions::mention(std::string path) {
    const bool isThere = context_.isInProject(path) ? exists(path) : isWorthKeeping(path);
    if (isThere) paths_.push_back(std::move(path));
}

// A script may change what lies beside it, as one in the working folder may. An installed program does not.
void Mentions::mentionFolderOf(const std::string& script) {
    constexpr std::array installed = {"/node_modules/"sv, "/venv/"sv, "/."sv};
    const auto isPart = [&](std::string_view part) { return script.find(part) != script.npos; };
    if (belongsToSystem(script) || !isFile(script) || std::any_of(installed.begin(), installed.end(), isPart)) return;
    const std::string folder(parentOf(script));
    if (context_.isInProject(script)) {
        const auto holdsBoth = [&](const std::string& root) {
            return isAtOrBelow(script, root) && isAtOrBelow(context_.cwd, root);
        };
        const auto& roots = context_.projectRoots;
        if (std::none_of(roots.begin(), roots.end(), holdsBoth)) paths_.push_back(folder);
    } else if (lastComponent(folder) != "bin"sv && lastComponent(folder) != "sbin"sv) {
        addFolder(folder);
    }
}

void Mentions::addFolder(const std::string& folder) {
    if (!context_.isInProject(folder) && isWorthKeeping(folder)) paths_.push_back(folder);
}

void Mentions::addListed(const Listing& listing, const std::string& folder, std::size_t depth) {
    const auto matches = [&](const char* name) {
        return listing.names.empty() ||
               std::any_of(listing.names.begin(), listing.names.end(), [&](const std::string& pattern) {
                   return isHard(pattern) || fnmatch(pattern.c_str(), name, 0) == 0;
               });
    };
    std::vector<std::string> below; // which is looked through last: what lies higher is the more likely to be meant
    (void)visitNames(folder, [&](const char* name) {
        if (++entries_ > Budget::entriesLookedAt || paths_.size() >= Budget::filesKeptOnSuspicion) return false;
        const std::string path = joined(folder, name);
        struct stat status {};
        if (lstat(path.c_str(), &status) != 0) return true;
        if (S_ISREG(status.st_mode) && matches(name) && status.st_size <= bytesLeft_) {
            bytesLeft_ -= status.st_size;
            paths_.push_back(path);
        }
        if (S_ISDIR(status.st_mode) && !listing.deep && matches(name)) addFolder(path);
        if (S_ISDIR(status.st_mode) && listing.deep && depth < Budget::listedDepth) below.push_back(path);
        return true;
    });
    for (const std::string& path : below) addListed(listing, path, depth + 1);
}

void Mentions::scan(std::string_view text, bool namesPrograms) {
    const std::string root = "/";
    for (std::size_t at = 0; at < text.size() && looks_ < Budget::mentions; ++at) {
        if (text[at] != '/' && text[at] != '.' && text[at] != '~' && text[at] != '$') continue;
        if (!mayBegin(text, at)) continue;
        const auto start = pathStart(text.substr(at));
        if (!start) continue;
        const std::size_t slash = at + *start;
        const bool isAddress = at > 0 && text[at - 1] == ':' && text.substr(slash).starts_with("//");
        const std::size_t end = std::min(text.find_first_of(endsOfPaths, slash), text.size());
        if (isAddress || end < slash + 2) continue;
        const bool isProgram = namesPrograms && isProgramsPlace(text, at);
        const bool climbs = text[at] == '.';
        const std::string_view relative = text.substr(climbs ? at : slash + 1, end - (climbs ? at : slash + 1));
        const std::string& base = climbs ? context_.cwd : *start == 0 ? root : context_.home;
        std::string path = absolutePath(relative, base);
        const std::size_t sign = relative.find_first_of("%#"); // of a format or an expression: ../out/%s
        if (sign != relative.npos && !exists(path)) path = absolutePath(relative.substr(0, sign), base);
        at = end;
        if (effects_.losesUnknown() && path != context_.home) takeProtected(path, text.substr(end));
        ++looks_;
        if (isProgram)
            mentionFolderOf(path);
        else
            mention(std::move(path));
    }
}

// Names that are not known go, and these may be of files in a well-known folder: du -a ~/Documents | cut -f2 | xargs
// rm.
void Mentions::takeProtected(const std::string& folder, std::string_view behind) {
    if (!effects_.protectedFolders().holdsText(folder)) return;
    const std::string_view pattern = behind.substr(0, behind.find_first_of(" \t\n'\"`;|&<>()/$"));
    const bool matches = pattern.find_first_of("*?[") != pattern.npos;
    effects_.list({folder, matches ? std::vector{std::string(pattern)} : std::vector<std::string>(), !matches});
}

void Mentions::scanWordsBelow(const std::string& folder, std::string_view line) {
    for (std::size_t at = 0; at < line.size() && looks_ < Budget::mentions; ++at) {
        if (at > 0 && beforePaths.find(line[at - 1]) == beforePaths.npos) continue;
        const std::size_t end = std::min(line.find_first_of(endsOfPaths, at), line.size());
        std::string_view word = line.substr(at, end - at);
        word = word.substr(0, word.find('='));
        const bool isScript = isProgramsPlace(line, at);
        if (word.starts_with("./")) word.remove_prefix(2);
        if (word.empty() || word == "." || word.starts_with("..") || "/~-"sv.find(word.front()) != word.npos) continue;
        ++looks_;
        std::string path = absolutePath(word, folder);
        if (!isScript)
            mention(std::move(path));
        else if (word.find('/') != word.npos)
            mentionFolderOf(path);
        at += word.size();
    }
}

// $NAME and ${NAME} of the environment, with what stands behind.
void Mentions::scanVariables(std::string_view text) {
    for (std::size_t at = text.find('$'); at != text.npos && looks_ < Budget::mentions; at = text.find('$', at + 1)) {
        const bool braced = text.substr(at + 1).starts_with('{');
        const std::string_view rest = text.substr(at + (braced ? 2 : 1), Budget::nameLength);
        const std::string_view name = rest.substr(0, nameLength(rest));
        const auto variable = name.empty() || name == "HOME" ? context_.env.end() : context_.env.find(name);
        if (variable == context_.env.end() || !variable->second.starts_with('/')) continue;
        const std::size_t behind = at + (braced ? 2 : 1) + name.size();
        const std::size_t begin = braced && text.substr(behind).starts_with('}') ? behind + 1 : behind;
        const std::size_t end = std::min(text.find_first_of(endsOfPaths, begin), text.size());
        const std::string_view below = text.substr(begin, text.substr(begin).starts_with('/') ? end - begin : 0);
        std::string path = absolutePath(variable->second + std::string(below), "/");
        ++looks_;
        mention(std::move(path));
    }
}

// What programs of other languages write for the home folder, with what they put behind it:
// process.env.HOME + '/data', Path.home() / "data", os.path.join(os.environ['HOME'], 'data').
void Mentions::scanHomes(std::string_view text) {
    for (const std::string_view sign :
         {"HOME"sv, "homedir()"sv, "home()"sv, "Dir.home"sv, "expanduser('~')"sv, "expanduser(\"~\")"sv})
        for (std::size_t at = text.find(sign); at != text.npos && looks_ < Budget::mentions;
             at = text.find(sign, at + 1)) {
            const std::string_view before = text.substr(0, at);
            if (before.ends_with('$') || before.ends_with("${")) continue; // the shell's, which is read as a path
            const std::string_view behind = text.substr(at + sign.size());
            std::size_t begin = std::min(behind.find_first_not_of(" \t'\"])}+/,("), behind.size());
            if (behind.substr(begin).starts_with(". ")) // php's and perl's "+"
                begin = std::min(behind.find_first_not_of(" '\"/", begin + 1), behind.size());
            const std::size_t end = std::min(behind.find_first_of(endsOfPaths, begin), behind.size());
            if (begin == 0 || begin > Budget::nameLength || end == begin) continue;
            ++looks_;
            std::string path = absolutePath(behind.substr(begin, end - begin), context_.home);
            if (isAtOrBelow(path, context_.home) && path != context_.home) mention(std::move(path));
        }
}

// The words of a list become operands: cat LIST | xargs rm, xargs -a LIST, while read ... < LIST.
void Mentions::scanLists(std::string_view line) {
    const auto holds = [&](std::string_view word) { return line.find(word) != line.npos; };
    if (!holds("<") && !holds("cat ") && !holds("-a")) return;
    if (!holds("xargs") && !holds("read") && !holds("mapfile") && !holds("parallel") && !holds("$(") && !holds("`"))
        return;
    for (const std::string_view before : {"cat "sv, "< "sv, "<"sv, "-a "sv, "--arg-file="sv})
        for (std::size_t at = line.find(before); at != line.npos && looks_ < Budget::mentions;
             at = line.find(before, at + 1)) {
            const std::size_t begin = at + before.size();
            scanList(line.substr(begin, line.find_first_of(" \t\n;|&<>()'\"`$", begin) - begin));
        }
}

// Names that are not known go: any small file of the line may hold them.
void Mentions::scanFiles(std::string_view line) {
    for (std::size_t at = 0; at < line.size() && looks_ < Budget::mentions;) {
        const std::size_t end = std::min(line.find_first_of(" \t\n;|&<>()'\"`$", at), line.size());
        const std::string_view word = line.substr(at, end - at);
        at = end + 1;
        if (!word.starts_with('-')) scanList(word);
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

// The home folder and its well-known ones, as far as something may change in them: where a command runs, and what an
// option such as -C names.
std::vector<std::string> protectedAtHome(std::string_view line, const Decision& decision, const Context& context,
                                         Effects& effects) {
    std::vector<std::string> folders = decision.opaqueDirs;
    folders.insert(folders.end(), decision.suspected.begin(), decision.suspected.end());
    std::size_t at = line.find(" -C ");
    for (std::size_t count = 0; at != line.npos && count < Budget::doubtfulFolders; ++count) {
        const std::string_view word = line.substr(at + 4, line.find_first_of(" \t\n;|&)'\"", at + 4) - at - 4);
        const auto start = pathStart(word);
        if (start && *start > 0 && !word.starts_with('.'))
            folders.push_back(absolutePath(word.substr(*start + 1), context.home));
        at = line.find(" -C ", at + 1);
    }
    sortAndDedupe(folders);
    std::erase_if(folders, [&](const std::string& folder) {
        return !isAtOrBelow(folder, context.home) || context.isInProject(folder) ||
               !effects.isProtected(folder, Links::followed);
    });
    return folders;
}

} // namespace

// Disks that somebody plugs in are mounted below /run/media, and users keep files of their own below the other two.
bool belongsToSystem(std::string_view path) {
    const std::string_view first = path.substr(1, path.find('/', 1) - 1);
    if (!isIn(systemTrees, first)) return isAtOrBelow(path, "/opt/homebrew");
    constexpr std::array users = {"/run/media"sv, "/run/user"sv, "/dev/shm"sv};
    return std::none_of(users.begin(), users.end(), [&](std::string_view tree) { return isAtOrBelow(path, tree); });
}

void noteGitStoresListed(std::string_view line, Effects& effects) {
    line = line.substr(0, Budget::nestedBytes);
    constexpr std::array names = {"grep"sv, "ls"sv, "find"sv, "fd"sv};
    const auto isNamed = [&](std::string_view name) { return line.find(name) != line.npos; };
    if (std::none_of(names.begin(), names.end(), isNamed)) return;
    const std::vector<std::string> folders = effects.soFar().opaqueDirs;
    const Program program = parse(line).program;
    for (const Command* command : withNested(program))
        for (const std::string& folder : folders)
            if (!command->words.empty()) reachListedGitStores(command->words, folder, effects);
}

std::vector<std::string> pathsAtRisk(std::string_view line, const Decision& decision, const Context& context,
                                     Effects& effects) {
    Mentions mentions(context, effects);
    line = line.substr(0, Budget::nestedBytes);
    if (line.find('/') != line.npos) mentions.scan(line, true);
    mentions.scanVariables(line);
    mentions.scanHomes(line);
    mentions.scanLists(line);
    if (effects.losesUnknown()) mentions.scanFiles(line);
    for (const std::string& folder : decision.opaqueDirs) mentions.addFolder(folder);
    for (const std::string& folder : protectedAtHome(line, decision, context, effects))
        mentions.scanWordsBelow(folder, line);
    for (const Listing& listing : effects.listings()) mentions.addListed(listing, listing.folder, 0);
    return mentions.take();
}

} // namespace tidewrack::shell
