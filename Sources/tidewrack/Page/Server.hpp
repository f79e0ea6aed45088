#pragma once
// The sockets of the page, on this machine's own interface alone.

#include "Page/Site.hpp"

#include <chrono>
#include <functional>

namespace tidewrack::page {

struct Serving {
    int port = 0; // 0: any free one
    std::chrono::seconds idle;
    std::function<void(int port)> ready; // connections are taken; what it throws ends it all
    std::function<void()> found;         // the first with the right token is here, or has let half a minute pass
    std::function<void()> ended;         // the last that is done
};

// Answers until it is told to end (Ctrl-C, SIGTERM, SIGHUP) or nobody with the right token has asked for anything for
// `idle`; then leaves the process with status 0. What changes something is seen through before; nobody else is waited
// for. Throws TidewrackError where the port can't be had.
[[noreturn]] void serve(Site& site, const Serving& serving);

} // namespace tidewrack::page
