#pragma once
// The core's errors, described in the words that the user sees.

#include "Platform/OwnError.hpp"

#include <cerrno>
#include <stdexcept>
#include <string>

namespace tidewrack {

class TidewrackError : public std::runtime_error {
  public:
    enum class Kind { notTracked, refused, noSnapshot, corrupt, io };

    static TidewrackError notTracked(const std::string& path, const std::string& hint = "") {
        return {Kind::notTracked, path + " isn't tracked. Run `tidewrack track` in the project folder." + hint};
    }
    static TidewrackError refused(const std::string& message) { return {Kind::refused, message}; }
    static TidewrackError noSnapshot(long long seq) {
        return {Kind::noSnapshot, "No snapshot #" + std::to_string(seq) + "."};
    }
    static TidewrackError corrupt(const std::string& detail) {
        return {Kind::corrupt, "Corrupt store data: " + detail};
    }
    static TidewrackError io(const std::string& message) { return {Kind::io, message}; }
    // "can't <action> <path>: <system text>"
    static TidewrackError io(const std::string& action, const std::string& path, int error);

    // The same with where it was met behind its words.
    [[nodiscard]] TidewrackError in(const std::string& place) const {
        TidewrackError error(kind_, what() + (" in " + place));
        error.systemError_ = systemError_;
        return error;
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] int systemError() const { return systemError_; } // 0 where none is known
    [[nodiscard]] bool isForWantOfRoom() const { return isOutOfRoom(systemError_); }

  private:
    TidewrackError(Kind kind, const std::string& description) : std::runtime_error(description), kind_(kind) {}
    Kind kind_;
    int systemError_ = 0; // an errno value, where one is known
};

} // namespace tidewrack
