#include "inspect/TreeCursor.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace Korvel {

namespace {

using Key = unsigned char[WdbEventBlock::KeySize];

bool isSameKey(const Key& one, const Key& other) {
    return std::equal(std::begin(one), std::end(one), other);
}

bool isPartOf(const Key& part, const Key& whole) {
    return std::equal(std::begin(part), std::end(part), whole,
                      [](unsigned char p, unsigned char w) { return (p & ~w) == 0; });
}

// Addresses that have no bit in a key have no gaps either: the block's whole time span stands for
// them.
std::int64_t largestDiffOf(const WdbEventBlock& block, std::int64_t base, std::int64_t span) {
    try {
        return block.getLargestDiff(base);
    } catch (const std::out_of_range&) {
        return span;
    }
}

}  // namespace

Place TreeCursor::Level::entryPlace() const {
    Place entry = place;
    entry.entry = index;
    return entry;
}

std::int64_t TreeCursor::Level::timeLength() const {
    const auto entry = static_cast<unsigned int>(index);
    return timeBetween(node.timeBefore(entry), node.m_runningTimes[entry]);
}

// A rewrite that a kill cuts short ends at a page, which may lie within a number: its bytes are
// then of two times. Of the running times in use only the last is ever rewritten.
bool TreeCursor::Level::mayLastTimeBeTorn() const {
    constexpr std::int64_t PageSize = 4096;
    if (!isEdge || node.m_count == 0) return false;
    const std::int64_t first = place.node +
                               static_cast<std::int64_t>(offsetof(Node, m_runningTimes)) +
                               (node.m_count - 1) * std::int64_t{8};
    return first / PageSize != (first + 7) / PageSize;
}

TreeCursor::TreeCursor(Inspection& inspection, const Place& owner, std::int64_t stateBlock,
                       std::int64_t baseAddress)
    : m_inspection(inspection), m_place(owner), m_base(baseAddress) {
    Place place = owner;
    place.offset = stateBlock;
    WdbEventBTreeState state;
    if (!m_inspection.takeRecord(place, stateBlock, state)) return;
    if (std::any_of(std::begin(state.reserved), std::end(state.reserved),
                    [](unsigned char byte) { return byte != 0; })) {
        m_inspection.error(place, "the reserved bytes of the tree's state are not zero");
    }
    m_startTime = state.startTime;
    // The first node is in the file before the state names it; a kill may come in between.
    if (state.rootNode != 0) enter(state.rootNode, /*isEdge=*/true);
}

bool TreeCursor::next() {
    while (!m_path.empty()) {
        Level& level = m_path.back();
        if (++level.index >= static_cast<int>(level.node.m_count)) {
            leave();
        } else if (!level.isLeaf()) {
            enter(level.node.m_children[level.index], level.isAtEdgeEntry());
        } else if (takeRecord(level)) {
            return true;
        }
    }
    judgeLastLength();
    return false;
}

Place TreeCursor::place() const {
    return m_path.empty() ? m_place : m_path.back().entryPlace();
}

void TreeCursor::enter(std::int64_t offset, bool isEdge) {
    Level* parent = m_path.empty() ? nullptr : &m_path.back();
    Level& level = m_path.emplace_back();
    level.place = m_place;
    level.place.node = offset;
    level.isEdge = isEdge;
    if (!readNode(level)) {
        m_path.pop_back();
        if (parent != nullptr) parent->isWhole = false;
        ++m_recordCount;
        return;
    }
    judgeNode(level);
    if (parent == nullptr) return;
    judgeEntry(*parent, level);
    parent->largestGap = std::max<std::int64_t>(parent->largestGap, level.node.m_largestGap);
}

bool TreeCursor::readNode(Level& level) {
    if (!m_inspection.takeRecord(level.place, level.place.node, level.node)) return false;
    ++m_nodeCount;
    m_lastOfLevel.resize(std::max(m_lastOfLevel.size(), m_path.size()));
    std::int64_t& last = m_lastOfLevel[m_path.size() - 1];
    if (level.place.node < last) {
        m_inspection.error(level.place, "does not lie behind the node before it, at {}", last);
    }
    last = level.place.node;
    return true;
}

void TreeCursor::judgeNode(Level& level) {
    Node& node = level.node;
    const bool isRoot = m_path.size() == 1;
    if (node.m_count > Node::Capacity) {
        m_inspection.error(level.place, "{} entries are more than the {} of a node", node.m_count,
                           Node::Capacity);
        node.m_count = Node::Capacity;
    }
    if (node.m_count < Node::Capacity && !level.isEdge) {
        m_inspection.error(level.place, "a node with {} of {} entries is not the last of its level",
                           node.m_count, Node::Capacity);
    } else if (node.m_count == 0 && !(isRoot && level.isLeaf())) {
        m_inspection.error(level.place, "a node without entries");
    }
    if (node.m_isLeaf > 1) m_inspection.error(level.place, "a leaf flag of {}", node.m_isLeaf);
    if (m_depth == 0 && level.isLeaf()) m_depth = m_path.size();
    if (m_depth != 0 && level.isLeaf() != (m_path.size() == m_depth)) {
        m_inspection.error(level.place, "{} at level {} of a tree whose leaves are at level {}",
                           level.isLeaf() ? "a leaf" : "an inner node", m_path.size(), m_depth);
    }
    judgeUnused(level);
}

