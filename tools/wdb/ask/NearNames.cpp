#include "ask/NearNames.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <numeric>
#include <utility>

namespace Korvel {

namespace {

constexpr std::size_t MostNames = 3;
// Nobody writes longer ones by hand, and the distance costs the product of two lengths.
constexpr std::size_t LongestName = 500;

std::string lowered(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

// Letters to insert, remove or replace until one text is the other.
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] != b[j] ? 1 : 0);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row[b.size()];
}

std::string_view lastPart(std::string_view path) {
    return path.substr(path.rfind('.') + 1);
}

}  // namespace

std::vector<std::string> findNearNames(const DesignDescription& description,
                                       std::string_view name) {
    if (name.empty() || name.size() > LongestName) return {};
    const std::string wanted = lowered(name);
    const std::size_t mostEdits = std::max<std::size_t>(1, wanted.size() / 4);
    std::vector<std::pair<std::size_t, std::string>> near;  // how far, name
    const auto keep = [&near](std::size_t distance, std::string path) {
        std::pair<std::size_t, std::string> entry(distance, std::move(path));
        if (std::find(near.begin(), near.end(), entry) != near.end()) return;
        near.insert(
            std::upper_bound(near.begin(), near.end(), entry,
                             [](const auto& a, const auto& b) { return a.first < b.first; }),
            std::move(entry));
        if (near.size() > MostNames) near.pop_back();
    };
    for (ObjectId id = 0; id < description.objectCount(); ++id) {
        std::string path = description.objectPath(id);
        const std::string lower = lowered(path);
        const std::string_view tail =
            std::string_view(lower).substr(lower.size() - std::min(lower.size(), wanted.size()));
        const std::size_t lengthGap = std::max(lower.size(), wanted.size()) - tail.size();
        if (tail == wanted && (lengthGap == 0 || lower[lengthGap - 1] == '.')) {
            keep(0, std::move(path));
            continue;
        }
        const std::size_t distance =
            lengthGap <= mostEdits ? editDistance(lower, wanted) : mostEdits + 1;
        if (distance <= mostEdits) {
            keep(distance, std::move(path));
        } else if (lastPart(lower) == lastPart(wanted)) {
            keep(mostEdits + 1, std::move(path));
        }
    }
    std::vector<std::string> names;
    for (auto& [distance, path] : near)
        names.push_back(std::move(path));
    return names;
}

}  // namespace Korvel
