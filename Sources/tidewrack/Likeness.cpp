#include "Likeness.hpp"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace tidewrack {

std::optional<int> mistypedLetters(std::string_view typed, std::string_view meant) {
    constexpr std::size_t most = 2;
    const std::size_t longer = std::max(typed.size(), meant.size());
    if (typed == meant || longer - std::min(typed.size(), meant.size()) > most) return std::nullopt;
    // The distance of two texts by restricted transpositions: each row is about one more letter of `typed`.
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(meant.size() + 1);
    for (std::size_t i = 0; i <= meant.size(); ++i) last[i] = i;
    for (std::size_t row = 1; row <= typed.size(); ++row) {
        std::vector<std::size_t> next(meant.size() + 1, row);
        for (std::size_t i = 1; i <= meant.size(); ++i) {
            const std::size_t other = typed[row - 1] == meant[i - 1] ? 0 : 1;
            next[i] = std::min({last[i] + 1, next[i - 1] + 1, last[i - 1] + other});
            if (row > 1 && i > 1 && typed[row - 1] == meant[i - 2] && typed[row - 2] == meant[i - 1])
                next[i] = std::min(next[i], beforeLast[i - 2] + 1);
        }
        beforeLast = std::move(last);
        last = std::move(next);
    }
    return last.back() <= most ? std::optional(static_cast<int>(last.back())) : std::nullopt;
}

} // namespace tidewrack
