#include "Shell/Wrappers.hpp"

#include "Shell/NameFilter.hpp"
#include "Shell/WordValues.hpp"
#include "Support/Paths.hpp"

#include <algorithm>
#include <array>

namespace tidewrack::shell {

namespace {

using namespace std::string_view_literals;

struct Wrapper {
    std::string_view name;
    WordList subcommands{};     // one of these must follow, each between blanks; empty: none
    std::string_view letters{}; // short options that take a word
    WordList options{};         // long ones, each between blanks
    std::size_t operands = 0;   // of its own, before the command
    WordList text{};            // options whose word is a command line, each between blanks
    WordList folder{};          // options whose word is the folder to run in
    WordList outputs{};         // options whose word is a file that it writes; "FILE" for its operand
    bool takesLine = false;     // a single word behind its own may be a command line
};

// Sorted by name, for the search.
constexpr Wrapper wrappers[] = {
    {"arch", {}, "de"},
    {"asdf", " exec "},
    {"aws-vault", " exec ", "d", " --duration --region ", 1},
    {"builtin"},
    {"bundle", " exec "},
    {"busybox"},
    {"caffeinate", {}, "tw"},
    {"catchsegv"},
    {"chronic"},
    {"chrt", {}, "TPD", {}, 1},
    {"command"},
    {"conda", " run ", "np", " --name --prefix --cwd "},
    {"cpulimit", {}, "lPep", " --limit --path --exe --pid "},
    {"dbus-run-session", {}, {}, " --dbus-daemon --config-file "},
    {"direnv", " exec ", {}, {}, 1},
    {"doas", {}, "uC"},
    {"doppler", " run ", "pc", " --project --config --token "},
    {"dotenvx", " run ", "fe", " --env-file --env "},
    {"env", {}, "uCS", " --unset --chdir --split-string ", 0, " -S --split-string ", " -C --chdir "},
    {"exec", {}, "a"},
    {"fakeroot", {}, "ils", " --lib --faked "},
    {"faketime", {}, {}, {}, 1},
    {"flock", {}, "wEc", " --wait --timeout --conflict-exit-code --command ", 1, " -c --command "},
    {"gtimeout", {}, "ks", " --kill-after --signal ", 1},
    {"hatch", " run "},
    {"ionice", {}, "cn", " --class --classdata "},
    {"ltrace", {}, "aAeFlnopsuwx", {}, 0, {}, {}, " -o "},
    {"mise", " exec x "},
    {"nice", {}, "n", " --adjustment "},
    {"nix-shell", {}, "pAI", " --packages --run --command ", 0, " --run --command "},
    {"nohup"},
    {"npm", " exec x ", "c", " --package --call ", 0, " -c --call "},
    {"numactl", {}, "CNmipPl", " --cpunodebind --membind --interleave --physcpubind --preferred "},
    {"op", " run ", {}, " --env-file --account "},
    {"pdm", " run "},
    {"pipenv", " run "},
    {"pkexec", {}, {}, " --user "},
    {"pnpm", " exec "},
    {"poetry", " run "},
    {"prlimit"},
    {"proxychains", {}, "f"},
    {"proxychains4", {}, "f"},
    {"runuser", {}, "cgGsu", " --command --group --supp-group --shell --user ", 0, " -c --command "},
    {"rustup", " run ", {}, {}, 1},
    {"rye", " run "},
    {"screen", {}, "cehpsStTrx"},
    {"script", {}, "cEIOmotT", " --command ", 1, " -c --command ", {}, " FILE -I -O --log-in --log-out "},
    {"setpriv", {}, {}, " --reuid --regid --groups "},
    {"setsid"},
    {"ssh-agent", {}, "aEOPt"},
    {"stdbuf", {}, "ioe", " --input --output --error "},
    {"strace", {}, "aeEIoOpPsSuUX", " --output ", 0, {}, {}, " -o --output "},
    {"su", {}, "cgGs", " --command --group --supp-group --shell ", 1, " -c --command "},
    {"sudo",
     {},
     "CDghpRrTtUu",
     " --user --group --host --prompt --chdir --chroot --close-from --type --role ",
     0,
     {},
     " -D --chdir "},
    {"systemd-run",
     {},
     "pEMHut",
     " --unit --property --description --slice --uid --gid --working-directory --setenv --machine --host ",
     0,
     {},
     " --working-directory "},
    {"taskset", {}, {}, {}, 1},
    {"tidewrack",
     " run ",
     "Cn",
     " --agent --home --kind --label --project --session --session-of --turn ",
     0,
     {},
     " -C "},
    {"time", {}, "fo", " --format --output ", 0, {}, {}, " -o --output "},
    {"timeout", {}, "ks", " --kill-after --signal ", 1},
    {"tmux",
     " new new-session neww new-window splitw split-window respawnp respawn-pane respawnw respawn-window run run-shell "
     "popup display-popup send send-keys ",
     "LSceFnstxyl",
     {},
     0,
     {},
     " -c ",
     {},
     true},
    {"torsocks", {}, "u"},
    {"toybox"},
    {"unbuffer"},
    {"unshare", {}, "SGRw", " --setuid --setgid --root --wd --propagation --map-user --map-group "},
    {"uv", " run ", "p", " --with --python --package --project --directory --extra --group "},
    {"volta", " run ", {}, " --node --npm --yarn --pnpm "},
    {"watch", {}, "n", " --interval ", 0, {}, {}, {}, true},
    {"xcrun", {}, {}, " --sdk --toolchain -sdk -toolchain "},
    {"xvfb-run", {}, "ens", " --server-num --server-args "},
    {"yarn", " exec "},
};

static_assert(isSortedByName(wrappers));
constexpr NameIndex<Wrapper> wrapperIndex(wrappers);

// Programs that fetch a package and run it. What it does is not known but for packages that are commands with rules.
struct Runner {
    Wrapper call;             // its subcommands may be left out ...
    bool runsDirectly = true; // ... where it runs a package without one
};

// Sorted by name, for the search.
constexpr Runner runners[] = {
    {{"bun", " run x "}},
    {{"bunx", {}, "p", " --package "}},
    {{"deno", " run ", "c", " --config --import-map --lock "}, false},
    {{"npx", {}, "pcw", " --package --call --workspace ", 0, " -c --call "}},
    {{"pnpm", " dlx run ", "CF", " --package --dir --filter "}},
    {{"pnpx", {}, {}, " --package "}},
    {{"yarn", " dlx run ", "p", " --package --cwd "}},
};
constexpr std::array packagesWithRules = {"rimraf"sv, "tidewrack"sv};

const Runner* runnerOf(std::string_view name) {
    const auto* const found = std::find_if(std::begin(runners), std::end(runners),
                                           [&](const Runner& runner) { return runner.call.name == name; });
    return found == std::end(runners) ? nullptr : found;
}

constexpr NameFilter runnerFilter = [] {
    NameFilter filter;
    for (const Runner& runner : runners) filter.add(runner.call.name);
    return filter;
}();

// npm:tidewrack@1.0 is the package tidewrack.
std::string_view packageName(std::string_view text) {
    if (text.starts_with("npm:")) text.remove_prefix(4);
    return text.substr(0, text.find('@', 1));
}

// Tools that some systems install under names with a "g".
constexpr std::array gnuTools = {"chgrp"sv, "chmod"sv, "chown"sv, "cp"sv,       "dd"sv,     "find"sv, "install"sv,
                                 "ln"sv,    "make"sv,  "mv"sv,    "rm"sv,       "rmdir"sv,  "sed"sv,  "shred"sv,
                                 "tar"sv,   "tee"sv,   "touch"sv, "truncate"sv, "unlink"sv, "xargs"sv};

constexpr NameFilter gnuFilter = [] {
    NameFilter filter;
    for (const std::string_view name : gnuTools) filter.add(name);
    return filter;
}();

// Reads the words of one wrapper.
class Unwrapping {
  public:
    Unwrapping(const std::vector<Word>& words, Unwrapped& result) : words_(words), result_(result) {}

