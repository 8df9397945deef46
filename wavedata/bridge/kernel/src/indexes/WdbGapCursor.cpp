#include "indexes/WdbGapCursor.h"

#include <algorithm>

namespace Korvel {
namespace {

// Before the first child: what is looked at next is child 0.
constexpr unsigned int BeforeFirst = 0U - 1U;

}  // namespace

WdbGapCursor::WdbGapCursor(const WdbGapBTree& tree) : m_tree(&tree), m_steps(tree.getHeight()) {}

long long WdbGapCursor::getTime() const {
    return m_place == Place::Pending ? m_tree->getPendingTime() : m_leaf.time(m_index);
}

unsigned char WdbGapCursor::getValue() const {
    return m_place == Place::Pending ? m_tree->getPendingValue() : m_leaf.values[m_index];
}

void WdbGapCursor::seek(long long time) {
    if (m_tree->isPending() && m_tree->getPendingTime() <= time) {
        m_place = Place::Pending;
        return;
    }
    const unsigned int height = m_tree->getHeight();
    if (height > 0) stepAt(height) = edgeAt(height);
    for (unsigned int level = height; level > 0; --level) {
        Step& step = stepAt(level);
        const long long* first = step.node.firstTimes;
        const auto upTo = static_cast<unsigned int>(
            std::upper_bound(first, first + step.node.count, time) - first);
        if (step.isEdge && upTo == step.node.count && m_tree->getEdgeFirstTime(level - 1) <= time) {
            step.child = upTo;
        } else {
            step.child = upTo == 0 ? 0 : upTo - 1;
        }
        enterChild(level);
    }
    if (height == 0) enterOpenLeaf();
    if (m_leaf.count == 0) {
        leaveOpenLeaf();
        return;
    }
    const unsigned int upTo = m_leaf.countUpTo(time);
    m_index = upTo == 0 ? 0 : upTo - 1;
    m_place = Place::Leaf;
}

// Goes one level down, to the child that the step at @p level has taken.
void WdbGapCursor::enterChild(unsigned int level) {
    const Step& step = stepAt(level);
    const bool isEdge = step.child == step.node.count;
    if (level > 1) {
        stepAt(level - 1) = isEdge ? edgeAt(level - 1)
                                   : Step{m_tree->getInner(step.node.pages[step.child]), 0, false};
    } else if (isEdge) {
        enterOpenLeaf();
    } else {
        m_leaf = m_tree->getLeaf(step.node.pages[step.child]);
        m_isOpenLeaf = false;
    }
}

void WdbGapCursor::enterFirst(unsigned int level) {
    for (; level > 0; --level)
        enterChild(level);
    m_index = 0;
}

void WdbGapCursor::enterOpenLeaf() {
    m_leaf = m_tree->getOpenLeaf();
    m_isOpenLeaf = true;
}

void WdbGapCursor::leaveOpenLeaf() {
    m_place = m_tree->isPending() ? Place::Pending : Place::End;
}

void WdbGapCursor::next() {
    if (m_place != Place::Leaf) {
        m_place = Place::End;
    } else if (m_index + 1 < m_leaf.count) {
        ++m_index;
    } else if (m_isOpenLeaf) {
        leaveOpenLeaf();
    } else {
        unsigned int level = 1;
        while (!stepAt(level).hasNext())
            ++level;
        ++stepAt(level).child;
        enterFirst(level);
    }
}

bool WdbGapCursor::findNextTime(long long& time) const {
    if (m_place != Place::Leaf) return false;
    if (m_index + 1 < m_leaf.count) {
        time = m_leaf.time(m_index + 1);
        return true;
    }
    if (m_isOpenLeaf) {
        time = m_tree->getPendingTime();
        return m_tree->isPending();
    }
    unsigned int level = 1;
    while (!stepAt(level).hasNext())
        ++level;
    const Step& step = stepAt(level);
    time = step.child + 1 < step.node.count ? step.node.firstTimes[step.child + 1]
                                            : m_tree->getEdgeFirstTime(level - 1);
    return true;
}

bool WdbGapCursor::isFollowedWithin(unsigned long long gap, long long end) const {
    long long nextTime = 0;
    return findNextTime(nextTime) && nextTime <= end && timeBetween(getTime(), nextTime) < gap;
}

void WdbGapCursor::skipRun(unsigned long long gap, long long end) {
    if (m_place != Place::Leaf) return;
    if (!findGapInLeaf(gap)) climbToGap(gap);
    if (getTime() > end) seek(end);
}

// Looks for the gap from the current record of the leaf on. The newest record ends every run.
bool WdbGapCursor::findGapInLeaf(unsigned long long gap) {
    m_index = m_leaf.findGap(m_index, gap);
    if (m_index + 1 < m_leaf.count) return true;
    long long nextTime = 0;
    if (!findNextTime(nextTime) || timeBetween(getTime(), nextTime) >= gap) return true;
    if (m_isOpenLeaf) m_place = Place::Pending;
    return m_isOpenLeaf;
}

// The leaf has no such gap from the current record on: looks behind it.
void WdbGapCursor::climbToGap(unsigned long long gap) {
    unsigned int level = 1;
    for (;;) {
        Step& step = stepAt(level);
        const unsigned long long* gaps = step.node.gaps;
        unsigned int child = step.child + 1;
        while (child < step.node.count && gaps[child] < gap)
            ++child;
        if (child < step.node.count) {
            step.child = child;
            descendToGap(level, gap);
            return;
        }
        if (!step.isEdge || step.child == step.node.count) {
            ++level;  // only edges have no level above, and there the unfinished child ends it all
            continue;
        }
        step.child = step.node.count;
        enterChild(level);
        if (level == 1) {
            m_index = 0;
            findGapInLeaf(gap);
            return;
        }
        stepAt(--level).child = BeforeFirst;
    }
}

// Each child's gap is the largest of its own children's, so that the way down is straight.
void WdbGapCursor::descendToGap(unsigned int level, unsigned long long gap) {
    enterChild(level);
    while (--level > 0) {
        Step& step = stepAt(level);
        while (step.node.gaps[step.child] < gap)
            ++step.child;
        enterChild(level);
    }
    m_index = 0;
    findGapInLeaf(gap);
}

}  // namespace Korvel
