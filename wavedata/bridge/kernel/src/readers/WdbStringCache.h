#pragma once

#include <cstddef>
#include <list>
#include <string>
#include <unordered_map>

namespace Korvel {

/// The strings looked up last, by their ids. One thread at a time.
class WdbStringCache {
public:
    static constexpr unsigned int Capacity = 1000;

    /// The string, which counts as used now; null when it is not here. Lives until the next add.
    const std::string* find(long long id);

    /// Takes a string that is not here yet, in place of the one that was not used for longest.
    void add(long long id, const std::string& text);

    void clear();

private:
    using Recency = std::list<long long>;
    struct Entry {
        std::string text;
        Recency::iterator position;
    };

    Recency m_recency;  // front: least recently used
    std::unordered_map<long long, Entry> m_entries;
};

}  // namespace Korvel
