#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>

#include "container/WdbBlockCodec.h"
#include "events/WdbEventBlock.h"
#include "tests/support/BlockStores.h"

using namespace Korvel;

namespace {

constexpr unsigned int Capacity = 512;  // small, so that an input reaches its end

void require(bool holds) {
    if (!holds) std::abort();
}

std::string eventsOf(const WdbEventBlock& block) {
    std::ostringstream out;
    for (WdbEventBlock::Iterator it = block.getIterator(); it; ++it) {
        const WdbEvent& event = *it;
        require(event.getValue() - WdbEvent::HeaderSize >=
                block.getMemory() + WdbEventBlock::HeaderSize);
        require(event.getValue() + event.getValuelength() <= block.getMemory() + Capacity);
        event.dump(out);
    }
    return out.str();
}

void load(WdbEventBlock& block, WdbIBlockManager& store, const char* image) {
    WdbBlockCodec codec;
    const WdbBlockCodec::Bytes stored = codec.deflate(image, Capacity);
    const long long handle = store.addBlock(stored.data, stored.size);
    block.loadBlock(handle, static_cast<unsigned int>(stored.size), store);
}

}  // namespace

// The input is a block's image, compressed here so that what is wrong in it reaches the block.
// Every event found lies in the image, and what is done with them keeps to them: a copy and a
// block stored anew hold the same events, a filtered one no event twice.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    char image[Capacity] = {};
    std::copy_n(data, std::min<std::size_t>(size, Capacity), image);
    OwningMemoryStore store;
    WdbEventBlock block(Capacity, 2048);
    load(block, store, image);
    const std::string events = eventsOf(block);

    WdbEventBlock copy(block);
    require(eventsOf(copy) == events);
    unsigned int compressedSize = 0;
    if (const long long handle = block.addBlock(store, compressedSize); handle != 0) {
        copy.loadBlock(handle, compressedSize, store);
        require(eventsOf(copy) == events);
    }
    unsigned char key[WdbEventBlock::KeySize];
    block.getkeyMap(2048, key);
    try {
        unsigned char seen[WdbEventBlock::KeySize];
        long long gap = 0;
        block.getLargestDiffAndKey(2048, gap, seen);
        require(gap == block.getLargestDiff(2048) && std::equal(key, key + sizeof(key), seen));
    } catch (const std::out_of_range&) {
        // an address beyond the bucket
    }
    copy.filterOutRepeatedValue();
    require(copy.size() <= block.size());
    const std::string filtered = eventsOf(copy);
    copy.filterOutRepeatedValue();
    require(eventsOf(copy) == filtered);
    return 0;
}
