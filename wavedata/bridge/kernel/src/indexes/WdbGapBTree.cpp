#include "indexes/WdbGapBTree.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Korvel {
namespace {

constexpr std::size_t PageHeader = 16;
constexpr std::size_t InnerEntry = 20;
constexpr unsigned int FirstRoom = 8;  // records of a new leaf

std::size_t widthOf(bool isWide) {
    return isWide ? sizeof(std::uint64_t) : sizeof(std::uint32_t);
}

// Puts a distance at its place in the times of a leaf. Each size of its own is one instruction.
void putDistance(char* times, unsigned int index, unsigned long long distance, bool isWide) {
    if (isWide) {
        std::memcpy(times + index * sizeof(std::uint64_t), &distance, sizeof(std::uint64_t));
        return;
    }
    const auto narrow = static_cast<std::uint32_t>(distance);
    std::memcpy(times + index * sizeof(narrow), &narrow, sizeof(narrow));
}

// Looks at several records at a time, without a branch among them, so that the compiler may look
// at them at once.
template <typename Distance>
unsigned int findGapAmong(const Distance* distances, unsigned int index, unsigned int last,
                          Distance gap) {
    constexpr unsigned int Stride = 16;
    while (index + Stride <= last) {
        unsigned int isFound = 0;
        for (unsigned int i = index; i < index + Stride; ++i)
            isFound |= static_cast<Distance>(distances[i + 1] - distances[i]) >= gap ? 1U : 0U;
        if (isFound != 0) break;
        index += Stride;
    }
    while (index < last && static_cast<Distance>(distances[index + 1] - distances[index]) < gap)
        ++index;
    return index;
}

template <typename Distance>
unsigned int countUpToAmong(const Distance* distances, unsigned int count, Distance distance) {
    return static_cast<unsigned int>(std::upper_bound(distances, distances + count, distance) -
                                     distances);
}

}  // namespace

unsigned int WdbLeafView::countUpTo(long long time) const {
    if (count == 0 || time < firstTime) return 0;
    const unsigned long long distance = timeBetween(firstTime, time);
    if (isWide) {
        return countUpToAmong(reinterpret_cast<const std::uint64_t*>(times), count,
                              static_cast<std::uint64_t>(distance));
    }
    if (distance > std::numeric_limits<std::uint32_t>::max()) return count;
    return countUpToAmong(reinterpret_cast<const std::uint32_t*>(times), count,
                          static_cast<std::uint32_t>(distance));
}

unsigned int WdbLeafView::findGap(unsigned int index, unsigned long long gap) const {
    const unsigned int last = count - 1;
    if (isWide) {
        return findGapAmong(reinterpret_cast<const std::uint64_t*>(times), index, last,
                            static_cast<std::uint64_t>(gap));
    }
    if (gap > std::numeric_limits<std::uint32_t>::max()) return last;
    return findGapAmong(reinterpret_cast<const std::uint32_t*>(times), index, last,
                        static_cast<std::uint32_t>(gap));
}

WdbGapBTree::WdbGapBTree(std::shared_ptr<WdbIndexPages> pages) : m_pages(std::move(pages)) {}

// The newest record has this time, or there is none that is pending.
void WdbGapBTree::addToNewestTime(long long time, unsigned char value) {
    const bool isBeforeNewest = time < m_pendingTime && (m_isPending || m_leafCount != 0);
    if (isBeforeNewest) return;
    if (m_leafCount != 0 && value == m_lastValue) {
        // A value that was replaced within its time by the one before was never there.
        m_isPending = false;
        return;
    }
    m_isPending = true;
    m_pendingTime = time;
    m_pendingValue = value;
}

void WdbGapBTree::commit() {
    unsigned long long distance =
        m_leafCount == 0 ? 0 : timeBetween(m_leafFirstTime, m_pendingTime);
    if (!leafTakes(distance)) {
        closeLeaf(m_pendingTime);
        distance = 0;
        leafTakes(distance);
    }
    if (m_leafCount == 0) {
        m_leafFirstTime = m_pendingTime;
    } else {
        m_leafGap = std::max(m_leafGap, timeBetween(m_lastTime, m_pendingTime));
    }
    putDistance(m_leaf.get(), m_leafCount, distance, m_isWide);
    m_leaf[m_leafRoom * widthOf(m_isWide) + m_leafCount] = static_cast<char>(m_pendingValue);
    ++m_leafCount;
    ++m_committed;
    m_lastTime = m_pendingTime;
    m_lastValue = m_pendingValue;
}

// Makes the unfinished leaf ready for one more record; false when it has to be closed first.
bool WdbGapBTree::leafTakes(unsigned long long distance) {
    const bool isWide = m_isWide || distance > std::numeric_limits<std::uint32_t>::max();
    if (m_leafCount >= leafLimit(isWide)) return false;
    if (isWide != m_isWide || m_leafCount >= m_leafRoom) makeRoom(isWide);
    return true;
}

