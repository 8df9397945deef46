#include "events/WdbEventBtree.h"

#include <limits>
#include <stdexcept>
#include <utility>

#include "container/WdbIHandleCheck.h"
#include "container/WdbNodeChain.h"

namespace Korvel {
namespace {

bool changesUpTo(long long time, long long address, const WdbEventBlock& block) {
    for (WdbEventBlock::Iterator event = block.getIterator(); event; ++event) {
        if ((*event).getTime() > time) return false;
        if ((*event).isWithinRange(address)) return true;
    }
    return false;
}

std::unique_ptr<WdbEventBlock> loaded(const WdbEventBtree::EventBlockIterator& blocks,
                                      unsigned int capacity) {
    auto block = std::make_unique<WdbEventBlock>(capacity, 0);
    blocks.getEventBlock(*block);
    return block;
}

}  // namespace

WdbEventBtree::WdbEventBtree(WdbIBlockManager& blocks, WdbIBlockManager& nodes,
                             long long slotOffset, unsigned int blockCapacity,
                             long long baseAddress)
    : m_pBlocks(&blocks),
      m_slotOffset(slotOffset),
      m_stateOffset(readHandleSlot(blocks, slotOffset)),
      m_baseAddress(baseAddress),
      m_block(m_stateOffset == 0 ? blockCapacity : 0, baseAddress),
      m_blockCapacity(blockCapacity) {
    const bool isNew = m_stateOffset == 0;
    long long rootSlot = 0;
    if (isNew) {
        m_stateOffset = blocks.addBlock(reinterpret_cast<const char*>(&m_state), sizeof(m_state));
        writeHandleSlot(blocks, m_slotOffset, m_stateOffset);
        rootSlot = m_stateOffset;
    } else if (mayFollowHandle(blocks, m_stateOffset, sizeof(m_state))) {
        rootSlot = m_stateOffset;
    } else {
        m_isCut = true;
    }
    m_nodes = std::make_unique<Nodes>(nodes, blocks, rootSlot,
                                      isNew ? Nodes::Access::Append : Nodes::Access::Read);
    if (!isNew && !m_isCut) readState();
}

// Another process may have been about to say when the tree starts. It does so before it adds a
// record, so what is read after the records goes with them.
void WdbEventBtree::readState() const {
    m_pBlocks->getBlock(m_stateOffset, reinterpret_cast<char*>(&m_state), sizeof(m_state));
}

void WdbEventBtree::setStartTime(long long time) {
    m_state.startTime = time;
    m_state.rootNode = m_nodes->getRootNode();
    m_pBlocks->putBlock(m_stateOffset, reinterpret_cast<const char*>(&m_state), sizeof(m_state));
}

void WdbEventBtree::saveEventBlock() {
    if (m_block.isEmpty()) return;
    unsigned int compressedSize = 0;
    const long long offset = m_block.addBlock(*m_pBlocks, compressedSize);
    appendEventBTreeRecord(offset, compressedSize);
    m_block.clear();
}

void WdbEventBtree::filterAndSaveBlock() {
    if (!m_block.isEmpty()) m_block.filterOutRepeatedValue();
    saveEventBlock();
}

void WdbEventBtree::appendEventBTreeRecord(long long offset, unsigned int compressedSize) {
    WdbEventBTreeRecord record;
    record.stored.blockOffset = offset;
    record.stored.compressedSize = compressedSize;
    record.timeLength = m_block.getTimeLength();
    record.startTime = m_block.getStartTime();
    try {
        m_block.getLargestDiffAndKey(m_baseAddress, record.stored.largestDiff, record.key);
    } catch (const std::out_of_range&) {
        // Some of the addresses have no bit. Their changes are found by going through the blocks.
        m_block.getkeyMap(m_baseAddress, record.key);
        record.stored.largestDiff = record.timeLength;
    }
    // An event without values may have come first, which fixed the start and left no trace.
    if (!m_nodes->hasRecord() && record.startTime != m_state.startTime)
        setStartTime(record.startTime);
    m_nodes->append(record);
}

void WdbEventBtree::publish() const {
    if (m_nodes->publish()) readState();
}

int WdbEventBtree::findEventBlock(long long address, long long time, WdbEventBlock& block) const {
    EventBlockIterator blocks = getEventBlockIterator();
    if (WdbAddressKey::hasBit(address, m_baseAddress)) {
        blocks.seek(time, WdbAddressKey({address}, m_baseAddress));
    } else {
        blocks.m_walk.toEnd();
    }
    blocks.getEventBlock(block);
    return blocks.isEof() ? 0 : 1;
}

WdbEventBtree::EventBlockIterator WdbEventBtree::getEventBlockIterator(long long time) const {
    EventBlockIterator blocks = getEventBlockIterator();
    blocks.seek(time, {});
    if (blocks.isEof()) blocks.moveTo(0);
    return blocks;
}

// The last change up to the time may lie some blocks before the one that covers the time, if that
// changes the address only later.
WdbEventBtree::ValueIterator WdbEventBtree::getValueBlockIterator(long long address,
                                                                  long long time) const {
    const WdbAddressKey wanted({address}, m_baseAddress);
    EventBlockIterator first = getEventBlockIterator();
    first.seek(time, wanted);
    auto block = std::make_unique<WdbEventBlock>(m_blockCapacity, m_baseAddress);
    for (; !first.isEof(); first.toPrevious(wanted)) {
        first.getEventBlock(*block);
        if (changesUpTo(time, address, *block)) break;
    }
    if (first.isEof()) {
        first.moveTo(0);
        if (!first.isWanted(wanted)) first.toNext(wanted);
        first.getEventBlock(*block);
    }
    return ValueIterator(address, EventIterator(first, address, wanted, std::move(block)), time);
}

WdbEventBtree::EventBlockIterator WdbEventBtree::getEventBlockIterator() const {
    publish();
    return EventBlockIterator(*m_pBlocks, *m_nodes, m_baseAddress, m_state.startTime);
}

// --- Blocks. ---

WdbEventBtree::EventBlockIterator::EventBlockIterator(const WdbIBlockManager& blocks,
                                                      const Nodes& nodes, long long baseAddress,
                                                      long long startTime)
    : m_pBlocks(&blocks),
      m_baseAddress(baseAddress),
      m_startTime(startTime),
      m_walk(nodes.walk()),
      m_count(m_walk.size()) {}

WdbEventBtree::EventBlockIterator& WdbEventBtree::EventBlockIterator::operator++() {
    if (m_isBeforeFirst) {
        moveTo(0);
    } else {
        m_walk.next();
    }
    return *this;
}

WdbEventBtree::EventBlockIterator& WdbEventBtree::EventBlockIterator::operator--() {
    if (m_isBeforeFirst) return *this;
    const std::size_t index = getIndex();
    moveTo(index == 0 ? m_count : index - 1);
    m_isBeforeFirst = index == 0;
    return *this;
}

WdbStoredBlock WdbEventBtree::EventBlockIterator::operator*() const {
    WdbEventBTreeRecordBlock record;
    const long long offset = m_walk.record();
    if (!mayFollowHandle(*m_pBlocks, offset, sizeof(record))) return {};
    m_pBlocks->getBlock(offset, reinterpret_cast<char*>(&record), sizeof(record));
    return {record.blockOffset, record.compressedSize};
}

void WdbEventBtree::EventBlockIterator::getEventBlock(WdbEventBlock& block) const {
    const WdbStoredBlock stored = **this;
    block.setBaseAddress(m_baseAddress);
    block.loadBlock(stored.handle, stored.size, *m_pBlocks);
}

void WdbEventBtree::EventBlockIterator::seekLast() {
    moveTo(m_count == 0 ? 0 : m_count - 1);
}

void WdbEventBtree::EventBlockIterator::moveTo(std::size_t index) {
    m_isBeforeFirst = false;
    m_walk.toIndex(index);
}

std::size_t WdbEventBtree::EventBlockIterator::getIndex() const {
    return isEof() ? m_count : m_walk.index();
}

void WdbEventBtree::EventBlockIterator::seek(long long time, const WdbAddressKey& wanted) {
    m_isBeforeFirst = false;
    if (time < m_startTime) return m_walk.toEnd();
    // Times of a damaged tree may lie further apart than a time can tell.
    constexpr long long Latest = std::numeric_limits<long long>::max();
    const long long relative = timeBetween(m_startTime, time);
    m_walk.toCovering(relative < 0 ? Latest : relative, wanted);
}

// --- Events of one address. ---

WdbEventBtree::EventIterator::EventIterator(EventBlockIterator blocks, long long address,
                                            const WdbAddressKey& wanted,
                                            std::unique_ptr<WdbEventBlock> current)
    : m_blocks(std::move(blocks)),
      m_address(address),
      m_wanted(wanted),
      m_block(std::move(current)),
      m_event(m_block->getIterator()) {
    skipOthers();
}

WdbEventBtree::EventIterator::EventIterator(const EventBlockIterator& blocks, long long address,
                                            const WdbAddressKey& wanted, unsigned int blockCapacity)
    : EventIterator(blocks, address, wanted, loaded(blocks, blockCapacity)) {}

WdbEventBtree::EventIterator& WdbEventBtree::EventIterator::operator++() {
    if (!isEof()) {
        ++m_event;
        skipOthers();
    }
    return *this;
}

void WdbEventBtree::EventIterator::skipOthers() {
    while (!isEof()) {
        for (; m_event; ++m_event) {
            if ((*m_event).isWithinRange(m_address)) return;
        }
        m_blocks.toNext(m_wanted);
        m_blocks.getEventBlock(*m_block);
        m_event = m_block->getIterator();
    }
}

// --- Values of one address. ---

WdbEventBtree::ValueIterator::ValueIterator(long long address, EventIterator events, long long time)
    : m_address(address), m_next(std::make_unique<EventIterator>(std::move(events))) {
    while (!m_next->isEof() && m_next->getTime() <= time)
        take();
    if (m_isEof) ++*this;
}

void WdbEventBtree::ValueIterator::operator++() {
    m_isEof = true;
    m_time = 0;
    m_value.clear();
    if (!m_next || m_next->isEof()) return;
    const long long time = m_next->getTime();
    while (!m_next->isEof() && m_next->getTime() == time)
        take();
}

void WdbEventBtree::ValueIterator::take() {
    const WdbEvent event = **m_next;
    const auto skipped = static_cast<std::size_t>(m_address - event.getStartAddress());
    m_value.assign(event.getValues(m_address), event.getValuelength() - skipped);
    m_time = event.getTime();
    m_isEof = false;
    ++*m_next;
}

WdbEventValue WdbEventBtree::ValueIterator::operator*() const {
    return {reinterpret_cast<const unsigned char*>(m_value.data()),
            static_cast<unsigned int>(m_value.size())};
}

long long WdbEventBtree::ValueIterator::getEndTime() const {
    if (m_isEof) return 0;
    return m_next->isEof() ? NoEnd : m_next->getTime();
}

}  // namespace Korvel
