#pragma once
// How much room the store takes, by what.

#include "Engine/Engine.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tidewrack {

// Room on the volume, in bytes.
struct Space {
    std::int64_t taken = 0;
    std::int64_t shared = 0; // of these also other files', as far as the volume tells
    bool sharedIsKnown = true;

    void add(const Space& other);
    [[nodiscard]] std::int64_t own() const { return taken - shared; }
};

struct LargeContent {
    std::string blob;
    std::string path; // relative to the project; empty where no listing names it
    std::int64_t size = 0;
    std::int64_t seq = 0; // the snapshot that kept it
    Space space;
};

// What a prune would free now.
struct Freeable {
    std::int64_t snapshots = 0;
    std::int64_t contents = 0;
    std::int64_t bytes = 0; // own ones; those that contents share with nothing but each other are not among them
};

struct ProjectUsage {
    std::string id;
    std::string root;
    std::int64_t snapshots = 0;
    std::int64_t contents = 0;
    Space contentSpace;
    std::int64_t listingBytes = 0;
    std::int64_t recordBytes = 0; // with the few other files
    std::vector<LargeContent> largest;
    std::optional<Freeable> freeable;
    std::string whyNot; // nothing can be told of what a prune would free

    [[nodiscard]] std::int64_t taken() const { return contentSpace.taken + listingBytes + recordBytes; }
};

struct VaultUsage {
    std::int64_t entries = 0;
    Space space;
};

constexpr std::size_t mostLargeContents = 10;

[[nodiscard]] ProjectUsage projectUsage(const Engine& engine, const Project& project, Date now);
// The room that a history takes, shared or not.
[[nodiscard]] std::int64_t storedBytes(const History& history);
[[nodiscard]] VaultUsage vaultUsage(const Store& store);

} // namespace tidewrack
