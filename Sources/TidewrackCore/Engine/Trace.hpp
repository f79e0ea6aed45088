#pragma once
// A developer's stopwatch: how long each phase of an operation took, on standard error, when TIDEWRACK_TRACE is "1".

#include <chrono>
#include <string>

namespace tidewrack {

class Trace {
  public:
    Trace() : last_(std::chrono::steady_clock::now()) {}

    // Prints the time since the previous mark. `label` is a callable giving the text; it is not called when off.
    template <typename Label>
    void mark(Label label) {
        if (enabled()) print(label());
    }

    // Turns tracing off for this process, whatever the environment says: a hook's standard error belongs to the agent.
    static void silence();

  private:
    static bool enabled();
    void print(const std::string& label);

    std::chrono::steady_clock::time_point last_;
};

} // namespace tidewrack
