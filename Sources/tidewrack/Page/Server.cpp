#include "Page/Server.hpp"

#include "Page/Connection.hpp"
#include "Platform/Process.hpp"
#include "Support/Errors.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <optional>
#include <system_error>
#include <thread>

namespace tidewrack::page {

namespace {

using Clock = Connection::Clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* loopback = "127.0.0.1";
constexpr std::size_t mostThreads = 16; // a browser keeps six connections
constexpr std::size_t longestBody = 1U << 20U;
constexpr std::size_t longestHeader = 8U << 10U; // browsers refuse answers with larger ones
constexpr std::size_t mostRequests = 1000;       // of one connection
constexpr std::size_t longestPath = 1000;        // of an address; values stand behind it
constexpr seconds betweenRequests(1);
constexpr seconds doorwayTime(30);
constexpr seconds lastAnswerTime(2);

// What wakes the thread that waits for the end: a byte of this pipe.
constexpr char bySignal = 's';
constexpr char byVisitor = 'v';
int wakeEnd = -1;

void wake(char why) {
    const int error = errno;
    (void)!::write(wakeEnd, &why, 1);
    errno = error;
}

extern "C" void noteSignal(int) {
    wake(bySignal);
}

void catchSignals() {
    struct sigaction action {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {};
        if (::sigaction(number, &action, &before) == 0 && number == SIGHUP && before.sa_handler == SIG_IGN)
            (void)::sigaction(number, &before, nullptr); // as under nohup
    }
}

// What may stand in a header: anything else is written %XX.
std::string encoded(const std::string& text) {
    constexpr const char* digits = "0123456789ABCDEF";
    std::string result;
    for (const char letter : text) {
        const auto byte = static_cast<unsigned char>(letter);
        const bool plain = byte > ' ' && byte < 0x7f && byte != '%';
        if (plain)
            result += letter;
        else
            result.append("%").append(1, digits[byte >> 4U]).append(1, digits[byte & 15U]);
    }
    return result;
}

Request requestOf(const httplib::Request& from) {
    Request request{from.method, from.path, {}, {}, from.body};
    for (const auto& [name, value] : from.params) request.query.emplace(name, value);
    for (const auto& [name, value] : from.headers) {
        std::string lower = name;
        for (char& letter : lower)
            if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
        request.headers.emplace(std::move(lower), value);
    }
    return request;
}

void send(const Answer& answer, httplib::Response& to) {
    to.status = answer.status;
    const std::string command = encoded(answer.command); // half of one would be another one
    if (!command.empty() && command.size() <= longestHeader) to.set_header("X-Tidewrack-Command", command);
    if (!answer.warnings.empty()) to.set_header("X-Tidewrack-Warnings", encoded(answer.warnings));
    to.set_content(answer.body, answer.type);
}

// The library holds a body to the limit by the length that the request tells, and reads those of all methods. Its
// patterns for paths take room on the stack for each letter.
httplib::Server::HandlerResponse refuseUnread(const httplib::Request& request, httplib::Response& response) {
    const bool isKnown = request.method == "GET" || request.method == "HEAD" || request.method == "POST";
    const bool tellsLength = request.method != "POST" || request.has_header("Content-Length");
    const bool isForOneHost = request.get_header_value_count("Host") < 2;
    const bool isShort = request.path.size() <= longestPath;
    if (isKnown && tellsLength && isForOneHost && isShort && !request.has_header("Transfer-Encoding"))
        return httplib::Server::HandlerResponse::Unhandled;
    response.status = !isShort ? 404 : !isForOneHost ? 400 : isKnown ? 411 : 405;
    response.set_header("Connection", "close");
    return httplib::Server::HandlerResponse::Handled;
}

// The library's server, with connections that are held to their limits.
class PageServer : public httplib::Server {
  public:
    PageServer(Site& site, const Serving& serving) : site_(site), serving_(serving) {
        if (const int error = makePipe(woken_, waker_); error != 0) throw TidewrackError::io("make a pipe", "", error);
        wakeEnd = waker_.get();
        configure();
    }

    // Returns when it is told to end, or was idle for too long.
    void waitForEnd();
    // What changes something has an end, and its answer a moment.
    void finishActs();

  private:
    void configure();
    bool process_and_close_socket(socket_t socket) override;
    void handle(const httplib::Request& request, httplib::Response& response);
    // The reason to wake by then; none: the time has come.
    [[nodiscard]] std::optional<char> wokenBy(Clock::time_point until) const;
    [[nodiscard]] Clock::time_point idleUntil() const {
        return Clock::time_point(Clock::duration(lastAsked_.load())) + serving_.idle;
    }

