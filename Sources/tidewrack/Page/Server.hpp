#pragma once
// The sockets of the page, on this machine's own interface alone.

#include "Page/Site.hpp"

#include <chrono>
#include <functional>

namespace tidewrack::page {

// Answers until it is told to end (Ctrl-C, SIGTERM) or nobody has asked for anything for `idle`. `port` 0: any free
// one. `ready` is called with the port once answers are given. Throws TidewrackError where the port can't be had.
void serve(Site& site, int port, std::chrono::seconds idle, const std::function<void(int)>& ready);

} // namespace tidewrack::page
