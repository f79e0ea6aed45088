#include "Support/Paths.hpp"

#include <vector>

namespace tidewrack {

std::string_view lastComponent(std::string_view path) {
    while (!path.empty() && path.back() == '/') path.remove_suffix(1);
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view parentOf(std::string_view path) {
    const auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return {};
    return path.substr(0, slash == 0 ? 1 : slash);
}

std::string standardized(std::string_view path) {
    std::vector<std::string_view> components;
    while (!path.empty()) {
        const auto slash = path.find('/');
        const std::string_view component = path.substr(0, slash);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        if (component.empty() || component == ".") continue;
        if (component != "..")
            components.push_back(component);
        else if (!components.empty())
            components.pop_back();
    }
    std::string result;
    for (const std::string_view component : components) {
        result += '/';
        result += component;
    }
    return result.empty() ? "/" : result;
}

std::string absolutePath(std::string_view path, std::string_view base) {
    return standardized(path.starts_with('/') ? std::string(path) : std::string(base) + "/" + std::string(path));
}

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    if (folder.empty() || folder == "/") return true;
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::string joined(std::string_view folder, std::string_view name) {
    std::string result(folder);
    if (!result.ends_with('/')) result += '/';
    result += name;
    return result;
}

} // namespace tidewrack
