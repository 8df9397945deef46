#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "korvel/WdbScalarBTree.h"

namespace Korvel {

/// Merges the records of several trees into one stream in time order; records of one time come in
/// the order of the trees. The manager's mutex is held while the trees may grow. One thread at a
/// time.
class __attribute__((visibility("default"))) WdbMultiBtreeIterator {
public:
    /// Begins, for each tree, at the record in effect at @p start or at its first later one, and
    /// ends behind @p end. The parameters are those of WdbScalarBTree::find.
    WdbMultiBtreeIterator(const std::vector<WdbScalarBTree*>& trees, long long start, long long end,
                          long long resolution, long long latestTime);
    ~WdbMultiBtreeIterator();
    WdbMultiBtreeIterator(const WdbMultiBtreeIterator&) = delete;
    WdbMultiBtreeIterator& operator=(const WdbMultiBtreeIterator&) = delete;

    /// False at the end.
    operator bool() const { return !m_queue.empty(); }

    /// Position in the list of trees of the tree that the current record is of.
    std::size_t getTreeIndex() const { return m_queue.front().tree; }
    long long getTime() const { return m_queue.front().time; }

    /// The current record.
    WdbTimeByteValue operator*() const { return **m_iterators[getTreeIndex()]; }

    WdbMultiBtreeIterator& operator++();

private:
    struct Next {
        long long time;
        std::size_t tree;
    };

    void sinkFront();

    std::vector<std::unique_ptr<WdbScalarBTree::Iterator>> m_iterators;  // one a tree
    std::vector<Next> m_queue;  // a heap of those that are not at their end, earliest in front
};

}  // namespace Korvel
