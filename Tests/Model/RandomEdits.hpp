#pragma once
// Whatever may happen to a folder between two snapshots, at random.

#include "Model/Tree.hpp"

#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace tidewrack::testing {

// Equal on every system for equal seeds.
class Chance {
  public:
    explicit Chance(std::uint64_t seed) : random_(seed) {}
    std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
    bool oneIn(std::size_t count) { return below(count) == 0; }
    template <typename List>
    auto& of(const List& list) {
        return list[below(std::size(list))];
    }
    // A path of the tree that passes the test; empty when there is none.
    template <typename Test>
    std::string pathIn(const Tree& tree, Test test) {
        std::vector<std::string> fit;
        for (const auto& [path, node] : tree)
            if (test(path, node)) fit.push_back(path);
        return fit.empty() ? std::string() : of(fit);
    }

  private:
    std::mt19937_64 random_;
};

class RandomEdits {
  public:
    // Files grow to about twice `sizeLimit`. Links lead out to `outside`, too, but nothing is ever done through them.
    RandomEdits(std::string root, std::string outside, std::size_t sizeLimit, std::uint64_t seed);

    // Changes the folder, which looks like `now`, in one way; says what it did.
    std::string edit(const Tree& now);

  private:
    std::string newPath(const Tree& now);
    std::string anyPath(const Tree& now, bool filesOnly);
    std::string content();
    std::string write(const std::string& path, int flags, const std::string& text) const;
    std::string overwriteUnseen(const std::string& path, const Node& was) const;
    std::string chmod(const std::string& path, const Node& was);
    std::string touch(const std::string& path, const Node& was);
    std::string becomeOther(const std::string& path);
    std::string add(const std::string& path, const std::string& old, const std::string& file);
    [[nodiscard]] std::string at(const std::string& path) const { return root_ + "/" + path; }

    std::string root_;
    std::vector<std::string> destinations_;
    std::vector<std::string> names_;
    std::size_t sizeLimit_;
    Chance chance_;
};

} // namespace tidewrack::testing
