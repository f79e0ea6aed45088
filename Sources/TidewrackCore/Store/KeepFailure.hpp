#pragma once
// Why a content could not be kept.

#include <cstdint>
#include <string>
#include <string_view>

namespace tidewrack {

struct KeepFailure {
    enum class Why : std::uint8_t {
        none,
        system,   // `error`
        changing, // time and again while it was copied
        late,     // there was no time left
        noRoom,   // too little room is left on the volume for large contents
    };

    Why why = Why::none;
    int error = 0; // an errno value

    bool operator==(const KeepFailure&) const = default;
    explicit operator bool() const { return why != Why::none; }
    static KeepFailure system(int error) { return error == 0 ? KeepFailure{} : KeepFailure{Why::system, error}; }

    // What stands for the content in a listing, and back.
    [[nodiscard]] std::string blob() const;
    [[nodiscard]] static KeepFailure fromBlob(std::string_view blob);
    // In words, as the end of a sentence; of a system's error its own text.
    [[nodiscard]] std::string text() const;
};

} // namespace tidewrack
