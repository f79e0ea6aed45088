#include "Shell/Readers.hpp"

#include "Shell/NameFilter.hpp"
#include "Shell/Scripts.hpp"
#include "Shell/Wrappers.hpp"

#include <algorithm>
#include <array>
#include <string>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

// Sorted, for the search; a blank behind each.
constexpr std::string_view names =
    "(( : [ [[ ack ag alias apropos apt apt-cache apt-get arp base64 basename bat bc bg bind break brew cal "
    "case cat cksum clear cloc cmp code colordiff column comm complete continue cut date defaults delta df "
    "diff dig dircolors dirname disown dmesg dnf docker docker-compose done dpkg dpkg-query du echo egrep else "
    "esac exa exit expand expr eza factor false fg fgrep fi file fmt fold for free fuser fzf "
    "getconf getent getfacl getopts gh glab grep groups hash hdiutil head helm hexdump history host hostname htop "
    "id ifconfig in info iostat ip ipcs jobs join journalctl jq kill killall kubectl last launchctl ldd less let "
    "locale locate logger logname look ls lsblk lscpu lsd lsof lsusb man mapfile md5 md5sum mdfind mdls "
    "mkdir mktemp more mount mysql nc netstat nl nm nproc nslookup objdump od open otool pacman paste pbcopy "
    "pbpaste pgrep ping pkg-config pkgutil pkill pmset podman popd pr printenv printf ps psql pstree pushd pwd "
    "read readarray readelf readlink realpath redis-cli return rev rg say select seq set sha1sum sha256sum "
    "sha512sum shasum shellcheck shift shopt sleep ss ssh stat strings stty sum sw_vers sysctl systemctl tac tail "
    "telnet test times tokei top touch tput tr traceroute trap tree true tsort tty type ulimit umask unalias "
    "uname unexpand unset uptime users vm_stat vmstat w wait wc whatis whereis which who whoami "
    "xcode-select xdg-open yamllint yes yum zcat zfgrep zgrep zless zmore ";

struct Reader {
    std::string_view name;
};

constexpr auto readers = [] {
    std::array<Reader, static_cast<std::size_t>(std::count(names.begin(), names.end(), ' '))> table{};
    std::string_view rest = names;
    for (Reader& reader : table) {
        reader.name = rest.substr(0, rest.find(' '));
        rest.remove_prefix(reader.name.size() + 1);
    }
    return table;
}();

static_assert(isSortedByName(readers));
constexpr NameIndex<Reader> readerIndex(readers);

// What makes a reader write: options, the short ones as letters; or a text anywhere in a word.
struct Writing {
    std::string_view name;
    std::string_view letters;
    std::array<std::string_view, 3> options{};
    std::string_view text{};
};

constexpr Writing writings[] = {
    {"docker", "", {"run", "cp", "compose"}, {}},
    {"docker-compose", "", {"run", "up", "exec"}, {}},
    {"gh", "", {"clone", "checkout", "download"}, {}},
    {"helm", "", {"--output-dir", "create", "pull"}, {}},
    {"kubectl", "", {"cp"}, {}},
    {"mysql", "", {"--tee"}, {}},
    {"podman", "", {"run", "cp", "compose"}, {}},
    {"psql", "oL", {"--output", "--log-file"}, {}},
    {"redis-cli", "", {"--rdb"}, {}},
    {"tree", "o", {}, {}},
};

// Subcommands that only read, of programs whose others write.
struct Reading {
    std::string_view name;
    WordList subcommands; // each between blanks
};

constexpr Reading readings[] = {
    {"aws", " help "},
    {"bundle", " list show info outdated help version "},
    {"cargo", " --list tree search info metadata help version "},
    {"compose", " ps logs config ls top images port version "},
    {"gem", " list search which environment help "},
    {"go", " env list doc version vet help "},
    {"npm", " ls list ll view info show outdated search root bin prefix whoami ping why explain help "},
    {"nvm", " use ls list current which version "},
    {"pip", " list show freeze check --version help index "},
    {"pip3", " list show freeze check --version help index "},
    {"pnpm", " ls list why outdated view root bin help "},
    {"poetry", " show about help "},
    {"rustc", " --explain "},
    {"rustup", " show which help "},
    {"terraform", " show version output validate "},
    {"uv", " version help tree "},
    {"yarn", " list why info outdated help "},
};

