#include "events/WdbMultipleBucketBtreeDatabase.h"

#include <algorithm>
#include <climits>
#include <stdexcept>
#include <utility>

#include <boost/make_shared.hpp>

#include "container/WdbFileManager.h"
#include "events/WdbEventSaving.h"
#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbMultipleBucketBtreeDatabase";

// What a tree's key has bits for, whatever the section says of its buckets.
constexpr long long AddressesOfTree = WdbEventDatabaseHeader::AddressesPerBucket;

long long baseAddressOf(unsigned int bucket) {
    return bucket * AddressesOfTree;
}

}  // namespace

WdbMultipleBucketBtreeDatabase::WdbMultipleBucketBtreeDatabase(WdbFileManager& fileManager,
                                                               int typeId)
    : WdbBucketedEventDatabase(fileManager, typeId),
      m_pFileManager(&fileManager),
      m_eventSource(*this) {}

WdbMultipleBucketBtreeDatabase::~WdbMultipleBucketBtreeDatabase() {
    if (!section().isWritable()) return;
    section().putLatestTime(getLatestTime());
    for (auto& tree : m_trees) {
        if (tree) tree->saveEventBlock();
        tree.reset();
    }
}

void WdbMultipleBucketBtreeDatabase::initialize(long long headerOffset, bool writable) {
    load(headerOffset, writable);
    WdbFileBlockManager& file = section().store();
    m_trees.clear();
    m_trees.resize(section().header().numberOfBuckets);
    m_cachedNodes = std::make_unique<WdbFileBlockManagerWithCache>(m_pFileManager->getStream());
    m_nodes = std::make_unique<WdbLockedBlockManager>(*m_cachedNodes, file);
    setLatestTime(section().header().latestTime);
    unsigned long long bytesOfTrees = 0;
    for (unsigned int bucket = 0; bucket < m_trees.size(); ++bucket) {
        if (!hasTree(bucket)) continue;
        // Trees share nothing. One that was just made may lack its node.
        if (bytesOfTrees > 0 && !file.mayFollow(sizeof(WdbFileHeader), bytesOfTrees)) {
            throwOpenException(ClassFile, __LINE__, "The event section's bucket table is damaged.");
        }
        bytesOfTrees += sizeof(WdbEventBtree::Nodes::Node);
        if (writable) {
            load(headerOffset, /*writable=*/false);  // nothing is written when this is destroyed
            throwOpenException(ClassFile, __LINE__,
                               "The event section has trees, which cannot be appended to.");
        }
        raiseLatestTime(*openTree(bucket));
    }
}

// The header of a recording that was killed still says less than its blocks. The tree is not kept:
// a viewer asks for few buckets, and each tree takes memory for whole nodes.
void WdbMultipleBucketBtreeDatabase::raiseLatestTime(const WdbEventBtree& tree) {
    WdbEventBtree::EventBlockIterator last = tree.getEventBlockIterator();
    last.seekLast();
    WdbEventBlock block(section().header().eventBlockSize, tree.getBaseAddress());
    last.getEventBlock(block);
    if (block.isEmpty()) return;
    setLatestTime(std::max(getLatestTime(), addTimes(block.getStartTime(), block.getTimeLength())));
}

bool WdbMultipleBucketBtreeDatabase::addressHash(long long address, unsigned int& bucket,
                                                 long long& firstAddress,
                                                 long long& lastAddress) const {
    if (address < 0 || address > numberOfAddresses()) {
        bucket = numberOfBuckets() - 1;
        return false;
    }
    const long long quotient = quotientOf(address);
    bucket = static_cast<unsigned int>(std::min<long long>(quotient, UINT_MAX));
    firstAddress = quotient * addressesPerBucket();
    lastAddress = firstAddress + addressesPerBucket() - 1;
    return true;
}

WdbEventBlock& WdbMultipleBucketBtreeDatabase::openBlock(unsigned int bucket, long long time) {
    std::unique_ptr<WdbEventBtree>& tree = m_trees.at(bucket);
    if (!section().isWritable()) throw std::logic_error("The event section is only read.");
    if (!tree) {
        createEventBtree(static_cast<int>(bucket));
        tree->setStartTime(time);
    }
    return tree->getEventBlock();
}

void WdbMultipleBucketBtreeDatabase::saveInBucket(unsigned int bucket, long long time,
                                                  long long address, unsigned int valueLength,
                                                  const unsigned char* value) {
    saveEvent(m_trees[bucket].get(), time, address, valueLength, value);
}

