#include "Page/Connection.hpp"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tidewrack::page {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t longestHead = 64U << 10U;
constexpr seconds headTime(2); // it comes in one piece
constexpr seconds bodyTime(10);
constexpr seconds answerTime(5);
constexpr std::size_t slowestReader = 64U << 10U; // bytes of an answer in a second
constexpr const char* headEnd = "\r\n\r\n";

} // namespace

bool isReady(int fd, short events, Connection::Clock::time_point until) {
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(until - Connection::Clock::now()).count();
        pollfd wait{fd, events, 0};
        const int count = ::poll(&wait, 1, static_cast<int>(std::clamp<decltype(left)>(left, 0, 3600000)));
        if (count > 0) return true;
        if (left <= 0 || (count < 0 && errno != EINTR)) return false;
    }
}

void Connection::expectHead() {
    until_ = Clock::now() + headTime;
    head_ = 0;
    matched_ = 0;
}

bool Connection::is_readable() const {
    return begin_ < end_ || isReady(socket_, POLLIN, until_);
}

bool Connection::is_writable() const {
    return isReady(socket_, POLLOUT, Clock::now() + answerTime);
}

bool Connection::fill() {
    ssize_t count = -1;
    do {
        if (!isReady(socket_, POLLIN, until_)) return false;
        count = ::recv(socket_, buffer_, sizeof buffer_, MSG_DONTWAIT);
    } while (count < 0 && (errno == EINTR || errno == EAGAIN));
    if (count <= 0) return false;
    begin_ = 0;
    end_ = static_cast<std::size_t>(count);
    return true;
}

// Counts a byte of the head; false where there are too many. Behind the head's end another time begins.
bool Connection::isWithinHead(char byte) {
    if (matched_ == std::strlen(headEnd)) return true;
    matched_ = byte == headEnd[matched_] ? matched_ + 1 : (byte == headEnd[0] ? 1 : 0);
    if (matched_ == std::strlen(headEnd)) until_ = Clock::now() + bodyTime;
    return ++head_ <= longestHead;
}

ssize_t Connection::read(char* to, std::size_t size) {
    if (begin_ == end_ && (isBroken_ || !fill())) {
        isBroken_ = true;
        return -1;
    }
    const std::size_t count = std::min(size, end_ - begin_);
    for (std::size_t at = 0; at < count; ++at) {
        to[at] = buffer_[begin_++];
        isBroken_ = isBroken_ || !isWithinHead(to[at]);
    }
    return isBroken_ ? -1 : static_cast<ssize_t>(count);
}

ssize_t Connection::write(const char* from, std::size_t size) {
    const auto until = Clock::now() + answerTime + seconds(size / slowestReader);
    std::size_t sent = 0;
    while (sent < size && !isBroken_) {
        const ssize_t count =
            isReady(socket_, POLLOUT, until) ? ::send(socket_, from + sent, size - sent, MSG_DONTWAIT) : -1;
        if (count >= 0)
            sent += static_cast<std::size_t>(count);
        else if ((errno != EINTR && errno != EAGAIN) || Clock::now() >= until)
            isBroken_ = true;
    }
    return isBroken_ ? -1 : static_cast<ssize_t>(sent);
}

} // namespace tidewrack::page
