// The page of one project's history: what `tidewrack browse` and `tidewrack timeline --html` start. A program of its
// own, so that hooks, of which each is a start of `tidewrack`, load nothing of it.
//   tidewrack-browse ROOT [--port N] [--no-open] [--read-only] [--idle=SECONDS]
//   tidewrack-browse ROOT --html FILE [-n N] [--no-contents] [--agent A] [--session S]
//   tidewrack-browse ROOT --pick -n N [--agent A] [--session S]

#include "Args.hpp"
#include "CommandLine.hpp"
#include "Help.hpp"
#include "Page/PickerView.hpp"
#include "Page/Server.hpp"
#include "Page/StaticPage.hpp"
#include "Platform/Process.hpp"
#include "ProcessStart.hpp"
#include "Support/Errors.hpp"
#include "Support/Files.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <random>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system declares it

namespace {

using namespace tidewrack;

// The commands run in this process, each as if it had been started in the project's folder.
page::Runner commandRunner(const std::string& root) {
    return [root, environment = environmentOfProcess()](const std::vector<std::string>& words) {
        page::Ran ran;
        Sink out(ran.out);
        Sink err(ran.err);
        Surroundings around{environment, root, "tidewrack", out, err, -1};
        ran.status = run(words, around);
        return ran;
    };
}

std::string newToken() {
    std::random_device source;
    constexpr const char* digits = "0123456789abcdef";
    std::string token;
    for (int i = 0; i < 40; ++i) token += digits[source() & 15U];
    return token;
}

// What ends the page from its terminal does not end the browser that it opened.
#ifdef POSIX_SPAWN_SETSID
constexpr short ownSession = POSIX_SPAWN_SETSID;
#else
constexpr short ownSession = POSIX_SPAWN_SETPGROUP;
#endif

// Others on this machine may read the words that a program was started with: the browser gets the address with the
// token from a file that nobody else may read, which goes once the browser is here.
class Doorway {
  public:
    explicit Doorway(const std::string& address) {
        const char* folder = std::getenv("TMPDIR");
        path_ = std::string(folder != nullptr && *folder != '\0' ? folder : "/tmp") + "/tidewrack-browse-XXXXXX.html";
        const Descriptor file(::mkstemps(path_.data(), 5));
        if (!file) {
            path_.clear();
            return;
        }
        (void)writeAll(file.get(),
                       "<!doctype html><meta charset=\"utf-8\"><meta name=\"referrer\" content=\"no-referrer\">"
                       "<meta http-equiv=\"refresh\" content=\"0;url=" +
                           address + "\"><title>Tidewrack</title>\n");
    }
    Doorway(const Doorway&) = delete;
    Doorway& operator=(const Doorway&) = delete;
    ~Doorway() { remove(); }

    void remove() {
        if (!path_.empty()) (void)::unlink(path_.c_str());
        path_.clear();
    }

    void open() const {
        if (path_.empty()) return;
        posix_spawn_file_actions_t files;
        posix_spawnattr_t attributes;
        (void)::posix_spawn_file_actions_init(&files);
        (void)::posix_spawnattr_init(&attributes);
        for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            (void)::posix_spawn_file_actions_addopen(&files, fd, "/dev/null", O_RDWR, 0);
        sigset_t usual;
        (void)sigemptyset(&usual);
        (void)sigaddset(&usual, SIGPIPE);
        (void)::posix_spawnattr_setsigdefault(&attributes, &usual);
        (void)::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | ownSession);
        std::string program = openingProgram();
        std::string path = path_;
        char* words[] = {program.data(), path.data(), nullptr};
        pid_t child = 0; // not waited for: it ends when it likes. Without such a program the printed address is left
        (void)::posix_spawnp(&child, program.c_str(), &files, &attributes, words, environ);
        (void)::posix_spawnattr_destroy(&attributes);
        (void)::posix_spawn_file_actions_destroy(&files);
    }

  private:
    std::string path_;
};

// Only tests say it; so no command has the option.
constexpr std::string_view idleOption = "--idle=";

std::chrono::seconds idleTime(const Args& args) {
    for (const std::string& flag : args.flags)
        if (flag.starts_with(idleOption)) return std::chrono::seconds(std::atoi(flag.c_str() + idleOption.size()));
    return std::chrono::hours(1);
}

