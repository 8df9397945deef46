#pragma once

#include <cstddef>
#include <fstream>

#include <boost/thread/recursive_mutex.hpp>

#include "container/WdbIBlockManager.h"
#include "container/WdbIHandleCheck.h"
#include "container/WdbLRUFileBlockCache.h"

namespace Korvel {

/// Blocks as byte ranges of a file behind a write-back cache: a block that is rewritten often
/// reaches the file once, when it leaves the cache or when the store is destroyed.
///
/// Takes no lock: one thread at a time. A failing stream ends the process.
class WdbFileBlockManagerWithWriteCache : public WdbIBlockManager, public WdbIHandleCheck {
public:
    static constexpr std::size_t DefaultCapacity = 100;

    /// @param stream    Not owned, must outlive the store; is made to raise exceptions for the bad
    ///                  and the fail state.
    /// @param capacity  Blocks kept at most.
    explicit WdbFileBlockManagerWithWriteCache(std::fstream& stream,
                                               std::size_t capacity = DefaultCapacity);

    long long addBlock(const char* data, unsigned long long size) override;
    void getBlock(long long handle, char* buffer, unsigned long long size) const override;
    void putBlock(long long handle, const char* data, unsigned long long size) override;
    void freeBlock(long long handle, unsigned long long size) override;

    bool mayFollow(long long handle, unsigned long long size) const override;

private:
    boost::recursive_mutex m_mutex;  // every store has one; this one serves a single thread
    std::fstream* m_pStream;
    mutable WdbLRUFileBlockCache m_cache;
    WdbFreeExtents m_freeExtents;
};

}  // namespace Korvel