    // How many words are the wrapper's; 0 when it is none after all.
    std::size_t length(std::size_t begin, const Wrapper& wrapper) {
        std::size_t index = begin + 1;
        if (!wrapper.subcommands.empty()) {
            const Unwrapped before = result_;
            while (index < words_.size() && words_[index].text.size() > 1 && words_[index].text[0] == '-')
                index += takeOption(index, wrapper);
            if (index >= words_.size() || !wrapper.subcommands.holds(words_[index].text)) {
                result_ = before;
                return 0;
            }
            ++index;
        }
        std::size_t operands = wrapper.operands;
        while (index < words_.size()) {
            const std::string& text = words_[index].text;
            if (text == "--") {
                ++index;
                if (operands == 0) break;
            } else if (text.size() > 1 && text[0] == '-') {
                index += takeOption(index, wrapper);
            } else if (text == "-") { // su - NAME
                ++index;
            } else if (operands > 0) {
                --operands;
                if (wrapper.outputs.holds("FILE")) result_.outputs.push_back(words_[index]);
                ++index;
            } else {
                break;
            }
        }
        if (wrapper.takesLine && index < words_.size() && words_[index].text.find(' ') != std::string::npos) {
            result_.text = words_[index];
            index = words_.size(); // keys that tmux sends behind it
        }
        return std::min(index, words_.size()) - begin;
    }