void WdbGapBTree::makeRoom(bool isWide) {
    const unsigned int room =
        std::min(leafLimit(isWide),
                 std::max(FirstRoom, m_leafCount >= m_leafRoom ? 2 * m_leafRoom : m_leafRoom));
    std::unique_ptr<char[]> leaf(new char[room * (widthOf(isWide) + 1)]);
    const WdbLeafView old = getOpenLeaf();
    for (unsigned int i = 0; i < m_leafCount; ++i)
        putDistance(leaf.get(), i, old.distance(i), isWide);
    if (m_leafCount != 0) std::memcpy(leaf.get() + room * widthOf(isWide), old.values, m_leafCount);
    m_leaf = std::move(leaf);
    m_leafRoom = room;
    m_isWide = isWide;
}

void WdbGapBTree::closeLeaf(long long nextTime) {
    const WdbLeafView leaf = getOpenLeaf();
    std::vector<char> page(m_pages->getPageSize());
    const std::size_t width = widthOf(m_isWide);
    const auto pageWidth = static_cast<std::uint32_t>(width);
    std::memcpy(page.data(), &m_leafCount, sizeof(m_leafCount));
    std::memcpy(page.data() + 4, &pageWidth, sizeof(pageWidth));
    std::memcpy(page.data() + 8, &m_leafFirstTime, sizeof(m_leafFirstTime));
    char* times = page.data() + PageHeader;
    std::memcpy(times, leaf.times, m_leafCount * width);
    std::memcpy(times + leafLimit(m_isWide) * width, leaf.values, m_leafCount);
    addChild(0, m_leafFirstTime, std::max(m_leafGap, timeBetween(m_lastTime, nextTime)),
             m_pages->add(page.data()));
    m_leafCount = 0;
    m_leafGap = 0;
    if (m_isWide) {
        m_leafRoom = 0;
        m_isWide = false;
    }
}

// An unfinished node that is full becomes a page only when it is to take one more child: it is
// never empty.
void WdbGapBTree::addChild(unsigned int level, long long firstTime, unsigned long long gap,
                           WdbIndexPages::Handle page) {
    if (level == m_edges.size()) m_edges.emplace_back();
    if (m_edges[level].pages.size() == innerLimit()) {
        const Edge& edge = m_edges[level];
        const std::size_t limit = innerLimit();
        const auto count = static_cast<std::uint32_t>(limit);
        std::vector<char> image(m_pages->getPageSize());
        std::memcpy(image.data(), &count, sizeof(count));
        char* to = image.data() + PageHeader;
        std::memcpy(to, edge.firstTimes.data(), 8 * limit);
        std::memcpy(to + 8 * limit, edge.gaps.data(), 8 * limit);
        std::memcpy(to + 16 * limit, edge.pages.data(), 4 * limit);
        const long long edgeFirstTime = edge.firstTimes.front();
        const unsigned long long edgeGap = *std::max_element(edge.gaps.begin(), edge.gaps.end());
        addChild(level + 1, edgeFirstTime, edgeGap, m_pages->add(image.data()));
        m_edges[level] = Edge();
    }
    Edge& edge = m_edges[level];
    edge.firstTimes.push_back(firstTime);
    edge.gaps.push_back(gap);
    edge.pages.push_back(page);
}

unsigned int WdbGapBTree::leafLimit(bool isWide) const {
    return static_cast<unsigned int>((m_pages->getPageSize() - PageHeader) / (widthOf(isWide) + 1));
}

unsigned int WdbGapBTree::innerLimit() const {
    return static_cast<unsigned int>((m_pages->getPageSize() - PageHeader) / InnerEntry);
}

WdbInnerView WdbGapBTree::getEdge(unsigned int level) const {
    const Edge& edge = m_edges[level - 1];
    return {edge.firstTimes.data(), edge.gaps.data(), edge.pages.data(),
            static_cast<unsigned int>(edge.pages.size())};
}

WdbLeafView WdbGapBTree::getOpenLeaf() const {
    const char* values = m_leaf.get() + m_leafRoom * widthOf(m_isWide);
    return {m_leaf.get(), reinterpret_cast<const unsigned char*>(values), m_leafFirstTime,
            m_leafCount, m_isWide};
}

WdbInnerView WdbGapBTree::getInner(WdbIndexPages::Handle page) const {
    const char* image = m_pages->page(page);
    std::uint32_t count;
    std::memcpy(&count, image, sizeof(count));
    const char* entries = image + PageHeader;
    const std::size_t limit = innerLimit();
    return {reinterpret_cast<const long long*>(entries),
            reinterpret_cast<const unsigned long long*>(entries + 8 * limit),
            reinterpret_cast<const WdbIndexPages::Handle*>(entries + 16 * limit), count};
}

WdbLeafView WdbGapBTree::getLeaf(WdbIndexPages::Handle page) const {
    const char* image = m_pages->page(page);
    std::uint32_t count;
    std::uint32_t width;
    WdbLeafView leaf;
    std::memcpy(&count, image, sizeof(count));
    std::memcpy(&width, image + 4, sizeof(width));
    std::memcpy(&leaf.firstTime, image + 8, sizeof(leaf.firstTime));
    leaf.isWide = width == sizeof(std::uint64_t);
    leaf.count = count;
    leaf.times = image + PageHeader;
    leaf.values = reinterpret_cast<const unsigned char*>(leaf.times) +
                  leafLimit(leaf.isWide) * widthOf(leaf.isWide);
    return leaf;
}

long long WdbGapBTree::getEdgeFirstTime(unsigned int level) const {
    return level > 0 ? m_edges[level - 1].firstTimes.front() : m_leafFirstTime;
}

}  // namespace Korvel
