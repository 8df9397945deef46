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
    WdbScalarBTree::Iterator& it = *m_iterators[getTreeIndex()];
    if (++it) {
        m_queue.front().time = it.getTime();
    } else {
        m_queue.front() = m_queue.back();
        m_queue.pop_back();
    }
    sinkFront();
    return *this;
}

// Restores the heap after a change of its front, in one pass where taking it out and putting it
// back would need two.
void WdbMultiBtreeIterator::sinkFront() {
    if (m_queue.empty()) return;
    const Next moved = m_queue.front();
    std::size_t hole = 0;
    for (std::size_t child = 1; child < m_queue.size(); child = 2 * hole + 1) {
        if (child + 1 < m_queue.size() && IsLater(m_queue[child], m_queue[child + 1])) ++child;
        if (!IsLater(moved, m_queue[child])) break;
        m_queue[hole] = m_queue[child];
        hole = child;
    }
    m_queue[hole] = moved;
}

}  // namespace Korvel
