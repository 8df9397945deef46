#include "events/WdbStoredBlockIterator.h"

#include "events/WdbEventBlock.h"

namespace Korvel {

void WdbStoredBlockIterator::getEventBlock(WdbEventBlock& block) const {
    loadStoredBlock(getStoredBlock(), block);
}

void WdbStoredBlockIterator::loadStoredBlock(const WdbStoredBlock& stored,
                                             WdbEventBlock& block) const {
    block.setBaseAddress(m_baseAddress);
    block.loadBlock(stored.handle, stored.size, *m_pStore);
}

bool WdbStoredBlockIterator::peekStoredBlock(const WdbStoredBlock& stored,
                                             WdbEventBlockHeader& header) const {
    return WdbEventBlock::peek(stored.handle, stored.size, *m_pStore, header);
}

}  // namespace Korvel
