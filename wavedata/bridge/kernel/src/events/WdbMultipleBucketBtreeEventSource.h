#pragma once

#include "events/WdbIEventSource.h"

namespace Korvel {

class WdbMultipleBucketBtreeDatabase;

/// Looks up values in the trees of a database (type 1002).
class WdbMultipleBucketBtreeEventSource : public WdbIEventSource {
public:
    class InvalidIterator;

    /// @param database  Not owned; outlives the source.
    explicit WdbMultipleBucketBtreeEventSource(const WdbMultipleBucketBtreeDatabase& database)
        : m_pDatabase(&database) {}

    long long getLatestTime() const override;

    /// 0: nothing is kept of what changed.
    long long getFirstDirtyTime() const override { return 0; }

    /// Finds nothing, whatever is asked.
    IteratorPtr find(long long, long long, long long, long long) const override;

    IteratorPtr findEventBlock(long long address, long long time) const override;

private:
    const WdbMultipleBucketBtreeDatabase* m_pDatabase;
};

/// At its end from the start.
class WdbMultipleBucketBtreeEventSource::InvalidIterator : public WdbIEventSource::Iterator {
public:
    bool isEof() const override { return true; }
    void operator++() override {}
    WdbEventValue operator*() const override { return {}; }
    long long getTime() const override { return 0; }
    long long getEndTime() const override { return 0; }
};

}  // namespace Korvel
