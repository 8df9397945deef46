#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "container/WdbBlockCodec.h"
#include "container/WdbStringBlock.h"
#include "tests/support/BlockStores.h"

using namespace Korvel;

// The input is a block's image, compressed here so that what is wrong in it reaches the block.
// Every text ends inside the image, whatever the count claims; ids count on from the first.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned int Capacity = 128;
    char image[Capacity] = {};
    std::copy_n(data, std::min<std::size_t>(size, Capacity), image);
    WdbBlockCodec codec;
    OwningMemoryStore store;
    const WdbBlockCodec::Bytes stored = codec.deflate(image, Capacity);
    WdbStringBlock block(Capacity);
    block.loadBlock(store.addBlock(stored.data, stored.size),
                    static_cast<unsigned int>(stored.size), store);
    const char* end = image + WdbStringBlock::HeaderSize;
    WdbStringBlockIterator strings = block.getStringBlockIterator();
    for (unsigned int i = 0; strings.hasNext(); ++i) {
        strings.next();
        if (end >= image + Capacity || std::strcmp(strings.getText(), end) != 0) std::abort();
        if (static_cast<unsigned long long>(strings.getID()) !=
            static_cast<unsigned long long>(block.getStartID()) + i)
            std::abort();
        end += std::strlen(end) + 1;
    }
    if (end > image + Capacity) std::abort();
    return 0;
}