// What a rewrite puts first are children, a run of them right behind the used ones.
void TreeCursor::judgeUnused(Level& level) {
    const Node& node = level.node;
    unsigned int end = Node::Capacity;
    while (end > node.m_count && isEntryZero(node, end - 1))
        --end;
    if (end == node.m_count) return;
    level.isCutShort = level.isEdge;
    for (unsigned int i = node.m_count; i < end; ++i)
        level.isCutShort = level.isCutShort && mayBeChild(node, i);
    if (level.isCutShort) {
        m_inspection.warning(level.place,
                             "{} entries behind the {} in use: a rewrite of the node was cut short",
                             end - node.m_count, node.m_count);
    } else {
        m_inspection.error(level.place, "unused entry {} is not zero", end - 1);
    }
}

bool TreeCursor::isEntryZero(const Node& node, unsigned int index) const {
    return node.m_children[index] == 0 && node.m_runningTimes[index] == 0 &&
           isSameKey(node.m_keys[index], Key{});
}

bool TreeCursor::mayBeChild(const Node& node, unsigned int index) const {
    const std::size_t size = node.m_isLeaf != 0 ? sizeof(WdbEventBTreeRecordBlock) : sizeof(Node);
    return node.m_children[index] > 0 && m_inspection.bytes().holds(node.m_children[index], size);
}

// A node is written after its children, so what it says of its last one may be older.
void TreeCursor::judgeEntry(const Level& parent, const Level& child) {
    const std::int64_t length = parent.timeLength();
    const std::int64_t total = child.node.totalTime();
    const Key& key = parent.node.m_keys[parent.index];
    Key all = {};
    child.node.collectKeys(all);
    const bool hasSameKey = isSameKey(key, all);
    if (length == total && hasSameKey) return;
    const bool isLengthOlder =
        length <= total || parent.mayLastTimeBeTorn() || child.mayLastTimeBeTorn();
    if (parent.isAtEdgeEntry() && isLengthOlder && isPartOf(key, all)) {
        m_inspection.warning(parent.entryPlace(),
                             "was written before its child, by a recording that was not closed");
    } else if (!hasSameKey) {
        m_inspection.error(parent.entryPlace(), "the key is not that of the child");
    } else {
        m_inspection.error(parent.entryPlace(), "covers {} of time, its child {}", length, total);
    }
}

void TreeCursor::leave() {
    judgeGap(m_path.back());
    m_path.pop_back();
}

void TreeCursor::judgeGap(const Level& level) {
    const std::int64_t gap = level.node.m_largestGap;
    if (!level.isWhole || level.isCutShort || gap == level.largestGap) return;
    if (gap < level.largestGap && level.isEdge && !level.isLeaf()) {
        m_inspection.warning(level.place,
                             "the largest gap was written before the last child's, by a recording "
                             "that was not closed");
        return;
    }
    m_inspection.error(level.place, "a largest gap of {} instead of {}", gap, level.largestGap);
}

bool TreeCursor::takeRecord(Level& leaf) {
    ++m_recordCount;
    const std::int64_t offset = leaf.node.m_children[leaf.index];
    Place place = leaf.entryPlace();
    place.offset = offset;
    if (!m_inspection.takeRecord(place, offset, m_record)) {
        leaf.isWhole = false;
        return false;
    }
    leaf.largestGap = std::max<std::int64_t>(leaf.largestGap, m_record.largestDiff);
    if (m_record.padding != 0) {
        m_inspection.error(place, "the padding of the record is not zero");
    }
    if (offset < m_lastRecord || m_record.blockOffset < m_lastBlock) {
        m_inspection.error(place, "the record or its block does not lie behind the one before it");
    }
    m_lastRecord = offset;
    m_lastBlock = m_record.blockOffset;
    return true;
}

void TreeCursor::judgeBlock(const WdbEventBlock& block, std::int64_t firstTime,
                            std::int64_t lastTime) {
    const Level& leaf = m_path.back();
    if (m_recordCount == 1 && firstTime != m_startTime) {
        m_inspection.error(place(), "the first event's time, {}, is not the tree's start time, {}",
                           firstTime, m_startTime);
    }
    const std::int64_t span = timeBetween(firstTime, lastTime);
    const std::int64_t diff = largestDiffOf(block, m_base, span);
    if (m_record.largestDiff != diff) {
        m_inspection.error(place(), "a largest difference of {} instead of {}",
                           m_record.largestDiff, diff);
    }
    Key key;
    block.getkeyMap(m_base, key);
    if (!isSameKey(key, leaf.node.m_keys[leaf.index])) {
        m_inspection.error(place(), "the key is not that of the block's addresses");
    }
    judgeLength(firstTime);
    m_before = Covered{m_recordCount, place(), leaf.timeLength(),
                       firstTime,     span,    leaf.isAtEdgeEntry() && leaf.mayLastTimeBeTorn()};
}

void TreeCursor::judgeLength(std::int64_t nextStart) {
    if (!m_before || m_before->number + 1 != m_recordCount) return;
    const std::int64_t length = timeBetween(m_before->start, nextStart);
    if (m_before->length == length) return;
    m_inspection.error(m_before->place, "covers {} of time instead of {} up to the next block",
                       m_before->length, length);
}

// Where the last record was told of a block that no record names, the recording was killed then.
void TreeCursor::judgeLastLength() {
    if (!m_before || m_before->number != m_recordCount || m_before->length == m_before->span)
        return;
    if (m_before->length > m_before->span || m_before->mayBeTorn) {
        m_inspection.warning(m_before->place,
                             "covers {} of time, its block {}: a block that came next is not named",
                             m_before->length, m_before->span);
    } else {
        m_inspection.error(m_before->place, "covers {} of time, its block {}", m_before->length,
                           m_before->span);
    }
    m_before.reset();
}

}  // namespace Korvel
