#pragma once
// Look-ups in tables of names.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

namespace tidewrack::shell {

template <std::size_t size>
[[nodiscard]] constexpr bool isIn(const std::array<std::string_view, size>& table, std::string_view name) {
    // Most differ in length or in the first letter.
    for (const std::string_view each : table)
        if (each.size() == name.size() && (each.empty() || (each[0] == name[0] && each == name))) return true;
    return false;
}

// Whether a list of words, a blank before and behind each, holds this one.
[[nodiscard]] constexpr bool listsWord(std::string_view words, std::string_view word) {
    if (word.empty() || word.find(' ') != word.npos) return false;
    for (std::size_t at = words.find(word); at != words.npos; at = words.find(word, at + 1))
        if (words[at - 1] == ' ' && words[at + word.size()] == ' ') return true;
    return false;
}

// Such a list in a table. Most words that it does not hold are told by their length together with the last letter, or
// with the one in the middle.
class WordList {
  public:
    constexpr WordList() = default;
    constexpr WordList(const char* words) : words_(words) {
        for (std::size_t begin = 1; begin < words_.size();) {
            const std::size_t end = words_.find(' ', begin);
            const std::string_view word = words_.substr(begin, end - begin);
            ends_ |= bit(word, word.size() - 1);
            middles_ |= bit(word, word.size() / 2);
            begin = end + 1;
        }
    }

    [[nodiscard]] constexpr bool empty() const { return words_.empty(); }
    [[nodiscard]] constexpr bool holds(std::string_view word) const {
        return !word.empty() && (ends_ & bit(word, word.size() - 1)) != 0 &&
               (middles_ & bit(word, word.size() / 2)) != 0 && listsWord(words_, word);
    }

  private:
    [[nodiscard]] static constexpr std::uint64_t bit(std::string_view word, std::size_t place) {
        return std::uint64_t{1} << ((word.size() * 11 + static_cast<unsigned char>(word[place])) & 63U);
    }

    std::string_view words_;
    std::uint64_t ends_ = 0;
    std::uint64_t middles_ = 0;
};

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

// Finds the entries of a table that is sorted by their names, and lives as long. Those of each first byte are looked
// through one by one: there are few, and most differ in length.
template <typename Entry>
class NameIndex {
  public:
    constexpr explicit NameIndex(std::span<const Entry> table) : table_(table.data()) {
        for (const Entry& entry : table) filter_.add(entry.name);
        for (std::size_t byte = 0, at = 0; byte < places_.size(); ++byte) {
            while (at < table.size() && static_cast<unsigned char>(table[at].name.front()) < byte) ++at;
            places_[byte] = static_cast<std::uint16_t>(at);
        }
    }

    // Null when none has this name.
    [[nodiscard]] constexpr const Entry* find(std::string_view name) const {
        if (!filter_.mayHold(name)) return nullptr;
        const std::size_t first = static_cast<unsigned char>(name.front());
        const Entry* const end = table_ + places_[first + 1];
        const Entry* const found =
            std::find_if(table_ + places_[first], end, [&](const Entry& entry) { return entry.name == name; });
        return found == end ? nullptr : found;
    }

  private:
    const Entry* table_;
    NameFilter filter_;
    std::array<std::uint16_t, 257> places_{};
};

// Whether the names of a table ascend, none of them twice.
template <typename Table>
[[nodiscard]] constexpr bool isSortedByName(const Table& table) {
    const auto isWrong = [](const auto& one, const auto& next) { return one.name >= next.name; };
    return std::adjacent_find(std::begin(table), std::end(table), isWrong) == std::end(table);
}

} // namespace tidewrack::shell
