#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "container/WdbFileHeader.h"
#include "container/WdbIHandleCheck.h"
#include "events/WdbEventBTreeNode.h"

namespace Korvel {

/// Nodes of an event B-tree from the root downwards, one a level: the right edge of a tree that
/// grows, or the way to one of its entries.
///
/// Nodes are shared between copies of a path, and copied before they are changed: a copy stays as
/// it is while the tree grows on.
template <typename Key, unsigned int N, typename Store>
class WdbEventTreePath {
public:
    using Node = WdbEventBTreeNode<Key, N>;

    struct Level {
        std::shared_ptr<Node> node;
        long long offset = 0;      // in the file
        unsigned int cursor = 0;   // entry that a search is at
        unsigned int claimed = 0;  // entries that the file claimed when the node was read
        bool isDirty = false;      // newer than the file
    };

    /// @param store  Holds the nodes; outlives the path.
    explicit WdbEventTreePath(Store& store)
        : m_pStore(&store), m_pCheck(WdbIHandleCheck::of(store)) {}

    std::size_t depth() const { return m_levels.size(); }
    bool isEmpty() const { return m_levels.empty(); }
    Level& level(std::size_t index) { return m_levels[index]; }
    const Level& level(std::size_t index) const { return m_levels[index]; }
    Level& deepest() { return m_levels.back(); }
    const Level& deepest() const { return m_levels.back(); }

    /// Time covered by the tree whose root is the first node.
    Key getIndexLength() const { return isEmpty() ? 0 : m_levels.front().node->totalTime(); }

    long long getRoot() const { return isEmpty() ? 0 : m_levels.front().offset; }

    /// Number of records below one entry of a level, of a tree whose right edge the path is.
    std::size_t spread(std::size_t level) const {
        std::size_t records = 1;
        for (std::size_t i = level + 1; i < depth(); ++i)
            records *= N;
        return records;
    }

    /// Number of records of that tree.
    std::size_t countRecords() const {
        std::size_t count = 0;
        for (std::size_t i = 0; i < depth(); ++i)
            count += (m_levels[i].node->m_count - (i + 1 < depth() ? 1 : 0)) * spread(i);
        return count;
    }

    // --- Reading. ---

    /// Reads a node onto the path. False, and no change, when it cannot be read. Entries that make
    /// no sense are cut off, and all behind the first @p claimed.
    bool push(long long nodeOffset, unsigned int claimed = N) {
        if (nodeOffset == 0) return false;
        if (m_pCheck != nullptr && !m_pCheck->mayFollow(nodeOffset, sizeof(Node))) return false;
        Level level;
        level.node = std::make_shared<Node>();
        level.offset = nodeOffset;
        m_pStore->getBlock(nodeOffset, reinterpret_cast<char*>(level.node.get()), sizeof(Node));
        level.claimed = claimed;
        level.node->m_count = std::min(claimed, usableEntries(*level.node));
        m_levels.push_back(std::move(level));
        return true;
    }

    /// Puts a node on the path that was read before.
    void push(const Level& level) { m_levels.push_back(level); }
    void pop() { m_levels.pop_back(); }

    // --- Growing. The path is the tree's right edge. ---

    /// Begins a tree: one empty leaf, stored.
    void makeRoot() {
        Level root;
        root.node = std::make_shared<Node>();
        root.node->m_isLeaf = 1;
        store(root);
        m_levels.assign(1, root);
    }

    /// Appends an entry to the leaf. A node that is full is written, and what its parent says of
    /// it brought up to date, before a new sibling takes its place.
    void append(long long childOffset, const Key& timeLength, const Key& largestDiff,
                const unsigned char* key) {
        Entry entry{childOffset, timeLength};
        for (std::size_t index = depth(); index-- > 0;) {
            Level& full = m_levels[index];
            if (full.node->m_count < N) {
                edit(full).append(entry.child, entry.timeLength, largestDiff, key);
                return;
            }
            if (index > 0) tellParent(index);
            write(full);
            Level sibling;
            sibling.node = std::make_shared<Node>();
            sibling.node->m_isLeaf = full.node->m_isLeaf;
            sibling.node->append(entry.child, entry.timeLength, largestDiff, key);
            store(sibling);
            entry = {sibling.offset, sibling.node->totalTime()};
            std::swap(full, sibling);
            if (index > 0) continue;
            growRoot(/*old=*/sibling, entry, largestDiff, key);
        }
    }

    /// Replaces the time length of the last record.
    void setLastTimeLength(const Key& timeLength) {
        Level& leaf = deepest();
        const unsigned int last = leaf.node->m_count - 1;
        const Key total = addTimes(leaf.node->timeBefore(last), timeLength);
        if (leaf.node->m_runningTimes[last] != total) edit(leaf).m_runningTimes[last] = total;
    }

