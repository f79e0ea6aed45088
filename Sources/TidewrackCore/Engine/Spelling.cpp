#include "Engine/Spelling.hpp"

#include "Support/Text.hpp"

#include <set>
#include <unordered_map>

namespace tidewrack {

std::vector<std::string> asListed(const std::vector<std::string>& paths,
                                  std::initializer_list<const Manifest*> listings) {
    std::unordered_map<std::string, std::set<std::string>> spellings;
    for (const std::string& path : paths) spellings[caseFolded(path)];
    for (const Manifest* listing : listings)
        for (const auto& item : listing->items()) {
            const auto wanted = spellings.find(caseFolded(item.path));
            if (wanted != spellings.end()) wanted->second.emplace(item.path);
        }
    std::vector<std::string> result;
    for (const std::string& path : paths) {
        const auto& listed = spellings[caseFolded(path)];
        result.insert(result.end(), listed.begin(), listed.end());
        if (listed.empty()) result.push_back(path);
    }
    return result;
}

} // namespace tidewrack
