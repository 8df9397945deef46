#pragma once

#include "container/WdbIBlockManager.h"
#include "container/WdbIHandleCheck.h"

namespace Korvel {

class WdbFileBlockManager;

/// Lets threads share a store that takes no lock of its own, over the stream of a file's block
/// store: every operation holds that one's mutex.
class WdbLockedBlockManager : public WdbIBlockManager, public WdbIHandleCheck {
public:
    /// @param store  Does the work. Like @p file not owned.
    /// @param file   The block store of the same file.
    WdbLockedBlockManager(WdbIBlockManager& store, WdbFileBlockManager& file)
        : m_pStore(&store), m_pFile(&file) {}

    long long addBlock(const char* data, unsigned long long size) override;
    void getBlock(long long handle, char* buffer, unsigned long long size) const override;
    void putBlock(long long handle, const char* data, unsigned long long size) override;
    void freeBlock(long long handle, unsigned long long size) override;

    bool mayFollow(long long handle, unsigned long long size) const override;

private:
    WdbIBlockManager* m_pStore;
    WdbFileBlockManager* m_pFile;
};

}  // namespace Korvel
