#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "container/WdbBlockStream.h"
#include "container/WdbNodeChain.h"

using namespace Korvel;

namespace {

// A file that a walk may read and nothing else, and only inside it.
class BytesStore : public WdbIBlockManager, public WdbIHandleCheck {
public:
    explicit BytesStore(std::string bytes) : m_bytes(std::move(bytes)) {}

    long long addBlock(const char*, unsigned long long) override { std::abort(); }
    void putBlock(long long, const char*, unsigned long long) override { std::abort(); }
    void freeBlock(long long, unsigned long long) override { std::abort(); }
    void getBlock(long long handle, char* buffer, unsigned long long size) const override {
        if (!mayFollow(handle, size)) std::abort();
        std::memcpy(buffer, m_bytes.data() + handle, size);
    }
    bool mayFollow(long long handle, unsigned long long size) const override {
        return isBlockInFile(handle, size, static_cast<long long>(m_bytes.size()));
    }

private:
    std::string m_bytes;
};

template <typename Node>
void walk(const BytesStore& store, long long first) {
    long long previous = 0;
    WdbNodeWalker<Node> walker(store, first);
    for (bool more = walker.isAtNode(); more; more = walker.next()) {
        if (walker.handle() <= previous || walker.node().m_count > Node::Capacity) std::abort();
        previous = walker.handle();
    }
    // The writing end arrives at the same node.
    BytesStore copy = store;
    const WdbNodeChain<Node> chain(copy, first);
    if (chain.getFirstNode() != (previous == 0 ? 0 : first)) std::abort();
    if (chain.getLastNode().m_count != (previous == 0 ? 0 : walker.node().m_count)) std::abort();
}

}  // namespace

// The input's first 8 bytes name a chain's first node, the rest is the file behind its header. A
// walk goes forward only, and so ends; it trusts no count.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    long long first = 0;
    if (size < sizeof(first)) return 0;
    std::memcpy(&first, data, sizeof(first));
    const BytesStore store(std::string(64, '\0') + std::string(data + sizeof(first), data + size));
    for (const long long handle : {first, 64 + (first & 0xFF)}) {
        walk<WdbBlockListNode<2>>(store, handle);
        walk<WdbStringBlockListNode<2>>(store, handle);
    }
    return 0;
}
