#pragma once

#include <cstddef>
#include <fstream>
#include <list>
#include <map>

#include "container/WdbBlockStream.h"

namespace Korvel {

/// Write-back cache of a block file: the copies used last, some of them newer than the file.
///
/// Whoever destroys it gets every newer copy written, in ascending handle order. A failing stream
/// ends the process. One thread at a time.
class WdbLRUFileBlockCache {
public:
    using Recency = std::list<long long>;

    struct LRUDataItem {
        WdbBlockCopy data;
        unsigned long long size;
        bool dirty;  // the copy is newer than the file
        Recency::iterator position;
    };
    using Items = std::map<long long, LRUDataItem>;

    /// @param stream    Not owned; must outlive the cache, which writes to it when destroyed.
    /// @param capacity  Blocks kept at most.
    WdbLRUFileBlockCache(std::fstream& stream, std::size_t capacity);
    ~WdbLRUFileBlockCache();
    WdbLRUFileBlockCache(const WdbLRUFileBlockCache&) = delete;
    WdbLRUFileBlockCache& operator=(const WdbLRUFileBlockCache&) = delete;

    /// Takes @p data, a block from malloc, as the most recently used copy. Where the handle is
    /// cached already, the older copy stays and @p data is released.
    void add(long long handle, void* data, unsigned long long size, bool dirty);

    /// Writes one item's copy to the file at its handle.
    void saveCacheLRUItem(const Items::value_type& item);

    /// Copies the first @p size bytes of a cached block. False when there is no copy of that size;
    /// the file is then up to date and can be read.
    bool read(long long handle, char* buffer, unsigned long long size);

    /// Replaces a cached copy by one that is newer than the file. False when none is cached.
    bool replace(long long handle, const char* data, unsigned long long size);

private:
    void markMostRecent(Items::iterator item);
    void evictOldest();
    void writeBack(Items::value_type& item);

    std::fstream* m_pStream;
    std::size_t m_capacity;
    Recency m_recency;  // front: least recently used
    Items m_items;
};

}  // namespace Korvel
