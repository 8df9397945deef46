#include "inspect/ObjectSelection.h"

#include <algorithm>
#include <numeric>

namespace Korvel {

namespace {

void appendMatches(const DesignDescription& description, const std::string& pattern,
                   std::vector<ObjectId>& selected) {
    const std::vector<ObjectId> named = description.findObjects(pattern);
    selected.insert(selected.end(), named.begin(), named.end());
    if (!named.empty() || pattern.find_first_of("*?") == std::string::npos) return;
    for (ObjectId id = 0; id < description.objectCount(); ++id) {
        if (matchesGlob(pattern, description.objectPath(id)) ||
            matchesGlob(pattern, description.objectPathWithRange(id))) {
            selected.push_back(id);
        }
    }
}

}  // namespace

bool matchesGlob(std::string_view pattern, std::string_view text) {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = std::string_view::npos;  // the last one seen
    std::size_t resume = 0;                     // where its characters end, as tried last
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

std::vector<ObjectId> selectObjects(const DesignDescription& description,
                                    const std::vector<std::string>& patterns,
                                    std::string& unmatched) {
    std::vector<ObjectId> selected;
    if (patterns.empty()) {
        selected.resize(description.objectCount());
        std::iota(selected.begin(), selected.end(), ObjectId{0});
    }
    for (const std::string& pattern : patterns) {
        const std::size_t before = selected.size();
        appendMatches(description, pattern, selected);
        if (selected.size() == before && unmatched.empty()) unmatched = pattern;
    }
    std::sort(selected.begin(), selected.end());
    selected.erase(std::unique(selected.begin(), selected.end()), selected.end());
    return selected;
}

}  // namespace Korvel