    // The same for one that fetches packages: 0 where the package has no rules.
    std::size_t length(std::size_t begin, const Runner& runner) {
        const Unwrapped before = result_;
        std::size_t index = behindOptions(begin + 1, runner.call);
        const bool isNamed = index < words_.size() && runner.call.subcommands.holds(words_[index].text);
        if (isNamed) index = behindOptions(index + 1, runner.call);
        const bool runs = isNamed || runner.runsDirectly;
        if (runs && result_.text && !before.text) return words_.size() - begin;
        if (runs && index < words_.size() && isIn(packagesWithRules, packageName(words_[index].text)))
            return index - begin;
        result_ = before;
        return 0;
    }

  private:
    std::size_t behindOptions(std::size_t index, const Wrapper& wrapper) {
        while (index < words_.size() && words_[index].text.size() > 1 && words_[index].text[0] == '-')
            index += words_[index].text == "--" ? 1 : takeOption(index, wrapper);
        return std::min(index, words_.size());
    }

    // How many words an option takes.
    std::size_t takeOption(std::size_t index, const Wrapper& wrapper) {
        std::string_view name = words_[index].text;
        std::optional<Word> value;
        std::size_t length = 1;
        const std::size_t equals = name.starts_with("--") ? name.find('=') : name.npos;
        const std::size_t letter = name.starts_with("--") ? name.npos : name.find_first_of(wrapper.letters, 1);
        std::string shortName;
        if (equals != name.npos) {
            value = words_[index];
            value->text = name.substr(equals + 1);
            name = name.substr(0, equals);
        } else if (letter != name.npos) {
            shortName = {'-', name[letter]};
            if (letter + 1 < name.size()) {
                value = words_[index];
                value->text = name.substr(letter + 1);
            }
            name = shortName;
        }
        if (!value && (letter != std::string::npos || wrapper.options.holds(name)) && index + 1 < words_.size()) {
            value = words_[index + 1];
            length = 2;
        }
        if (value && wrapper.text.holds(name)) result_.text = value;
        if (value && wrapper.outputs.holds(name)) result_.outputs.push_back(*value);
        if (value && wrapper.folder.holds(name)) result_.folder = value;
        return length;
    }

    const std::vector<Word>& words_;
    Unwrapped& result_;
};

// `command -v name` says what the name means.
bool tellsOfCommand(const std::vector<Word>& words, std::size_t index) {
    return words[index].text == "command"sv && index + 1 < words.size() &&
           (words[index + 1].text == "-v" || words[index + 1].text == "-V");
}

} // namespace

std::string_view commandName(const Word& word) {
    std::string_view name = word.text;
    if (name.find('/') != name.npos) name = lastComponent(name);
    const bool gnu =
        name.size() > 2 && name[0] == 'g' && gnuFilter.mayHold(name.substr(1)) && isIn(gnuTools, name.substr(1));
    return gnu ? name.substr(1) : name;
}

bool isWrapper(std::string_view name) {
    return wrapperIndex.find(name) != nullptr || (runnerFilter.mayHold(name) && runnerOf(name) != nullptr);
}

Unwrapped unwrap(std::vector<Word>& words) {
    Unwrapped result;
    std::size_t index = 0;
    while (index < words.size()) {
        if (tellsOfCommand(words, index)) {
            index = words.size();
            break;
        }
        if (words[index].unknown || assignmentAt(words[index]) > 0) {
            if (!words[index].unknown) result.assignments.push_back(words[index]);
            ++index;
            continue;
        }
        const std::string_view name = commandName(words[index]);
        const Wrapper* wrapper = wrapperIndex.find(name);
        std::size_t length = wrapper != nullptr ? Unwrapping(words, result).length(index, *wrapper) : 0;
        const Runner* runner = length == 0 && runnerFilter.mayHold(name) ? runnerOf(name) : nullptr;
        if (runner != nullptr) length = Unwrapping(words, result).length(index, *runner);
        if (length == 0) break;
        index += length;
        if (index >= words.size()) break;
        std::string& package = words[index].text;
        if (isIn(packagesWithRules, packageName(package))) package = packageName(package);
    }
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(index));
    return result;
}

} // namespace tidewrack::shell
