#pragma once

#include <vector>

#include "indexes/WdbGapBTree.h"

namespace Korvel {

/// A place in the records of a scalar. Not to be used after the tree grew.
class WdbGapCursor {
public:
    /// At the end.
    explicit WdbGapCursor(const WdbGapBTree& tree);

    bool isAtEnd() const { return m_place == Place::End; }
    long long getTime() const;
    unsigned char getValue() const;

    /// Moves to the last record at or before @p time, or to the first one where all lie later.
    void seek(long long time);

    void next();

    /// Whether the next record follows after less than @p gap and at or before @p end.
    bool isFollowedWithin(unsigned long long gap, long long end) const;

    /// Moves to the first record, from this one on, that is followed by a gap of at least @p gap,
    /// but not beyond the newest record or the last one at or before @p end.
    void skipRun(unsigned long long gap, long long end);

private:
    enum class Place { Leaf, Pending, End };

    // The node passed on the way down at one level, and the child that was taken.
    struct Step {
        WdbInnerView node;
        unsigned int child = 0;  // node.count: the unfinished node one level below
        bool isEdge = false;

        bool hasNext() const { return child + 1 < node.count + (isEdge ? 1 : 0); }
    };

    Step& stepAt(unsigned int level) { return m_steps[level - 1]; }
    const Step& stepAt(unsigned int level) const { return m_steps[level - 1]; }
    Step edgeAt(unsigned int level) const { return {m_tree->getEdge(level), 0, true}; }

    void enterChild(unsigned int level);
    void enterFirst(unsigned int level);
    void enterOpenLeaf();
    void leaveOpenLeaf();
    bool findNextTime(long long& time) const;
    bool findGapInLeaf(unsigned long long gap);
    void climbToGap(unsigned long long gap);
    void descendToGap(unsigned int level, unsigned long long gap);

    const WdbGapBTree* m_tree;
    std::vector<Step> m_steps;  // one a level of inner nodes, lowest first
    WdbLeafView m_leaf;
    unsigned int m_index = 0;  // of the record in m_leaf
    bool m_isOpenLeaf = false;
    Place m_place = Place::End;
};

}  // namespace Korvel
