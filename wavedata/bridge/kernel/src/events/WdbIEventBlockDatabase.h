#pragma once

#include <vector>

#include <boost/shared_ptr.hpp>

#include "events/WdbEventDatabaseHeader.h"
#include "events/WdbIEventBlockIterator.h"

namespace Korvel {

class WdbFileManager;
class WdbIEventSource;
class WdbScalarBTree;

/// The events of one "WDB.Event" section.
///
/// A writer adds events, which are packed into blocks; a reader goes through the stored blocks,
/// also while writing goes on. No lock is taken: whoever shares a database between threads
/// serialises the calls. A failing stream ends the process.
class WdbIEventBlockDatabase {
public:
    using IteratorPtr = boost::shared_ptr<WdbIEventBlockIterator>;

    static const char SectionID[];
    static constexpr unsigned int SectionVersion = 1;

    virtual ~WdbIEventBlockDatabase() = default;

    /// Loads the section. Comes before anything else, once.
    /// Throws Veld::OpenException when the header makes no sense for the file.
    virtual void initialize(long long headerOffset, bool writable) = 0;

    /// Adds the change of @p valueLength consecutive addresses.
    virtual void writeEvent(long long time, long long address, unsigned int valueLength,
                            const unsigned char* value) = 0;

    /// Stores the current blocks, full or not.
    virtual void flush() = 0;

    virtual void setLatestTime(long long time) = 0;

    /// Whether full blocks drop superseded writes of the same time. Off at first.
    virtual void setFilterRepeatedValue(bool filter) = 0;

    /// Iterators over all stored blocks. Every getter stores the current blocks first.
    virtual std::vector<IteratorPtr> getAllEventBlockDatabaseIterator() const = 0;

    /// Iterators over the blocks that may hold changes of @p addresses.
    virtual std::vector<IteratorPtr> getEventBlockDatabaseIterator(
        const std::vector<long long>& addresses) const = 0;

    /// Appends to @p iterators what must be scanned to fill @p trees, and to @p treeGroups, at the
    /// same position, the trees that each scan fills. The trees are not owned.
    virtual void getEventBlockDatabaseIterator(
        const std::vector<WdbScalarBTree*>& trees, std::vector<IteratorPtr>& iterators,
        std::vector<std::vector<WdbScalarBTree*>>& treeGroups) const = 0;

    virtual long long getLatestTime() const = 0;
    virtual const WdbEventDatabaseHeader& getEventDatabaseHeader() const = 0;

    /// Records where the intervals of traced objects were stored.
    virtual void setAddressMapFileOffsetAndSize(long long offset, long long size) = 0;

    /// What can look up events directly; null when nothing can.
    virtual WdbIEventSource* getIEventDataSource() = 0;

    /// Makes an event section and returns its header's offset.
    /// Throws Veld::OpenException for a single-bucket section without a bucket.
    static long long createEventSection(int typeId, unsigned int numberOfBuckets,
                                        unsigned long numberOfAddresses,
                                        unsigned int addressesPerBucket,
                                        WdbFileManager& fileManager);
};

}  // namespace Korvel
