#pragma once
// The page's own files, put into the program when it is built.

#include <span>
#include <string_view>

namespace tidewrack::page {

struct Asset {
    std::string_view path; // "/page.js"
    const char* type;
    std::string_view bytes;
};

// Made by cmake/Assets.cmake.
[[nodiscard]] std::span<const Asset> assets();

[[nodiscard]] inline const Asset* assetAt(std::string_view path) {
    for (const Asset& asset : assets())
        if (asset.path == path) return &asset;
    return nullptr;
}

} // namespace tidewrack::page
