#include "Support/Paths.hpp"

#include <algorithm>

namespace tidewrack {

namespace {

// Whether no component is empty, or begins with a dot.
bool isPlain(std::string_view path) {
    char before = '/';
    for (const char c : path) {
        if (before == '/' && (c == '/' || c == '.')) return false;
        before = c;
    }
    return before != '/';
}

void appendComponents(std::string& path, std::string_view more) {
    // Most need no more than one slash in front.
    if (more.starts_with('/')) more.remove_prefix(1);
    if (isPlain(more)) {
        path += '/';
        path += more;
        return;
    }
    while (!more.empty()) {
        const std::size_t slash = std::min(more.find('/'), more.size());
        const std::string_view component = more.substr(0, slash);
        more.remove_prefix(std::min(slash + 1, more.size()));
        if (component.empty() || component == ".") continue;
        if (component == "..") {
            path.resize(path.empty() ? 0 : path.rfind('/'));
        } else {
            path += '/';
            path += component;
        }
    }
}

} // namespace

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
    return absolutePath(path, "/");
}

std::string absolutePath(std::string_view path, std::string_view base) {
    std::string result;
    result.reserve(base.size() + path.size() + 1);
    if (!path.starts_with('/')) appendComponents(result, base);
    appendComponents(result, path);
    if (result.empty()) result += '/';
    return result;
}

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    if (folder.empty() || folder == "/") return true;
    if (path.size() < folder.size() || (path.size() > folder.size() && path[folder.size()] != '/')) return false;
    return path.starts_with(folder); // seldom needed: most paths have no slash at that place
}

std::string_view pathBelow(std::string_view path, std::string_view folder) {
    const std::size_t slash = folder == "/" || folder.empty() ? 0 : 1;
    return path.substr(std::min(path.size(), folder.size() + slash));
}

std::string joined(std::string_view folder, std::string_view name) {
    std::string result(folder);
    if (!result.ends_with('/')) result += '/';
    result += name;
    return result;
}

} // namespace tidewrack
