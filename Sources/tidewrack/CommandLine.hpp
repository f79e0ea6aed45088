#pragma once
// The program as one function of its words and its surroundings.

#include "Surroundings.hpp"

#include <string>
#include <vector>

namespace tidewrack {

// Runs one command and returns the exit status. Never throws.
int run(const std::vector<std::string>& words, Surroundings& around);

} // namespace tidewrack
