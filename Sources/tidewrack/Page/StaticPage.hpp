#pragma once
// The same page as one file that needs no server: everything it shows is in it.

#include "Page/Site.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace tidewrack::page {

struct StaticSettings {
    std::string root;
    std::string version;
    std::size_t rows = 20; // of the timeline
    bool contents = true;  // with the lines that were changed, prompts, commands and the project's whole path
    std::string agent{};   // only its turns; empty: of all
    std::string session{}; // likewise
};

struct StaticPage {
    std::string text;
    std::vector<std::string> missing; // lines about what could not be read, and is left out; the page has them too
};

// Throws TidewrackError where the timeline can't be read.
[[nodiscard]] StaticPage staticPage(const StaticSettings& settings, const Runner& runner);

} // namespace tidewrack::page