    Site& site_;
    const Serving& serving_;
    Descriptor woken_;
    Descriptor waker_;
    std::atomic<Clock::rep> lastAsked_ = Clock::now().time_since_epoch().count();
    std::atomic<bool> wasFound_ = false;
    std::atomic<int> acts_ = 0; // asked for, and their answers not sent yet
    static thread_local bool isAct;
    static thread_local bool isWhole; // the request was read to its end: what follows is another one
};

thread_local bool PageServer::isAct = false;
thread_local bool PageServer::isWhole = false;

void PageServer::configure() {
    new_task_queue = [] { return new httplib::ThreadPool(mostThreads); }; // which the library deletes
    set_payload_max_length(longestBody);
    set_keep_alive_max_count(mostRequests); // both only tell the browser
    set_keep_alive_timeout(betweenRequests.count());
    set_tcp_nodelay(true);
    // Its own way lets others listen on the same port.
    set_socket_options([](socket_t socket) {
        const int yes = 1;
        (void)::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    httplib::Headers headers;
    for (const auto& [name, value] : securityHeaders()) headers.emplace(name, value);
    set_default_headers(std::move(headers));
    set_pre_routing_handler(refuseUnread);
    const auto answer = [this](const httplib::Request& request, httplib::Response& response) {
        handle(request, response);
    };
    Get(".*", answer);
    Post(".*", answer);
}

bool PageServer::process_and_close_socket(socket_t socket) {
    (void)::fcntl(socket, F_SETFD, FD_CLOEXEC);
    bool isOpen = true;
    Connection connection(socket);
    for (std::size_t left = mostRequests; isOpen && left > 0 && svr_sock_ != INVALID_SOCKET; --left) {
        if (!connection.hasMore() && !isReady(socket, POLLIN, Clock::now() + betweenRequests)) break;
        connection.expectHead();
        bool wantsEnd = false;
        isWhole = false;
        isOpen =
            process_request(connection, left == 1, wantsEnd, nullptr) && isWhole && !wantsEnd && !connection.isBroken();
        if (isAct) --acts_;
        isAct = false;
    }
    (void)::shutdown(socket, SHUT_RDWR);
    (void)::close(socket);
    return isOpen;
}

void PageServer::handle(const httplib::Request& request, httplib::Response& response) {
    isWhole = request.method == "POST" || !request.has_header("Content-Length"); // other bodies are not read
    isAct = request.path == "/api/act";
    if (isAct) ++acts_;
    const Answer answer = site_.answer(requestOf(request));
    send(answer, response);
    if (!answer.isForUs) return;
    lastAsked_ = Clock::now().time_since_epoch().count();
    if (!wasFound_.exchange(true)) wake(byVisitor);
}

std::optional<char> PageServer::wokenBy(Clock::time_point until) const {
    char why = 0;
    if (isReady(woken_.get(), POLLIN, until) && ::read(woken_.get(), &why, 1) == 1) return why;
    return std::nullopt;
}

void PageServer::waitForEnd() {
    const auto closing = Clock::now() + doorwayTime;
    for (bool doorIsOpen = true; Clock::now() < idleUntil();) {
        const auto why = wokenBy(doorIsOpen ? std::min(closing, idleUntil()) : idleUntil());
        if (why == bySignal) return;
        if (!doorIsOpen || (why != byVisitor && Clock::now() < closing)) continue;
        serving_.found();
        doorIsOpen = false;
    }
}

void PageServer::finishActs() {
    while (site_.isActing()) (void)wokenBy(Clock::now() + milliseconds(20)); // no signal ends it halfway
    const auto until = Clock::now() + lastAnswerTime;
    while (acts_ > 0 && Clock::now() < until)
        if (wokenBy(Clock::now() + milliseconds(20)) == bySignal) return;
}

} // namespace

void serve(Site& site, const Serving& serving) {
    PageServer server(site, serving);
    catchSignals();
    int port = serving.port;
    if (port == 0)
        port = server.bind_to_any_port(loopback);
    else if (!server.bind_to_port(loopback, port))
        port = -1;
    if (port < 0)
        throw TidewrackError::io("can't listen on port " + std::to_string(serving.port) + ": " +
                                 std::generic_category().message(errno) + ". Leave --port out to take any free one.");
    site.setPort(port);
    serving.ready(port);
    // Not waited for: a connection may be held open by somebody.
    std::thread([&server] { server.listen_after_bind(); }).detach();
    while (!server.is_running()) std::this_thread::sleep_for(milliseconds(1));
    server.waitForEnd();
    site.end();
    server.stop();
    server.finishActs();
    serving.ended();
    ::_exit(0);
}

} // namespace tidewrack::page
