#pragma once
// What a run gets from outside, so that tests choose it.

#include "Output.hpp"
#include "Store/Store.hpp"

#include <string>

namespace tidewrack {

// Everything a run may know of the world around it.
struct Surroundings {
    Environment environment;
    std::string currentFolder;
    std::string calledAs; // the program's name as it was called
    Sink& out;
    Sink& err;
    int input = 0; // the descriptor that events are read from
};

} // namespace tidewrack