void WdbMultipleBucketBtreeDatabase::saveEvent(WdbEventBtree* tree, long long time,
                                               long long address, unsigned int valueLength,
                                               const unsigned char* value) {
    saveEventInBlock(
        tree->getEventBlock(), /*filter=*/true, [tree] { tree->saveEventBlock(); }, time, address,
        valueLength, value);
}

void WdbMultipleBucketBtreeDatabase::createEventBtree(int bucket) {
    const auto index = static_cast<unsigned int>(bucket);
    if (!m_trees.at(index)) m_trees[index] = openTree(index);
}

WdbEventBtree* WdbMultipleBucketBtreeDatabase::loadEventBtree(int bucket) const {
    const auto index = static_cast<unsigned int>(bucket);
    std::unique_ptr<WdbEventBtree>& tree = m_trees.at(index);
    if (!tree && hasTree(index)) tree = openTree(index);
    return tree.get();
}

WdbEventBtree* WdbMultipleBucketBtreeDatabase::loadTreeOf(long long address) const {
    unsigned int bucket = 0;
    long long first = 0;
    long long last = 0;
    addressHash(address, bucket, first, last);
    return loadEventBtree(static_cast<int>(bucket));
}

bool WdbMultipleBucketBtreeDatabase::hasTree(unsigned int bucket) const {
    return readHandleSlot(section().store(), section().slotOf(bucket)) != 0;
}

std::unique_ptr<WdbEventBtree> WdbMultipleBucketBtreeDatabase::openTree(unsigned int bucket) const {
    return std::make_unique<WdbEventBtree>(section().store(), *m_nodes, section().slotOf(bucket),
                                           section().header().eventBlockSize,
                                           baseAddressOf(bucket));
}

int WdbMultipleBucketBtreeDatabase::findEventBlock(long long address, long long time,
                                                   WdbEventBlock& block) const {
    if (const WdbEventBtree* tree = loadTreeOf(address)) tree->findEventBlock(address, time, block);
    return 0;
}

void WdbMultipleBucketBtreeDatabase::checkpoint() {
    for (const auto& tree : m_trees) {
        if (tree) tree->publish();
    }
    section().putLatestTime(getLatestTime());
}

WdbIEventBlockDatabase::IteratorPtr WdbMultipleBucketBtreeDatabase::makeIterator(
    unsigned int bucket) const {
    const WdbEventBtree* tree = loadEventBtree(static_cast<int>(bucket));
    if (tree == nullptr) return {};
    return boost::make_shared<Iterator>(tree->getEventBlockIterator(), section().store(),
                                        tree->getBaseAddress(), tree->isCut());
}

WdbMultipleBucketBtreeDatabase::Iterator::Iterator(WdbEventBtree::EventBlockIterator blocks,
                                                   const WdbIBlockManager& store,
                                                   long long baseAddress, bool isCut)
    : WdbStoredBlockIterator(store, baseAddress), m_blocks(std::move(blocks)), m_isCut(isCut) {}

WdbEventBtree::EventBlockIterator& WdbMultipleBucketBtreeDatabase::Iterator::current() const {
    if (!m_isMoved) m_blocks.moveTo(0);
    m_isMoved = true;
    return m_blocks;
}

WdbEventBtree::EventBlockIterator& WdbMultipleBucketBtreeDatabase::Iterator::movable() {
    m_isMoved = true;
    return m_blocks;
}

WdbMultipleBucketBtreeDatabase::Iterator& WdbMultipleBucketBtreeDatabase::Iterator::operator++() {
    ++current();
    return *this;
}

std::optional<std::size_t> WdbMultipleBucketBtreeDatabase::Iterator::countUpTo(long long time) {
    movable().seek(time, {});
    return m_blocks.isEof() ? 0 : m_blocks.getIndex() + 1;
}

void WdbMultipleBucketBtreeDatabase::Iterator::lookFor(const std::vector<long long>& addresses) {
    m_wanted = WdbAddressKey(addresses, baseAddress());
}

std::optional<std::size_t> WdbMultipleBucketBtreeDatabase::Iterator::findBefore(std::size_t index) {
    if (index == 0) return {};
    movable().moveTo(index - 1);
    if (!m_blocks.isWanted(m_wanted)) m_blocks.toPrevious(m_wanted);
    return foundIndex();
}

std::optional<std::size_t> WdbMultipleBucketBtreeDatabase::Iterator::findFrom(std::size_t index) {
    movable().moveTo(index);
    if (!m_blocks.isWanted(m_wanted)) m_blocks.toNext(m_wanted);
    return foundIndex();
}

std::optional<std::size_t> WdbMultipleBucketBtreeDatabase::Iterator::foundIndex() const {
    if (m_blocks.isEof()) return {};
    return m_blocks.getIndex();
}

}  // namespace Korvel
