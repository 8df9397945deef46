#include "drawing/WdbScalarCells.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <map>

#include "events/WdbEventBlock.h"
#include "indexes/WdbGapBTree.h"
#include "korvel/WdbScalarBTree.h"

namespace Korvel {
namespace {

// Beyond lies no cell, and sums might overflow.
bool canHoldCells(long long address) {
    return address >= -2 * LargestAddress && address <= 2 * LargestAddress;
}

}  // namespace

WdbScalarCells::WdbScalarCells(const std::vector<WdbScalarBTree*>& trees) {
    std::map<long long, PairCell> pairs;
    for (WdbScalarBTree* tree : trees) {
        if (tree->getBit() == WdbScalarBTree::WholeByte) {
            m_bytes.push_back({tree->getAddress(), &tree->records()});
            continue;
        }
        PairCell& pair = pairs[tree->getAddress()];
        const auto bit = static_cast<unsigned int>(tree->getBit());
        pair.address = tree->getAddress();
        pair.wanted |= 1U << bit;
        pair.trees[bit] = &tree->records();
        const std::uint64_t value = tree->records().getLastValue();
        pair.value |= (value & 1) << bit | (value >> 1 & 1) << (bit + PairBits);
        // Until every bit has a record, all of them are told of every change.
        if (tree->isEmpty()) pair.isKnown = false;
    }
    for (const auto& [address, pair] : pairs)
        m_pairs.push_back(pair);
    std::sort(m_bytes.begin(), m_bytes.end(),
              [](const ByteCell& one, const ByteCell& two) { return one.address < two.address; });
    makeTable();
}

void WdbScalarCells::makeTable() {
    m_table.clear();
    if (isEmpty()) return;
    long long first = std::numeric_limits<long long>::max();
    long long last = std::numeric_limits<long long>::min();
    const auto widen = [&](const auto& cells) {
        if (cells.empty()) return;
        first = std::min(first, cells.front().address);
        last = std::max(last, cells.back().address);
    };
    widen(m_bytes);
    widen(m_pairs);
    if (first < 0 || last - first > LargestTable) return;
    m_tableAddress = first;
    m_table.reserve(static_cast<std::size_t>(last - first) + PairSize);
    for (long long address = first; address < last + PairSize; ++address)
        m_table.push_back(search(address));
}

WdbScalarCells::Start WdbScalarCells::search(long long address) const {
    const auto byte = std::partition_point(
        m_bytes.begin(), m_bytes.end(), [&](const auto& cell) { return cell.address < address; });
    const auto pair = std::partition_point(m_pairs.begin(), m_pairs.end(), [&](const auto& cell) {
        return cell.address <= address - PairSize;
    });
    return {static_cast<std::uint32_t>(byte - m_bytes.begin()),
            static_cast<std::uint32_t>(pair - m_pairs.begin())};
}

WdbScalarCells::Start WdbScalarCells::startOf(long long address) const {
    if (m_table.empty()) return search(address);
    if (address <= m_tableAddress) return m_table.front();
    const auto index = static_cast<std::size_t>(address - m_tableAddress);
    if (index < m_table.size()) return m_table[index];
    return {static_cast<std::uint32_t>(m_bytes.size()), static_cast<std::uint32_t>(m_pairs.size())};
}

template <typename Visitor>
void WdbScalarCells::visitCells(long long address, unsigned int length, Visitor&& visit) const {
    if (!canHoldCells(address)) return;
    const Start start = startOf(address);
    const long long end = address + static_cast<long long>(length);
    for (std::uint32_t i = start.byte; i < m_bytes.size() && m_bytes[i].address < end; ++i)
        visit(i, 0U, static_cast<unsigned int>(m_bytes[i].address - address), 1U);
    const auto byteCount = static_cast<std::uint32_t>(m_bytes.size());
    for (std::uint32_t i = start.pair; i < m_pairs.size() && m_pairs[i].address < end; ++i) {
        const long long from = std::max(m_pairs[i].address, address);
        const long long to = std::min<long long>(m_pairs[i].address + PairSize, end);
        visit(byteCount + i, static_cast<unsigned int>(from - m_pairs[i].address),
              static_cast<unsigned int>(from - address), static_cast<unsigned int>(to - from));
    }
}

bool WdbScalarCells::concerns(long long address, unsigned int length) const {
    if (!canHoldCells(address)) return false;
    const Start start = startOf(address);
    const long long end = address + static_cast<long long>(length);
    return (start.byte < m_bytes.size() && m_bytes[start.byte].address < end) ||
           (start.pair < m_pairs.size() && m_pairs[start.pair].address < end);
}

void WdbScalarCells::collect(const WdbEventBlock& block, std::vector<Change>& changes) const {
    block.forEachEvent([&](const WdbEvent& event) {
        const char* values = event.getValue();
        const auto pick = [&](std::uint32_t cell, unsigned int first, unsigned int from,
                              unsigned int count) {
            Change& change = changes.emplace_back();
            change.time = event.getTime();
            change.cell = cell;
            change.first = static_cast<std::uint8_t>(first);
            change.count = static_cast<std::uint8_t>(count);
            std::memcpy(change.bytes.data(), values + from, count);
        };
        visitCells(event.getStartAddress(), event.getValuelength(), pick);
    });
}

void WdbScalarCells::apply(const Change& change) {
    if (change.cell < m_bytes.size()) {
        m_bytes[change.cell].tree->add(change.time, change.bytes[0]);
        return;
    }
    PairCell& pair = m_pairs[change.cell - m_bytes.size()];
    // As a tree ignores what comes before its newest record.
    if (change.time < pair.time) return;
    std::uint64_t value = pair.value;
    std::memcpy(reinterpret_cast<char*>(&value) + change.first, change.bytes.data(), change.count);
    setPair(pair, change.time, value);
}

void WdbScalarCells::setPair(PairCell& cell, long long time, std::uint64_t value) {
    const std::uint64_t different = cell.value ^ value;
    std::uint32_t changed =
        static_cast<std::uint32_t>(different) | static_cast<std::uint32_t>(different >> PairBits);
    if (!cell.isKnown) changed = ~0U;
    // Where a tree cannot take its record, the next change is told to all of them again.
    cell.isKnown = false;
    cell.value = value;
    cell.time = time;
    for (changed &= cell.wanted; changed != 0; changed &= changed - 1) {
        const int bit = std::countr_zero(changed);
        cell.trees[static_cast<unsigned int>(bit)]->add(time,
                                                        shownBit(value, value >> PairBits, bit));
    }
    cell.isKnown = true;
}

void WdbScalarCells::applyEvent(long long time, long long address, unsigned int length,
                                const unsigned char* values) {
    visitCells(
        address, length,
        [&](std::uint32_t cell, unsigned int first, unsigned int from, unsigned int count) {
            Change change{
                time, cell, static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(count), {}};
            std::memcpy(change.bytes.data(), values + from, count);
            apply(change);
        });
}

}  // namespace Korvel
