#include "korvel/WdbMultiBtreeIterator.h"

#include <algorithm>

namespace Korvel {
namespace {

// Orders the heap: the earliest record in front, of one time that of the first tree.
constexpr auto IsLater = [](const auto& one, const auto& other) {
    return one.time != other.time ? one.time > other.time : one.tree > other.tree;
};

}  // namespace

WdbMultiBtreeIterator::WdbMultiBtreeIterator(const std::vector<WdbScalarBTree*>& trees,
                                             long long start, long long end, long long resolution,
                                             long long latestTime) {
    m_iterators.reserve(trees.size());
    m_queue.reserve(trees.size());
    for (const WdbScalarBTree* tree : trees) {
        m_iterators.emplace_back(tree->find(start, resolution, latestTime, end));
        const WdbScalarBTree::Iterator& it = *m_iterators.back();
        if (it) m_queue.push_back({it.getTime(), m_iterators.size() - 1});
    }
    std::make_heap(m_queue.begin(), m_queue.end(), IsLater);
}

WdbMultiBtreeIterator::~WdbMultiBtreeIterator() = default;

WdbMultiBtreeIterator& WdbMultiBtreeIterator::operator++() {
    if (m_queue.empty()) return *this;
    std::pop_heap(m_queue.begin(), m_queue.end(), IsLater);
    Next& next = m_queue.back();
    WdbScalarBTree::Iterator& it = *m_iterators[next.tree];
    if (++it) {
        next.time = it.getTime();
        std::push_heap(m_queue.begin(), m_queue.end(), IsLater);
    } else {
        m_queue.pop_back();
    }
    return *this;
}

}  // namespace Korvel
