#pragma once
// A browser's connection, as long and as large as a browser's requests are.

#include <httplib.h>

#include <chrono>
#include <cstddef>

namespace tidewrack::page {

// Of its requests one after the other: those that come in one piece have their bytes in one buffer. The library limits
// the time of each read and the length of each line, but neither the whole time nor the number of lines, so that
// somebody without a token could hold all threads, or fill the memory.
class Connection : public httplib::Stream {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Connection(int fd) : socket_(fd) {}

    [[nodiscard]] bool is_readable() const override;
    [[nodiscard]] bool is_writable() const override;
    ssize_t read(char* to, std::size_t size) override;
    ssize_t write(const char* from, std::size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override { getOwn(ip, port); }
    void get_local_ip_and_port(std::string& ip, int& port) const override { getOwn(ip, port); }
    [[nodiscard]] int socket() const override { return socket_; }

    // The next request's head, with the time that it may take.
    void expectHead();
    // Bytes behind the last request were read along with it.
    [[nodiscard]] bool hasMore() const { return begin_ < end_; }
    // Something went past a limit, or the other side is gone: nothing more is to be read here.
    [[nodiscard]] bool isBroken() const { return isBroken_; }

  private:
    static void getOwn(std::string& ip, int& port) {
        ip = "127.0.0.1";
        port = 0;
    }
    bool fill();
    bool isWithinHead(char byte);

    int socket_;
    Clock::time_point until_{};
    bool isBroken_ = false;
    std::size_t head_ = 0;    // bytes of it so far
    std::size_t matched_ = 0; // of the empty line that ends it
    char buffer_[4096]{};
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

// Whether the socket is ready for `events` by then.
[[nodiscard]] bool isReady(int fd, short events, Connection::Clock::time_point until);

} // namespace tidewrack::page
