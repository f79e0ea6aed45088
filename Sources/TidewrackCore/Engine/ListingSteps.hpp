#pragma once
// What changes from one listing of a history to the next. Neighbours are mostly equal, so their texts are compared, and
// only the lines that differ are decoded.

#include "Store/History.hpp"

#include <cstdint>
#include <deque>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tidewrack {

// The entries of two listings whose lines differ, be it only in their times.
struct ListingDifference {
    Manifest older;
    Manifest newer;
};

// Of two manifests' texts. Throws TidewrackError corrupt for lines that differ and cannot be read.
[[nodiscard]] ListingDifference differenceOf(std::string_view older, std::string_view newer);

// Where a file that only one listing has stands in the other one under another name: one of the same size and content
// that the first one lacks. None when there is none, and for empty files. Contents may be "live:" ones.
[[nodiscard]] std::optional<std::string> placeOfSame(const History& history, const Manifest::Item& item,
                                                     const Manifest& own, const Manifest& other);

// Hands out the texts of manifests in a given order, and reads ahead on other threads.
class ListingReader {
  public:
    // `history` must outlive it.
    ListingReader(const History& history, std::vector<std::int64_t> manifests);
    // The next one. Throws what reading it threw; the one after it can be read all the same.
    [[nodiscard]] TextBuffer next();

  private:
    void readAhead();

    const History& history_;
    std::vector<std::int64_t> manifests_;
    std::size_t begun_ = 0;
    std::deque<std::future<TextBuffer>> waiting_;
};

} // namespace tidewrack
