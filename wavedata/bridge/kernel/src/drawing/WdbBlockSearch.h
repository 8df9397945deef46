#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "korvel/WdbAddressBTreeManager.h"

namespace Korvel {

class WdbIEventBlockDatabase;
class WdbWantedBytes;
struct WdbByteState;

/// Answers questions about a few scalars around one time from the event blocks themselves, for a
/// recording of which no index was made.
///
/// The blocks of a bucket lie in time order and begin with their first time, which can be read
/// without unpacking them. So the block that a question is about is found by bisection, and it
/// usually holds the answer. Otherwise the search goes on block by block; once that takes more than
/// a few, many at a time are unpacked in parallel. Where a tree lies over the blocks, it tells
/// which block covers the time and which ones hold nothing that is asked for.
///
/// A damaged block counts as one without events, also where it lies about its first time. What the
/// nodes of a tree say of times and addresses is believed.
///
/// One thread at a time, while nobody writes to the database.
class WdbBlockSearch {
public:
    /// @param database  Not owned; outlives the search.
    explicit WdbBlockSearch(const WdbIEventBlockDatabase& database);
    ~WdbBlockSearch();
    WdbBlockSearch(const WdbBlockSearch&) = delete;
    WdbBlockSearch& operator=(const WdbBlockSearch&) = delete;

    /// Both as in WdbAddressBTreeManager.
    void getValues(long long time, const std::vector<WdbScalar>& scalars,
                   std::vector<WdbByteValue>& values);
    long long getNextChange(long long time, const std::vector<WdbScalar>& scalars);

    /// Whether something was met that cannot be read.
    bool isDamaged() const { return m_isDamaged; }

private:
    class Workers;
    class Bucket;
    class Stream;

    std::vector<Bucket> findBuckets(long long time, const WdbWantedBytes& wanted) const;
    std::vector<WdbByteState> takeValues(std::vector<Bucket>& buckets, WdbWantedBytes& wanted);

    const WdbIEventBlockDatabase* m_pDatabase;
    std::unique_ptr<Workers> m_workers;
    mutable std::atomic<bool> m_isDamaged{false};
};

}  // namespace Korvel
