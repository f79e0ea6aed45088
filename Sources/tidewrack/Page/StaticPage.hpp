#pragma once
// The same page as one file that needs no server: everything it shows is in it.

#include "Page/Site.hpp"

#include <cstddef>
#include <string>

namespace tidewrack::page {

struct StaticSettings {
    std::string root;
    std::string version;
    std::size_t rows = 20; // of the timeline
    bool contents = true;  // with the lines that were changed, prompts, commands and the project's whole path
    std::string agent{};   // only its turns; empty: of all
    std::string session{}; // likewise
};

// Throws TidewrackError where the timeline can't be read. What can't be of one turn is left out.
[[nodiscard]] std::string staticPage(const StaticSettings& settings, const Runner& runner);

} // namespace tidewrack::page
