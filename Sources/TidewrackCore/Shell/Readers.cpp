#include "Shell/Readers.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;
using Words = std::span<const Word>;

// Sorted, for the search.
constexpr std::array readers = {
    "(("sv,
    ":"sv,
    "["sv,
    "[["sv,
    "ack"sv,
    "ag"sv,
    "alias"sv,
    "apropos"sv,
    "apt"sv,
    "apt-cache"sv,
    "apt-get"sv,
    "arp"sv,
    "awk"sv,
    "base64"sv,
    "basename"sv,
    "bat"sv,
    "bc"sv,
    "bg"sv,
    "bind"sv,
    "break"sv,
    "brew"sv,
    "cal"sv,
    "case"sv,
    "cat"sv,
    "cksum"sv,
    "clear"sv,
    "cloc"sv,
    "cmp"sv,
    "code"sv,
    "colordiff"sv,
    "column"sv,
    "comm"sv,
    "complete"sv,
    "continue"sv,
    "curl"sv,
    "cut"sv,
    "date"sv,
    "defaults"sv,
    "delta"sv,
    "df"sv,
    "diff"sv,
    "dig"sv,
    "dircolors"sv,
    "dirname"sv,
    "disown"sv,
    "dmesg"sv,
    "dnf"sv,
    "docker"sv,
    "docker-compose"sv,
    "done"sv,
    "dpkg"sv,
    "dpkg-query"sv,
    "du"sv,
    "echo"sv,
    "egrep"sv,
    "else"sv,
    "esac"sv,
    "exa"sv,
    "exit"sv,
    "expand"sv,
    "expr"sv,
    "eza"sv,
    "factor"sv,
    "false"sv,
    "fd"sv,
    "fdfind"sv,
    "fg"sv,
    "fgrep"sv,
    "fi"sv,
    "file"sv,
    "fmt"sv,
    "fold"sv,
    "for"sv,
    "free"sv,
    "fuser"sv,
    "fzf"sv,
    "gawk"sv,
    "getconf"sv,
    "getent"sv,
    "getopts"sv,
    "gh"sv,
    "glab"sv,
    "grep"sv,
    "groups"sv,
    "hash"sv,
    "hdiutil"sv,
    "head"sv,
    "helm"sv,
    "hexdump"sv,
    "history"sv,
    "host"sv,
    "hostname"sv,
    "htop"sv,
    "iconv"sv,
    "id"sv,
    "ifconfig"sv,
    "in"sv,
    "info"sv,
    "iostat"sv,
    "ip"sv,
    "ipcs"sv,
    "jobs"sv,
    "join"sv,
    "journalctl"sv,
    "jq"sv,
    "kill"sv,
    "killall"sv,
    "kubectl"sv,
    "last"sv,
    "launchctl"sv,
    "ldd"sv,
    "less"sv,
    "let"sv,
    "locale"sv,
    "locate"sv,
    "logger"sv,
    "logname"sv,
    "look"sv,
    "ls"sv,
    "lsblk"sv,
    "lscpu"sv,
    "lsd"sv,
    "lsof"sv,
    "lsusb"sv,
    "man"sv,
    "mapfile"sv,
    "mawk"sv,
    "md5"sv,
    "md5sum"sv,
    "mdfind"sv,
    "mdls"sv,
    "mkdir"sv,
    "mktemp"sv,
    "more"sv,
    "mount"sv,
    "mysql"sv,
    "nc"sv,
    "netstat"sv,
    "nl"sv,
    "nm"sv,
    "nproc"sv,
    "nslookup"sv,
    "objdump"sv,
    "od"sv,
    "open"sv,
    "otool"sv,
    "pacman"sv,
    "paste"sv,
    "pbcopy"sv,
    "pbpaste"sv,
    "pgrep"sv,
    "ping"sv,
    "pkg-config"sv,
    "pkgutil"sv,
    "pkill"sv,
    "pmset"sv,
    "podman"sv,
    "popd"sv,
    "pr"sv,
    "printenv"sv,
    "printf"sv,
    "ps"sv,
    "psql"sv,
    "pstree"sv,
    "pushd"sv,
    "pwd"sv,
    "read"sv,
    "readarray"sv,
    "readelf"sv,
    "readlink"sv,
    "realpath"sv,
    "redis-cli"sv,
    "return"sv,
    "rev"sv,
    "rg"sv,
    "say"sv,
    "select"sv,
    "seq"sv,
    "set"sv,
    "sha1sum"sv,
    "sha256sum"sv,
    "sha512sum"sv,
    "shasum"sv,
    "shift"sv,
    "shopt"sv,
    "sleep"sv,
    "sort"sv,
    "ss"sv,
    "ssh"sv,
    "stat"sv,
    "strings"sv,
    "stty"sv,
    "sum"sv,
    "sw_vers"sv,
    "sysctl"sv,
    "systemctl"sv,
    "tac"sv,
    "tail"sv,
    "telnet"sv,
    "test"sv,
    "times"sv,
    "tokei"sv,
    "top"sv,
    "touch"sv,
    "tput"sv,
    "tr"sv,
    "traceroute"sv,
    "trap"sv,
    "tree"sv,
    "true"sv,
    "tsort"sv,
    "tty"sv,
    "type"sv,
    "ulimit"sv,
    "umask"sv,
    "unalias"sv,
    "uname"sv,
    "unexpand"sv,
    "uniq"sv,
    "unset"sv,
    "uptime"sv,
    "users"sv,
    "vm_stat"sv,
    "vmstat"sv,
    "w"sv,
    "wait"sv,
    "wc"sv,
    "whatis"sv,
    "whereis"sv,
    "which"sv,
    "who"sv,
    "whoami"sv,
    "xcode-select"sv,
    "xdg-open"sv,
    "xxd"sv,
    "yes"sv,
    "yq"sv,
    "yum"sv,
    "zcat"sv,
    "zfgrep"sv,
    "zgrep"sv,
    "zless"sv,
    "zmore"sv,
};