// Programs that only look with one of these words, and without one that begins like those.
struct Checking {
    std::string_view name;
    WordList needs;            // one of these is the first word, each between blanks; empty: any
    std::string_view writes{}; // beginnings in small letters, whatever the case of the words
    std::string_view also{};   // this must be there too
};

constexpr Checking checkings[] = {
    {"bash", " -n ", " +n "},
    {"black", " --check --diff "},
    {"cargo", " fmt ", " --emit ", "--check"},
    {"crontab", " -l "},
    {"deno", " fmt ", {}, "--check"},
    {"eslint", {}, " --fix -o --output-file --cache-location --cache-file --init --inspect-config "},
    {"isort", " --check --check-only "},
    {"mypy",
     {},
     " --any --cob --html --linec --linep --txt --xml --xslt --junit --install-types --cache-dir --sqlite-cache "},
    {"node", " --check ", " -r --require --import --experimental-loader --loader "},
    {"php", " -l "},
    {"ruby", " -c ", " -r "},
    {"ruff", " check ", " --fix -o --output-file --add-noqa --cache-dir "},
    {"sh", " -n ", " +n "},
    {"terraform", " plan ", " -out --out -generate-config-out --generate-config-out "},
    {"tsc", " --noEmit ",
     " false --tsbuildinfofile -tsbuildinfofile --generate -generate --init -init --build -build -b @ "},
    {"zsh", " -n ", " +n "},
};

constexpr NameFilter writingFilter = [] {
    NameFilter filter;
    for (const Writing& writing : writings) filter.add(writing.name);
    return filter;
}();

constexpr NameFilter readingFilter = [] {
    NameFilter filter;
    for (const Reading& reading : readings) filter.add(reading.name);
    filter.add("docker");
    return filter;
}();

// Programs that tell their version when asked by -v, -V or "version", and their use by -h or "help".
constexpr WordList tellingShortly =
    " ansible aws bazel brew bun bundle cargo clang clang++ cmake composer conda deno docker dotnet eslint flutter g++ "
    "gcc gem ghc git go gradle gradlew helm java javac jest kubectl ld lua make mvn mvnw mypy nginx ng node npm npx "
    "nvm pdm php pip "
    "pip3 pnpm poetry prettier psql python python3 rails ruby rustc rustup sqlite3 swift terraform tmux tsc tsx uv vim "
    "vite webpack yarn ";

// Readers that change something else than files: a server, a service, another process.
constexpr WordList actingElsewhere =
    " brew code defaults disown dnf docker docker-compose gh glab hdiutil helm kill killall kubectl launchctl mount "
    "mysql "
    "nc open pkill podman psql redis-cli ssh sysctl systemctl telnet xdg-open ";

constexpr WordList lookingOfGit = " blame diff log ls-files rev-parse show status ";

// Whether the word begins like one of the list, whatever its case.
bool beginsLikeOne(std::string_view list, std::string_view word) {
    std::string lower(word);
    for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
    for (std::size_t at = 1; at < list.size(); at = list.find(' ', at) + 1)
        if (lower.starts_with(list.substr(at, list.find(' ', at) - at))) return true;
    return false;
}

// Of "aws s3": what it changes lies on the server. A copy goes there where that is what its last word names.
bool changesOnlyBuckets(Words words) {
    constexpr std::string_view bucket = "s3://";
    const std::string& verb = words.front().text;
    if (verb == "rm" || verb == "mb" || verb == "rb" || verb == "presign") return true;
    return verb == "cp" && words.size() == 3 && words.back().text.starts_with(bucket);
}

bool isCluster(std::string_view text) {
    return text.size() > 1 && text[0] == '-' && text[1] != '-';
}

bool tellsToWrite(const Writing& writing, std::string_view text) {
    if (!writing.text.empty() && text.find(writing.text) != text.npos) return true;
    if (isCluster(text) && text.find_first_of(writing.letters, 1) != text.npos) return true;
    return std::any_of(writing.options.begin(), writing.options.end(), [&](std::string_view option) {
        return !option.empty() && text.starts_with(option) &&
               (text.size() == option.size() || text[option.size()] == '=');
    });
}

} // namespace

