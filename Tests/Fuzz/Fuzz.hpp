#pragma once
// What the fuzz targets share. A target takes any bytes at all and checks what must hold whatever they are. Each is
// built twice: as a program of its own that libFuzzer drives (scripts/fuzz), and into the tests, which give it the
// corpus.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::fuzz {

class BrokenPromise : public std::logic_error {
  public:
    using std::logic_error::logic_error;
};

inline void require(bool held, const std::string& promise) {
    if (!held) throw BrokenPromise("broken: " + promise);
}

struct Target {
    const char* name;
    void (*run)(std::string_view input); // throws BrokenPromise
};

// All targets of this program.
inline std::vector<Target>& targets() {
    static std::vector<Target> all;
    return all;
}

struct Registered {
    Registered(const char* name, void (*run)(std::string_view)) { targets().push_back({name, run}); }
};

// The part of `input` before the first `end`, which is dropped with it; all of it where there is none.
inline std::string_view takeUpTo(char end, std::string_view& input) {
    const std::string_view part = input.substr(0, input.find(end));
    input.remove_prefix(part.size() == input.size() ? part.size() : part.size() + 1);
    return part;
}

} // namespace tidewrack::fuzz

// FUZZ_TARGET(name) { ... the bytes are `input` ... }
#ifdef TIDEWRACK_FUZZER
#define FUZZ_TARGET(name)                                                                                              \
    static void name##Target(std::string_view input);                                                                  \
    extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {                                \
        name##Target({reinterpret_cast<const char*>(data), size});                                                     \
        return 0;                                                                                                      \
    }                                                                                                                  \
    static void name##Target(std::string_view input)
#else
#define FUZZ_TARGET(name)                                                                                              \
    static void name##Target(std::string_view input);                                                                  \
    static const tidewrack::fuzz::Registered name##Registered(#name, name##Target);                                    \
    static void name##Target(std::string_view input)
#endif
