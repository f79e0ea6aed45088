#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace tidewrack::shell {

// Whether a list of words, a blank before and behind each, holds this one.
[[nodiscard]] constexpr bool listsWord(std::string_view words, std::string_view word) {
    if (word.empty() || word.find(' ') != word.npos) return false;
    for (std::size_t at = words.find(word); at != words.npos; at = words.find(word, at + 1))
        if (words[at - 1] == ' ' && words[at + word.size()] == ' ') return true;
    return false;
}

// Tells most names that are in no table from those that may be, by length, first and last letter.
class NameFilter {
  public:
    constexpr void add(std::string_view name) { lengths_[placeOf(name)] |= std::uint32_t{1} << name.size(); }
    [[nodiscard]] constexpr bool mayHold(std::string_view name) const {
        if (name.empty() || name.size() >= 32) return false;
        return ((lengths_[placeOf(name)] >> name.size()) & 1U) != 0;
    }

  private:
    [[nodiscard]] static constexpr std::size_t placeOf(std::string_view name) {
        const std::size_t first = static_cast<unsigned char>(name.front());
        const std::size_t last = static_cast<unsigned char>(name.back());
        return (first ^ (last << 3U)) & 255U;
    }

    std::array<std::uint32_t, 256> lengths_{};
};

} // namespace tidewrack::shell
