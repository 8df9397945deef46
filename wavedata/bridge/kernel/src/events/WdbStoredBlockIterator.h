#pragma once

#include "container/WdbIBlockManager.h"
#include "events/WdbIEventBlockIterator.h"

namespace Korvel {

/// What all iterators over the blocks of one bucket share: how a block is read that is met.
class WdbStoredBlockIterator : public WdbIEventBlockIterator {
public:
    /// Leaves @p block empty at the end.
    void getEventBlock(WdbEventBlock& block) const override;

    void loadStoredBlock(const WdbStoredBlock& stored, WdbEventBlock& block) const override;
    bool peekStoredBlock(const WdbStoredBlock& stored, WdbEventBlockHeader& header) const override;

protected:
    /// @param store        Holds the blocks; outlives the iterator.
    /// @param baseAddress  What the addresses of the blocks count from.
    WdbStoredBlockIterator(const WdbIBlockManager& store, long long baseAddress)
        : m_pStore(&store), m_baseAddress(baseAddress) {}

    const WdbIBlockManager& store() const { return *m_pStore; }
    long long baseAddress() const { return m_baseAddress; }

private:
    const WdbIBlockManager* m_pStore;
    long long m_baseAddress;
};

}  // namespace Korvel
