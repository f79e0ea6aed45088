#pragma once
// The functions that a line defines.

#include "Shell/Program.hpp"

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack::shell {

class Functions {
  public:
    using Body = std::vector<Command>; // with depths as if it stood outside of all parentheses

    [[nodiscard]] bool contains(std::string_view name) const { return bodies_.find(name) != bodies_.end(); }
    [[nodiscard]] bool none() const { return bodies_.empty(); }
    // Null when there is no such function, when its body has not ended yet, and when that was too long.
    [[nodiscard]] std::shared_ptr<const Body> body(std::string_view name) const;

    // `definition` begins a function: NAME ( ), or "function" and NAME with the first words of the body. `nesting` and
    // `calls` tell how deep within texts and functions it stands.
    void begin(const std::string& name, const Command& definition, std::size_t nesting, std::size_t calls);

    // Whether a command at this place is one of the body that was begun last, if it has not ended.
    [[nodiscard]] bool recordsAt(std::size_t nesting, std::size_t calls) const {
        return recorded_ != nullptr && nesting == nesting_ && calls == calls_;
    }
    void record(const Command& command);

  private:
    void end(bool whole);

    std::map<std::string, std::shared_ptr<const Body>, std::less<>> bodies_;
    std::string name_; // of the one that is recorded
    std::shared_ptr<Body> recorded_;
    std::size_t nesting_ = 0;
    std::size_t calls_ = 0;
    std::size_t depth_ = 0;  // of the definition
    std::size_t braces_ = 0; // that are open
    bool inParentheses_ = false;
};

} // namespace tidewrack::shell
