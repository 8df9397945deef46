#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace Korvel {

class WdbEventBlock;
struct WdbEventBlockHeader;

/// Where a stored block lies.
struct WdbStoredBlock {
    long long handle = 0;   // 0: there is no block
    unsigned int size = 0;  // bytes as stored
};

/// Goes through the stored blocks of one list or tree, first to last, or to any of them. The blocks
/// of a bucket are in the order of their times.
class WdbIEventBlockIterator {
public:
    virtual ~WdbIEventBlockIterator() = default;

    virtual bool isEof() const = 0;
    virtual operator bool() const = 0;
    virtual WdbIEventBlockIterator& operator++() = 0;

    /// Loads the current block, and sets the base address that its addresses count from.
    virtual void getEventBlock(WdbEventBlock& block) const = 0;

    /// The current block; none at the end, and none where the list is damaged.
    virtual WdbStoredBlock getStoredBlock() const = 0;

    /// getEventBlock() for a block met earlier. Any thread may call it, also while another moves
    /// the iterator.
    virtual void loadStoredBlock(const WdbStoredBlock& stored, WdbEventBlock& block) const = 0;

    /// Reads what a block met earlier claims about its events, without unpacking it whole. False
    /// when it cannot be read. Any thread may call it.
    virtual bool peekStoredBlock(const WdbStoredBlock& stored,
                                 WdbEventBlockHeader& header) const = 0;

    /// Number of blocks when the iterator was made.
    virtual std::size_t getBlockCount() const = 0;

    /// Whether blocks are missing because of damage: at the end of a list; anywhere in a tree, as
    /// far as the iterator has met it.
    virtual bool isCut() const = 0;

    /// Moves to a block by its place in the order of times, counted from 0; to the end when there
    /// is none.
    virtual void moveTo(std::size_t index) = 0;

    // What a tree over the blocks knows of them without a look inside. A list knows nothing, and
    // may hold anything anywhere. All but lookFor() move the iterator.

    /// Number of the blocks that start at or before @p time. Nothing where that is not known.
    virtual std::optional<std::size_t> countUpTo(long long) { return {}; }

    /// From now on the next two pass over blocks that change none of @p addresses. At first they
    /// pass over none.
    virtual void lookFor(const std::vector<long long>&) {}

    /// The last block before block @p index, at most getBlockCount(), that may change a wanted
    /// address.
    virtual std::optional<std::size_t> findBefore(std::size_t index) {
        if (index == 0) return {};
        moveTo(index - 1);
        return index - 1;
    }

    /// The first such block from block @p index on.
    virtual std::optional<std::size_t> findFrom(std::size_t index) {
        moveTo(index);
        if (isEof()) return {};
        return index;
    }
};

}  // namespace Korvel