static_assert(std::is_sorted(readers.begin(), readers.end()));

// Where the names of each first byte begin.
constexpr auto firsts = [] {
    std::array<std::uint16_t, 257> places{};
    for (std::size_t byte = 0, at = 0; byte <= 256; ++byte) {
        while (at < readers.size() && static_cast<unsigned char>(readers[at][0]) < byte) ++at;
        places[byte] = static_cast<std::uint16_t>(at);
    }
    return places;
}();

// What makes a reader write: options, the short ones as letters; or a text anywhere in a word.
struct Writing {
    std::string_view name;
    std::string_view letters;
    std::array<std::string_view, 3> options{};
    std::string_view text{};
};

constexpr Writing writings[] = {
    {"awk", "", {}, ">"},
    {"awk", "i", {"--include"}, "system("},
    {"curl", "oOJ", {"--output", "--remote-name", "--output-dir"}, {}},
    {"docker", "", {"run", "cp", "compose"}, {}},
    {"docker-compose", "", {"run", "up", "exec"}, {}},
    {"fd", "xX", {"--exec", "--exec-batch"}, {}},
    {"fdfind", "xX", {"--exec", "--exec-batch"}, {}},
    {"gawk", "i", {"--include"}, ">"},
    {"gawk", "", {}, "system("},
    {"gh", "", {"clone", "checkout", "download"}, {}},
    {"iconv", "o", {"--output"}, {}},
    {"kubectl", "", {"cp"}, {}},
    {"mawk", "", {}, ">"},
    {"mawk", "", {}, "system("},
    {"podman", "", {"run", "cp", "compose"}, {}},
    {"sort", "o", {"--output"}, {}},
    {"tree", "o", {}, {}},
    {"yq", "i", {"--inplace", "--in-place"}, {}},
};

// Subcommands that only read, of programs whose others write.
struct Reading {
    std::string_view name;
    std::string_view subcommands; // each between blanks
};

constexpr Reading readings[] = {
    {"cargo", " --list tree search info help version "},
    {"compose", " ps logs config ls top images port version "},
    {"go", " env list doc version vet help "},
    {"npm", " ls list ll view info show outdated search root bin prefix whoami ping why explain help "},
    {"pip", " list show freeze check --version help index "},
    {"pip3", " list show freeze check --version help index "},
    {"pnpm", " ls list why outdated view root bin help "},
    {"rustup", " show which help "},
    {"tar", " --list "},
    {"terraform", " show version output validate "},
    {"unzip", " -l -v -t -Z -p "},
    {"uv", " version help tree "},
    {"yarn", " list why info outdated help "},
};

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

std::size_t operandCount(Words arguments) {
    return static_cast<std::size_t>(std::count_if(arguments.begin(), arguments.end(), [](const Word& word) {
        return !isCluster(word.text) && !word.text.starts_with("--");
    }));
}

} // namespace

bool isReader(std::string_view name) {
    if (name.empty()) return true;
    const auto first = static_cast<unsigned char>(name[0]);
    const auto end = readers.begin() + firsts[first + 1U];
    const auto found = std::lower_bound(readers.begin() + firsts[first], end, name);
    return found != end && *found == name;
}

bool isToldToWrite(std::string_view name, Words arguments) {
    if (hasReadingSubcommand(name, arguments)) return false;
    // uniq in out, xxd in out
    if ((name == "uniq" || name == "xxd") && operandCount(arguments) > 1) return true;
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
    if (arguments.empty()) return false;
    const std::string& first = arguments.front().text;
    if (name == "npm" && first == "config") return arguments.size() > 1 && arguments[1].text == "get";
    // tar tzf, tar -tf
    if (name == "tar" && !first.starts_with("--")) return first.find('t') != first.npos;
    if (name == "docker" && first == "compose") return hasReadingSubcommand("compose", arguments.subspan(1));
    const auto lists = [&](std::string_view words) {
        const std::size_t at = first.empty() ? words.npos : words.find(first);
        return at != words.npos && at > 0 && words[at - 1] == ' ' && words.substr(at + first.size()).starts_with(' ');
    };
    return std::any_of(std::begin(readings), std::end(readings),
                       [&](const Reading& reading) { return reading.name == name && lists(reading.subcommands); });
}

bool onlyTellsOfItself(Words arguments) {
    constexpr std::array words = {"--version"sv, "--help"sv,   "-V"sv,      "-v"sv,
                                  "-h"sv,        "-version"sv, "version"sv, "help"sv};
    return arguments.size() == 1 && std::find(words.begin(), words.end(), arguments.front().text) != words.end();
}

} // namespace tidewrack::shell
