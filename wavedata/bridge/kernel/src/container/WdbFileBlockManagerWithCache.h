#pragma once

#include <cstddef>
#include <fstream>
#include <list>
#include <unordered_map>

#include <boost/thread/recursive_mutex.hpp>

#include "container/WdbBlockStream.h"
#include "container/WdbIBlockManager.h"
#include "container/WdbIHandleCheck.h"

namespace Korvel {

/// Blocks as byte ranges of a file, the last ones read kept in memory.
///
/// Takes no lock: one thread at a time. A failing stream ends the process.
class WdbFileBlockManagerWithCache : public WdbIBlockManager, public WdbIHandleCheck {
public:
    static constexpr std::size_t DefaultCapacity = 100;

    /// @param stream    Not owned; is made to raise exceptions for the bad and the fail state.
    /// @param capacity  Blocks kept at most.
    explicit WdbFileBlockManagerWithCache(std::fstream& stream,
                                          std::size_t capacity = DefaultCapacity);

    long long addBlock(const char* data, unsigned long long size) override;
    void getBlock(long long handle, char* buffer, unsigned long long size) const override;
    void putBlock(long long handle, const char* data, unsigned long long size) override;
    void freeBlock(long long handle, unsigned long long size) override;

    bool mayFollow(long long handle, unsigned long long size) const override;

private:
    using Recency = std::list<long long>;

    struct CachedBlock {
        WdbBlockCopy data;
        unsigned long long size;  // a larger request cannot be served from the copy
        Recency::iterator position;
    };

    void keep(long long handle, WdbBlockCopy data, unsigned long long size) const;
    void evictOldest() const;

    boost::recursive_mutex m_mutex;  // every store has one; this one serves a single thread
    std::fstream* m_pStream;
    std::size_t m_capacity;
    mutable Recency m_recency;  // front: least recently used
    mutable std::unordered_map<long long, CachedBlock> m_cache;
    WdbFreeExtents m_freeExtents;
};

}  // namespace Korvel