bool isReader(std::string_view name) {
    return name.empty() || readerIndex.find(name) != nullptr;
}

bool isToldToWrite(std::string_view name, Words arguments) {
    if (!writingFilter.mayHold(name) || hasReadingSubcommand(name, arguments)) return false;
    for (const Writing& writing : writings) {
        if (writing.name != name) continue;
        for (std::size_t index = 0; index < arguments.size(); ++index) {
            const bool discards = index + 1 < arguments.size() && arguments[index + 1].text == "/dev/null";
            if (!discards && tellsToWrite(writing, arguments[index].text)) return true;
        }
    }
    return false;
}

bool hasReadingSubcommand(std::string_view name, Words arguments) {
    if (arguments.empty() || !readingFilter.mayHold(name)) return false;
    const std::string& first = arguments.front().text;
    if (name == "npm" && first == "config") return arguments.size() > 1 && arguments[1].text == "get";
    if (name == "aws" && arguments.size() > 1) {
        const std::string& verb = arguments[1].text; // get-object writes a file
        return verb == "ls" || verb.starts_with("list-") || verb.starts_with("describe-") ||
               verb == "get-caller-identity" || (first == "s3" && changesOnlyBuckets(arguments.subspan(1)));
    }
    if (name == "docker" && first == "compose") return hasReadingSubcommand("compose", arguments.subspan(1));
    return std::any_of(std::begin(readings), std::end(readings), [&](const Reading& reading) {
        return reading.name == name && reading.subcommands.holds(first);
    });
}

bool runsOnlyPrinting(std::string_view name, Words arguments) {
    const bool isPython = name == "python" || name == "python3";
    if (arguments.size() < 2 || (!isPython && name != "node")) return false;
    const std::string& option = arguments[0].text;
    const std::string& code = arguments[1].text;
    if (isPython && option == "-m") return code == "json.tool" && arguments.size() < 4;
    if (isPython) return option == "-c" && pythonOnlyPrints(code);
    return arguments.size() == 2 && (option == "-e" || option == "-p" || option == "-pe") && javaScriptOnlyPrints(code);
}

bool onlyChecks(std::string_view name, Words arguments) {
    if (runsOnlyPrinting(name, arguments)) return true;
    if (name == "npx" && arguments.size() > 1) return onlyChecks(arguments.front().text, arguments.subspan(1));
    const auto* const found = std::find_if(std::begin(checkings), std::end(checkings),
                                           [&](const Checking& checking) { return checking.name == name; });
    if (found == std::end(checkings)) return false;
    // Further programs and texts follow only behind the option: bash x.sh -n runs the script.
    const bool first = !arguments.empty() && (found->needs.empty() || found->needs.holds(arguments.front().text));
    const auto isAlso = [&](const Word& word) { return word.text == found->also; };
    if (!found->also.empty() && std::none_of(arguments.begin(), arguments.end(), isAlso)) return false;
    const auto mayWrite = [&](const Word& word) { return word.unknown || beginsLikeOne(found->writes, word.text); };
    return first && (found->writes.empty() || std::none_of(arguments.begin(), arguments.end(), mayWrite));
}

bool onlyTellsOfItself(std::string_view name, Words arguments, bool isInstalled) {
    if (arguments.size() != 1) return false;
    const std::string_view word = arguments.front().text;
    const bool isLong = word == "--version" || word == "--help" || word == "-version";
    if (isLong && (isInstalled || tellingShortly.holds(name))) return true;
    // Elsewhere these may mean anything: ./reset.sh -v, pytest -v.
    const bool isShort = word == "-v" || word == "-V" || word == "-h" || word == "version" || word == "help";
    return isShort && tellingShortly.holds(name) && !(word == "-v" && name.starts_with("python"));
}

bool onlyLooks(Words words) {
    const std::string_view name = commandName(words.front());
    if (name == "git"sv) return words.size() > 1 && lookingOfGit.holds(words[1].text);
    return isReader(name) && !actingElsewhere.holds(name);
}

} // namespace tidewrack::shell