    /// Makes what each node says of the next one equal to it, from the leaf upwards.
    void settle() {
        for (std::size_t index = depth(); index-- > 1;)
            tellParent(index);
    }

    /// Whether a node is newer than the file. Where none is, what each says of the next one is
    /// true.
    bool isDirty() const {
        return std::any_of(m_levels.begin(), m_levels.end(),
                           [](const Level& level) { return level.isDirty; });
    }

    /// Writes every node that is newer than the file: children before what names them.
    void writeAll() {
        for (std::size_t index = depth(); index-- > 0;)
            write(m_levels[index]);
    }

    /// The last running time of the leaf is the one that is rewritten, perhaps only in part when
    /// its writer was killed; no entry ends before it begins.
    void mendLastTime() {
        const Node& leaf = *deepest().node;
        if (leaf.m_count > 0 && leaf.totalTime() < leaf.timeBefore(leaf.m_count - 1))
            setLastTimeLength(0);
    }

    /// Takes the deepest node's last entry away: it names what cannot be read.
    void dropLastEntry() { --edit(deepest()).m_count; }

    /// Whether all numbers of a tree with one level more would stay within their types. Its
    /// records may still be more than the file can hold.
    bool mayBeDeeper() const {
        constexpr std::size_t MostRecords = std::size_t{1} << 48;
        std::size_t records = N;
        for (std::size_t i = 0; i <= depth() && records <= MostRecords; ++i)
            records *= N;
        return records <= MostRecords;
    }

    /// Whether the file can hold as many records as the path, a right edge, says. A tree that lies
    /// would take for ever to go through: its nodes may share their children.
    bool mayBeWhole() const {
        constexpr std::size_t BytesOfRecord =
            sizeof(Node) / N + sizeof(WdbEventBTreeRecordBlock) + 1;
        return m_pCheck == nullptr ||
               m_pCheck->mayFollow(sizeof(WdbFileHeader), countRecords() / N * N * BytesOfRecord);
    }

private:
    struct Entry {
        long long child;
        Key timeLength;
    };

    // Children of a node lie in the file in their order. Where they do not, a walk might not end.
    unsigned int usableEntries(const Node& node) const {
        unsigned int usable = 0;
        long long before = 0;
        while (usable < node.m_count && usable < N && node.m_children[usable] != 0 &&
               (m_pCheck == nullptr || node.m_children[usable] > before)) {
            before = node.m_children[usable++];
        }
        return usable;
    }

    Node& edit(Level& level) {
        if (level.node.use_count() > 1) level.node = std::make_shared<Node>(*level.node);
        level.isDirty = true;
        return *level.node;
    }

    // Both entries say what the nodes below say: the first for good, the second is kept current.
    void growRoot(const Level& old, const Entry& entry, const Key& largestDiff,
                  const unsigned char* key) {
        Level root;
        root.node = std::make_shared<Node>();
        unsigned char allKeys[WdbEventBlock::KeySize] = {};
        old.node->collectKeys(allKeys);
        root.node->append(old.offset, old.node->totalTime(), old.node->m_largestGap, allKeys);
        root.node->append(entry.child, entry.timeLength, largestDiff, key);
        store(root);
        m_levels.insert(m_levels.begin(), root);
    }

    void tellParent(std::size_t index) {
        const Node& child = *m_levels[index].node;
        Level& parent = m_levels[index - 1];
        const Node& said = *parent.node;
        const unsigned int last = said.m_count - 1;
        const Key total = addTimes(said.timeBefore(last), child.totalTime());
        unsigned char key[WdbEventBlock::KeySize];
        std::memcpy(key, said.m_keys[last], sizeof(key));
        child.collectKeys(key);
        if (said.m_runningTimes[last] == total && said.m_largestGap >= child.m_largestGap &&
            std::memcmp(said.m_keys[last], key, sizeof(key)) == 0) {
            return;
        }
        Node& changed = edit(parent);
        changed.m_runningTimes[last] = total;
        changed.m_largestGap = std::max(changed.m_largestGap, child.m_largestGap);
        std::memcpy(changed.m_keys[last], key, sizeof(key));
    }

    void store(Level& level) {
        level.offset =
            m_pStore->addBlock(reinterpret_cast<const char*>(level.node.get()), sizeof(Node));
    }

    void write(Level& level) {
        if (!level.isDirty) return;
        m_pStore->putBlock(level.offset, reinterpret_cast<const char*>(level.node.get()),
                           sizeof(Node));
        level.isDirty = false;
    }

    Store* m_pStore;
    const WdbIHandleCheck* m_pCheck;  // null where offsets come from this process alone
    std::vector<Level> m_levels;      // root first
};

}  // namespace Korvel