// An unknown word might have been meant to keep the page from being opened.
void checkOptions(const Args& args) {
    static constexpr std::string_view known[] = {"--no-open", "--read-only", "--no-contents", "--pick"};
    for (const std::string& flag : args.flags)
        if (!flag.starts_with(idleOption) && std::find(std::begin(known), std::end(known), flag) == std::end(known))
            throw CliError("there is no option " + flag);
    if (args.positional.size() > 1) throw CliError("there is no use for the word " + args.positional[1]);
}

// Whoever may not be led to the page and gets no address could not even end it.
void tellAddress(const std::string& address, bool isOpened) {
    struct stat out {};
    struct stat nowhere {};
    const bool isHeard = ::fstat(STDOUT_FILENO, &out) == 0 && ::stat("/dev/null", &nowhere) == 0 &&
                         (!S_ISCHR(out.st_mode) || out.st_rdev != nowhere.st_rdev);
    Sink sink(STDOUT_FILENO, false);
    sink.line("The history is at " + address + " until you press Ctrl-C, or for an hour in which nobody looks at it." +
              (isOpened ? "\nIf no page opens, open that address yourself." : ""));
    sink.flush();
    if (sink.error() != 0) throw TidewrackError::io("write", "the page's address", sink.error());
    if (!isHeard && !isOpened) throw TidewrackError::io("With --no-open the address needs an output to go to.");
}

[[noreturn]] void serve(const std::string& root, const Args& args) {
    const std::string token = newToken();
    page::Site site({root, token, version(), args.has("--read-only")}, commandRunner(root));
    std::optional<Doorway> doorway;
    page::Serving serving;
    if (const auto port = args.value("--port")) serving.port = portNumber(*port);
    serving.idle = idleTime(args);
    serving.ready = [&](int taken) {
        const std::string address = "http://127.0.0.1:" + std::to_string(taken) + "/#" + token;
        tellAddress(address, !args.has("--no-open"));
        if (args.has("--no-open")) return;
        doorway.emplace(address);
        doorway->open();
    };
    serving.found = serving.ended = [&] { doorway.reset(); };
    page::serve(site, serving);
}

constexpr int leftAlone = 3; // the exit status when some of what was asked for was not done

int writePage(const std::string& root, const std::string& file, const Args& args) {
    page::StaticSettings settings{root, version(), 1000000, !args.has("--no-contents")};
    if (const auto most = args.value("-n")) settings.rows = static_cast<std::size_t>(std::atoll(most->c_str()));
    settings.agent = args.value("--agent").value_or("");
    settings.session = args.value("--session").value_or("");
    const page::StaticPage page = page::staticPage(settings, commandRunner(root));
    struct stat like {}; // only its owner reads it until they give it away
    like.st_mode = S_IFREG | 0600;
    like.st_uid = ::geteuid();
    like.st_gid = ::getegid();
    if (!replaceUserFile(file, std::nullopt, page.text, &like))
        throw TidewrackError::refused(file + " is there already.");
    if (page.missing.empty()) return 0;
    Sink err(STDERR_FILENO, ::isatty(STDERR_FILENO) == 1);
    err.line("tidewrack: The page was written without what can't be read:");
    for (const std::string& line : page.missing) err.line(err.shown(line));
    err.flush();
    return leftAlone;
}

int pick(const std::string& root, const Args& args) {
#ifdef TIDEWRACK_PICKER
    page::Values asked{{"n", args.value("-n").value_or("20")}};
    for (const std::string name : {"agent", "session"})
        if (const auto value = args.value("--" + name)) asked[name] = *value;
    page::Picker picker({root, commandRunner(root)}, asked);
    page::showPicker(picker);
    return 0;
#else
    (void)root;
    (void)args;
    throw CliError("this was built without the picker, for want of FTXUI");
#endif
}

} // namespace

int main(int count, char** words) {
    prepareProcess();
    Sink err(STDERR_FILENO, ::isatty(STDERR_FILENO) == 1);
    try {
        const Args args(std::vector<std::string>(words + 1, words + count));
        const auto root = args.word(0);
        if (!root) throw CliError("this is started by `tidewrack browse`");
        checkOptions(args);
        if (args.has("--pick")) return pick(*root, args);
        const auto html = args.value("--html");
        if (!html) serve(*root, args);
        return writePage(*root, *html, args);
    } catch (const std::exception& error) {
        err.line("tidewrack: " + err.shown(error.what()));
        err.flush();
        return 1;
    }
}
