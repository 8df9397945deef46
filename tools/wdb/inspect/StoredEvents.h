#pragma once

#include "events/WdbEvent.h"
#include "events/WdbEventDatabaseHeader.h"
#include "inspect/NodeCursor.h"
#include "inspect/StoredContents.h"
#include "inspect/TreeCursor.h"

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

namespace Korvel {

/// A bucket that has a list or a tree.
struct UsedBucket {
    unsigned int index = 0;
    std::int64_t head = 0;  ///< first node of the list, or state block of the tree
};

/// The section "WDB.Event" as stored.
struct StoredEvents {
    Place place;
    WdbEventDatabaseHeader header;
    bool isTypeKnown = false;
    /// Ascending. Empty where the header is too damaged to find any.
    std::vector<UsedBucket> buckets;

    bool hasOneBucket() const;
    bool hasTrees() const;

    /// Address that the bucket's stored addresses are counted from.
    std::int64_t baseOf(unsigned int bucket) const;
};

/// Reads and judges the section's header and its bucket table. Nothing, with a finding, when the
/// header cannot be read.
std::optional<StoredEvents> readEvents(Inspection& inspection, const SectionEntry& section);

/// The name of an event section's type; null for one that this build does not know.
const char* nameOfEventType(int typeId);

/// Goes through the event blocks of a bucket and judges each against the one before, the bucket's
/// addresses and the section's header. What cannot be unpacked is passed over.
class EventBlockCursor {
public:
    EventBlockCursor(Inspection& inspection, const StoredEvents& events, const UsedBucket& bucket);

    /// Moves to the next block of the bucket without looking at it. False at the end.
    bool nextStored();

    /// Moves to the next block that can be unpacked. False at the end.
    bool next();

    /// Where the block is: bucket, node, entry and block are set.
    Place place() const;
    std::int64_t offset() const { return entry().handle; }
    std::uint32_t storedSize() const { return entry().size; }

    /// Of the list or tree, as far as it was gone through.
    std::uint64_t nodeCount() const;

    /// Levels of the tree; 0 for a list.
    std::size_t treeDepth() const;

    // What follows is about the block that next() found.

    std::int64_t startTime() const { return m_startTime; }
    std::int64_t timeLength() const { return m_timeLength; }

    /// Those that lie wholly inside the block, however many it claims.
    std::size_t eventCount() const { return m_offsets.size(); }
    WdbEvent event(std::size_t index) const;

    /// Largest time of an event so far, in this block or an earlier one.
    const std::optional<std::int64_t>& latestTime() const { return m_latestTime; }

    /// Bytes of the image that are used.
    std::size_t usedSize() const { return m_usedSize; }

private:
    using ListCursor = NodeCursor<WdbBlockListNode<WdbEventDatabaseHeader::NodeCapacity>>;

    using Walk = std::variant<ListCursor, TreeCursor>;

    Walk makeWalk();
    TreeCursor::Entry entry() const;
    bool unpack();
    void judgeInTree(TreeCursor& tree);
    void findEvents();
    void judgeHeader(std::uint32_t claimedCount);
    bool judgeEvent(std::size_t index);
    bool judgeAddresses(std::size_t index, const WdbEvent& event);
    void judgeTail();
    Place placeOf(std::size_t event) const;

    Inspection& m_inspection;
    const StoredEvents& m_events;
    UsedBucket m_bucket;
    std::int64_t m_base;  // of the bucket
    Walk m_walk;
    std::vector<std::uint8_t> m_image;
    std::vector<std::uint32_t> m_offsets;  // of the block's events in its image
    std::size_t m_usedSize = 0;
    std::int64_t m_startTime = 0;
    std::int64_t m_timeLength = 0;
    std::optional<std::int64_t> m_lastTime;  // of the event before, in this block or an earlier one
    std::optional<std::int64_t> m_latestTime;
    bool m_isOutsideReported = false;  // once a bucket
};

}  // namespace Korvel
