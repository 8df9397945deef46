#pragma once

#include <algorithm>

#include "events/WdbEventBlock.h"

namespace Korvel {

/// Adds an event to a block. A block that cannot take it is stored first, after the superseded
/// writes in it were dropped when @p filter is set and that was not enough. An event that no block
/// can take is cut into events over consecutive addresses.
/// Runs once per value change.
/// @param store  Stores the block and empties it.
template <typename Store>
void saveEventInBlock(WdbEventBlock& block, bool filter, const Store& store, long long time,
                      long long address, unsigned int valueLength, const unsigned char* value) {
    if (block.canAdd(valueLength)) return block.addEvent(time, address, valueLength, value);
    if (filter) {
        block.filterOutRepeatedValue();
        if (block.canAdd(valueLength)) return block.addEvent(time, address, valueLength, value);
    }
    store();
    if (block.hasRoomFor(valueLength)) return block.addEvent(time, address, valueLength, value);
    const unsigned int longest =
        block.getMaxEventBlockSize() - WdbEventBlock::HeaderSize - WdbEvent::HeaderSize;
    while (valueLength > 0) {
        const unsigned int length = std::min(valueLength, longest);
        saveEventInBlock(block, filter, store, time, address, length, value);
        address += length;
        value += length;
        valueLength -= length;
    }
}

}  // namespace Korvel
