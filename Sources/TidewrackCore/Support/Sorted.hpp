#pragma once

#include <algorithm>
#include <vector>

namespace tidewrack {

template <typename Value>
void sortAndDedupe(std::vector<Value>& values) {
    if (values.size() < 2) return;
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
}

} // namespace tidewrack
