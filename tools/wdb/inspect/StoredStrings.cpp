#include "inspect/StoredStrings.h"

#include "inspect/NodeCursor.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace Korvel {

namespace {

constexpr unsigned int HeaderSize = WdbStringBlock::HeaderSize;

}  // namespace

StoredStrings::StoredStrings(Inspection& inspection, const SectionEntry& section)
    : m_inspection(inspection), m_place(section.place) {
    readIndex(readHeader(section));
}

std::int64_t StoredStrings::readHeader(const SectionEntry& section) {
    Header header;
    if (section.item.m_size != sizeof(header)) {
        m_inspection.error(m_place, "a header of {} bytes instead of {}", section.item.m_size,
                           sizeof(header));
    }
    if (!m_inspection.takeRecord(m_place, section.item.m_offset, header)) return 0;
    Place field = m_place;
    if (header.stringBlockSize != WdbStringMapDatabase::StringBlockSize) {
        field.offset += offsetof(Header, stringBlockSize);
        m_inspection.error(field, "string blocks of {} bytes instead of {}", header.stringBlockSize,
                           WdbStringMapDatabase::StringBlockSize);
        return 0;
    }
    m_image.resize(header.stringBlockSize);
    field.offset += offsetof(Header, stringBlockFileOffset);
    std::int64_t firstNode = 0;
    if (!m_inspection.takeRecord(field, header.stringBlockFileOffset, firstNode)) return 0;
    return firstNode;
}

void StoredStrings::readIndex(std::int64_t firstNode) {
    NodeCursor<WdbStringMapDatabase::List::Node> nodes(m_inspection, {.part = m_place.part},
                                                       firstNode);
    while (nodes.next())
        addBlock(nodes.place(), nodes.entry());
}

// Ids count from 1 without a gap, over all blocks.
void StoredStrings::addBlock(const Place& place,
                             const WdbStringMapDatabase::List::Node::Entry& entry) {
    const Block block{entry.secondHandle,
                      entry.secondSize,
                      entry.firstSize,
                      entry.firstHandle,
                      place.node,
                      static_cast<std::uint8_t>(place.entry),
                      false};
    const std::int64_t expected =
        m_blocks.empty() ? 1 : m_blocks.back().firstId + m_blocks.back().count;
    if (block.firstId != expected) {
        m_inspection.error(placeOf(block), "the block's first id is {} instead of {}",
                           block.firstId, expected);
    }
    if (block.count == 0) m_inspection.error(placeOf(block), "a block without strings");
    if (!m_inspection.claim(placeOf(block), block.offset, block.storedSize)) return;
    m_storedBytes += block.storedSize;
    // Looked up by bisection, which needs them in order, and sums need them in range.
    if (block.firstId < expected || block.firstId > UINT32_MAX) return;
    m_stringCount += block.count;
    m_blocks.push_back(block);
}

std::optional<std::string> StoredStrings::text(std::uint32_t id) {
    const auto after = std::upper_bound(
        m_blocks.begin(), m_blocks.end(), static_cast<std::int64_t>(id),
        [](std::int64_t wanted, const Block& block) { return wanted < block.firstId; });
    if (after == m_blocks.begin()) return std::nullopt;
    const auto index = static_cast<std::size_t>(after - m_blocks.begin()) - 1;
    const auto position = static_cast<std::uint64_t>(id - m_blocks[index].firstId);
    if (position >= m_blocks[index].count || !load(index) || position >= m_texts.size()) {
        return std::nullopt;
    }
    // Every text found has its terminator in the image.
    return reinterpret_cast<const char*>(m_image.data()) + m_texts[position];
}

void StoredStrings::checkBlocks() {
    for (std::size_t i = 0; i < m_blocks.size(); ++i)
        load(i);
}

bool StoredStrings::load(std::size_t index) {
    if (m_loaded == index) return true;
    Block& block = m_blocks[index];
    if (block.isDamaged) return false;
    m_loaded.reset();
    block.isDamaged =
        !m_inspection.unpack(placeOf(block), block.offset, block.storedSize, m_image) ||
        !findTexts(block);
    if (block.isDamaged) return false;
    m_loaded = index;
    return true;
}

bool StoredStrings::findTexts(const Block& block) {
    std::int64_t firstId = 0;
    std::uint32_t count = 0;
    std::memcpy(&firstId, m_image.data(), sizeof(firstId));
    std::memcpy(&count, m_image.data() + sizeof(firstId), sizeof(count));
    if (firstId != block.firstId || count != block.count) {
        m_inspection.error(placeOf(block),
                           "the block has {} strings from id {}, its entry says {} from {}", count,
                           firstId, block.count, block.firstId);
        return false;
    }
    m_texts.clear();
    auto begin = m_image.begin() + HeaderSize;
    while (m_texts.size() < count) {
        const auto end = std::find(begin, m_image.end(), 0);
        if (end == m_image.end()) {
            m_inspection.error(placeOf(block), "string {} of the block's {} has no end",
                               m_texts.size(), count);
            return false;
        }
        m_texts.push_back(static_cast<std::uint32_t>(begin - m_image.begin()));
        begin = end + 1;
    }
    // What follows can only be the rest of a last string that holds zero bytes.
    if (m_image.back() != 0) {
        m_inspection.error(placeOf(block), "the last string has no end");
        return false;
    }
    return true;
}

Place StoredStrings::placeOf(const Block& block) const {
    return {.part = m_place.part, .node = block.node, .entry = block.entry, .block = block.offset};
}

}  // namespace Korvel
