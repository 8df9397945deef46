#include <algorithm>
#include <random>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "container/WdbFileBlockManagerWithCache.h"
#include "container/WdbFileBlockManagerWithWriteCache.h"
#include "tests/support/BlockStores.h"
#include "tests/support/FileBytes.h"
#include "tests/support/FullDisk.h"

namespace Korvel {
namespace {

using PlainStore = WdbFileBlockManager;
using CachedStore = WdbFileBlockManagerWithCache;
using WriteCachedStore = WdbFileBlockManagerWithWriteCache;

struct MemoryStore {
    WdbMemoryBlockManager& store() { return m_store; }
    WdbMemoryBlockManager m_store;
};

// With caches of three blocks, so that a few operations make them evict.
template <typename Owner>
class BlockStore : public ::testing::Test {};
using Owners = ::testing::Types<MemoryStore, FileStore<PlainStore>, FileStore<CachedStore, 3>,
                                FileStore<WriteCachedStore, 3>>;
TYPED_TEST_SUITE(BlockStore, Owners);

// Whatever a store keeps back or keeps twice, each block reads as it was last written, also in
// part: a copy of its beginning must not be served, or written, for the whole.
TYPED_TEST(BlockStore, agreesWithAModel) {
    constexpr bool IsFile = !std::is_same_v<TypeParam, MemoryStore>;
    TypeParam owner;
    std::mt19937 random(1);
    std::vector<std::pair<long long, std::string>> model;
    long long end = 64;
    for (int step = 0; step < 4000; ++step) {
        const auto action = model.size() < 4 ? 0 : random() % 20;
        std::string bytes(random() % 300, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        if (action == 0) {
            model.emplace_back(owner.store().addBlock(bytes.data(), bytes.size()), bytes);
            if (IsFile) {
                ASSERT_EQ(model.back().first, end) << "only the end of a file may be used";
            }
            end += static_cast<long long>(bytes.size());
            continue;
        }
        const auto entry = model.end() - 1 - random() % 4;
        auto& [handle, data] = *entry;
        bytes.resize(random() % 2 == 0 ? data.size() : std::min(bytes.size(), data.size()));
        if (action == 1) {
            owner.store().freeBlock(handle, data.size());
            model.erase(entry);
        } else if (action < 8) {
            owner.store().putBlock(handle, bytes.data(), bytes.size());
            data.replace(0, bytes.size(), bytes);
        } else {
            owner.store().getBlock(handle, bytes.data(), bytes.size());
            ASSERT_EQ(bytes, data.substr(0, bytes.size())) << "step " << step;
        }
    }
    if constexpr (IsFile) {
        owner.owner.reset();
        owner.stream.flush();
        const std::string file = readFile(owner.path);
        for (const auto& [handle, data] : model)
            EXPECT_EQ(file.substr(static_cast<std::size_t>(handle), data.size()), data);
    } else {
        for (const auto& [handle, data] : model)
            owner.store().freeBlock(handle, data.size());
    }
}

// The file below a store: says which block was really read (a) or written (A), in order.
class TrafficBuffer : public std::stringbuf {
public:
    std::string traffic;

protected:
    pos_type seekoff(off_type offset, std::ios::seekdir from, std::ios::openmode which) override {
        return m_position = std::stringbuf::seekoff(offset, from, which);
    }
    std::streamsize xsputn(const char* data, std::streamsize size) override {
        traffic += static_cast<char>('A' + m_position);
        return std::stringbuf::xsputn(data, size);
    }
    std::streamsize xsgetn(char* data, std::streamsize size) override {
        traffic += static_cast<char>('a' + m_position);
        return std::stringbuf::xsgetn(data, size);
    }

private:
    long long m_position = 0;
};

// A store over such a file of a few blocks of one byte. In a script "a" reads the first, "A" writes
// it, "." destroys the store. Returns the traffic.
template <typename Store, typename... Capacity>
std::string trafficOf(int blocks, const std::string& script, Capacity... capacity) {
    TrafficBuffer buffer;
    std::fstream stream;
    static_cast<std::ios&>(stream).rdbuf(&buffer);
    auto store = std::make_unique<Store>(stream, capacity...);
    char byte = 0;
    for (int i = 0; i < blocks; ++i)
        store->addBlock(&byte, 1);
    buffer.traffic.clear();
    for (const char step : script) {
        if (step == '.')
            store.reset();
        else if (step < 'a')
            store->putBlock(step - 'A', &byte, 1);
        else
            store->getBlock(step - 'a', &byte, 1);
    }
    // A hundred blocks and more have no letters: twice in turn each.
    for (int i = 0; script.empty() && i < 2 * blocks; ++i)
        store->getBlock(i % blocks, &byte, 1);
    return buffer.traffic;
}

TEST(ReadCache, goesToTheFileOnlyForWhatItDoesNotHold) {
    const std::pair<const char*, const char*> cases[] = {
        {"abcadb.", "abcdb"},   // the one used least recently goes, not the one read first
        {"abcAdba", "abcAdb"},  // a write goes through, and counts as use
        {"abCdabc", "abCdc"},   // a write of a block that is not held does not make it held
    };
    for (const auto& [script, traffic] : cases)
        EXPECT_EQ(trafficOf<CachedStore>(4, script, 3), traffic) << script;
    EXPECT_EQ(trafficOf<CachedStore>(100, "").size(), 100u);
    EXPECT_EQ(trafficOf<CachedStore>(101, "").size(), 202u) << "the next is always the one gone";
}

TEST(WriteCache, writesABlockWhenItLeavesAndOnlyWhenItChanged) {
    const std::pair<const char*, const char*> cases[] = {
        {"bcda.", "a"},       // added blocks are held, and clean; a left when d was added
        {"DBBCb.", "BCD"},    // written once, at the end, in the order of the file
        {"BacdB.", "acdBB"},  // changed, it is written as soon as it leaves, and again
        {"Abcd.", "bcdA"},    // a write does not read; a leaves for d
        {"CdaCbc.", "abC"},   // a change of what is held counts as use
    };
    for (const auto& [script, traffic] : cases)
        EXPECT_EQ(trafficOf<WriteCachedStore>(4, script, 3), traffic) << script;
    EXPECT_EQ(trafficOf<WriteCachedStore>(100, "").size(), 0u);
    EXPECT_EQ(trafficOf<WriteCachedStore>(101, "").size(), 202u);
}

// Exit handlers would write to the broken file again, so they must not run.
template <typename Operation>
void expectFatal(const std::string& what, const std::string& reason, Operation&& operation) {
    using namespace ::testing;
    EXPECT_EXIT(
        {
            std::atexit([] { std::fputs("exit handler", stderr); });
            operation();
        },
        ExitedWithCode(1),
        AllOf(StartsWith("WDB FATAL ERROR: failed to " + what + " for the following reason: "),
              EndsWith(reason + "\n"), Not(HasSubstr("exit handler"))));
}

template <typename Store, std::size_t... Capacity>
void expectFailures(const std::string& name) {
    const std::string data(20000, 'x');  // more than a stream buffers
    char byte;
    const auto what = [&](const char* operation) {
        return operation + std::string(" file block (") + name + ")";
    };
    const bool writesBack = std::is_same_v<Store, WriteCachedStore>;
    const std::string put = writesBack ? "write LRU file block cache" : what("put");
    using Owner = FileStore<Store, Capacity...>;
    expectFatal(what("add"), "", [&] { Owner(std::ios::in).store().addBlock(data.data(), 1); });
    expectFatal(what("get"), "", [&] { Owner().store().getBlock(64, &byte, 1); });
    expectFatal(put, "", [&] { Owner(std::ios::in).store().putBlock(0, data.data(), 1); });
    expectFatal(what("get"), "", [&] {
        Owner owner;
        owner.stream.close();
        owner.store().mayFollow(64, 1);
    });
    Owner owner;
    expectFatal(what("add"), std::strerror(EFBIG), [&] {
        fillDisk();
        owner.store().addBlock(data.data(), data.size());
    });
}

TEST(BlockStores, endTheProcessWhenTheirStreamFails) {
    expectFailures<PlainStore>("WdbFileBlockManager");
    expectFailures<CachedStore>("WdbFileBlockManagerWithCache");
    expectFailures<WriteCachedStore, 100>("WdbFileBlockManagerWithWriteCache");
    expectFatal("write LRU file block cache", "", [] {
        FileStore<WriteCachedStore, 1> owner(std::ios::in);
        for (const long long handle : {0, 1})
            owner.store().putBlock(handle, "x", 1);
        ::_exit(2);  // the first must have left
    });
}

}  // namespace
}  // namespace Korvel
