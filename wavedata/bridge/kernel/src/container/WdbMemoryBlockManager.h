#pragma once

#include <boost/thread/recursive_mutex.hpp>

#include "container/WdbIBlockManager.h"

namespace Korvel {

/// Blocks in process memory: the handle is the block's address. A block that is not freed lives as
/// long as the process. Safe for several threads.
class WdbMemoryBlockManager : public WdbIBlockManager {
public:
    long long addBlock(const char* data, unsigned long long size) override;
    void getBlock(long long handle, char* buffer, unsigned long long size) const override;
    void putBlock(long long handle, const char* data, unsigned long long size) override;
    void freeBlock(long long handle, unsigned long long size) override;

private:
    mutable boost::recursive_mutex m_mutex;
};

}  // namespace Korvel
