#include "Page/Server.hpp"

#include "Support/Errors.hpp"

#include <httplib.h>

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

namespace tidewrack::page {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* loopback = "127.0.0.1";
constexpr std::size_t mostThreads = 16; // a browser keeps six connections
constexpr std::size_t longestBody = 1U << 20U;

int signalPipe[2] = {-1, -1};

extern "C" void noteSignal(int) {
    const char byte = 0;
    (void)!::write(signalPipe[1], &byte, 1);
}

void catchSignals() {
    if (::pipe(signalPipe) != 0) throw TidewrackError::io("make a pipe", "", errno);
    struct sigaction action {};
    action.sa_handler = noteSignal;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) (void)::sigaction(number, &action, nullptr);
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
    if (!answer.command.empty()) to.set_header("X-Tidewrack-Command", encoded(answer.command));
    if (!answer.warnings.empty()) to.set_header("X-Tidewrack-Warnings", encoded(answer.warnings.substr(0, 2000)));
    to.set_content(answer.body, answer.type);
}

void configure(httplib::Server& server) {
    server.new_task_queue = [] { return new httplib::ThreadPool(mostThreads); }; // which the library deletes
    server.set_payload_max_length(longestBody);
    server.set_keep_alive_max_count(1000);
    server.set_keep_alive_timeout(1); // seconds: the end waits for connections that are still open
    server.set_tcp_nodelay(true);
    // Its own way lets others listen on the same port.
    server.set_socket_options([](socket_t socket) {
        const int yes = 1;
        (void)::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    httplib::Headers headers;
    for (const auto& [name, value] : securityHeaders()) headers.emplace(name, value);
    server.set_default_headers(std::move(headers));
}

// The library holds a body to the limit by the length that the request tells, and reads those of all methods.
httplib::Server::HandlerResponse refuseUnread(const httplib::Request& request, httplib::Response& response) {
    const bool isKnown = request.method == "GET" || request.method == "HEAD" || request.method == "POST";
    const bool tellsLength = request.method != "POST" || request.has_header("Content-Length");
    if (isKnown && tellsLength && !request.has_header("Transfer-Encoding"))
        return httplib::Server::HandlerResponse::Unhandled;
    response.status = isKnown ? 411 : 405;
    response.set_header("Connection", "close");
    return httplib::Server::HandlerResponse::Handled;
}

// Until a signal comes, or the last question is `idle` old.
void waitForEnd(const std::atomic<Clock::rep>& lastAsked, std::chrono::seconds idle) {
    for (;;) {
        const auto quiet = Clock::now() - Clock::time_point(Clock::duration(lastAsked.load()));
        if (quiet >= idle) return;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(idle - quiet).count() + 1;
        pollfd wait{signalPipe[0], POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(left)) > 0) return;
    }
}

} // namespace

void serve(Site& site, int port, std::chrono::seconds idle, const std::function<void(int)>& ready) {
    catchSignals();
    httplib::Server server;
    configure(server);
    std::atomic<Clock::rep> lastAsked = Clock::now().time_since_epoch().count();
    const auto handle = [&](const httplib::Request& request, httplib::Response& response) {
        send(site.answer(requestOf(request)), response);
        if (response.status < 400) lastAsked = Clock::now().time_since_epoch().count();
    };
    server.set_pre_routing_handler(refuseUnread);
    server.Get(".*", handle);
    server.Post(".*", handle);
    if (port == 0)
        port = server.bind_to_any_port(loopback);
    else if (!server.bind_to_port(loopback, port))
        port = -1;
    if (port < 0) throw TidewrackError::io("Can't listen on that port; leave --port out to take any free one.");
    site.setPort(port);
    std::thread listener([&] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ready(port);
    waitForEnd(lastAsked, idle);
    server.stop();
    listener.join();
}

} // namespace tidewrack::page
