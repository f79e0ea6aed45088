#include "Engine/Trace.hpp"

#include "Platform/Process.hpp"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tidewrack {

namespace {

std::atomic<bool> silenced = false;

} // namespace

void Trace::silence() {
    silenced = true;
}

bool Trace::enabled() {
    static const bool asked = [] {
        const char* value = std::getenv("TIDEWRACK_TRACE");
        return value != nullptr && std::strcmp(value, "1") == 0;
    }();
    return asked && !silenced;
}

void Trace::print(const std::string& label) {
    const auto time = std::chrono::steady_clock::now();
    char elapsed[48];
    std::snprintf(elapsed, sizeof elapsed, "  %7.1f ms  ",
                  std::chrono::duration<double, std::milli>(time - last_).count());
    (void)writeAll(STDERR_FILENO, elapsed + label + "\n");
    last_ = time;
}

} // namespace tidewrack
