#include "drawing/WdbWantedBytes.h"

#include <map>

#include "drawing/WdbWordPair.h"

namespace Korvel {
namespace {

constexpr int BitsOfByte = 8;
constexpr unsigned char AllBits = 0xFF;

bool isWholeByte(const WdbScalar& scalar) {
    return scalar.bit < 0;
}

// Of the byte that is shown.
long long addressOf(const WdbScalar& scalar) {
    return isWholeByte(scalar) ? scalar.address : scalar.address + scalar.bit / BitsOfByte;
}

}  // namespace

WdbWantedBytes::WdbWantedBytes(const std::vector<WdbScalar>& asked) {
    std::vector<WdbScalar> scalars(asked.size());
    std::transform(asked.begin(), asked.end(), scalars.begin(), inItsPair);
    addBytes(scalars);
    m_places.reserve(scalars.size());
    for (const WdbScalar& scalar : scalars)
        m_places.push_back(placeOf(scalar));
}

void WdbWantedBytes::addBytes(const std::vector<WdbScalar>& scalars) {
    std::map<long long, unsigned char> masks;
    for (const WdbScalar& scalar : scalars) {
        if (isWholeByte(scalar)) {
            masks[scalar.address] = AllBits;
            continue;
        }
        for (int byte = 0; byte < PairSize; ++byte)
            masks.try_emplace(scalar.address + byte);
        const auto bit = static_cast<unsigned char>(1U << scalar.bit % BitsOfByte);
        masks[addressOf(scalar)] |= bit;
        masks[addressOf(scalar) + PlaneOffset] |= bit;
    }
    for (const auto& [address, mask] : masks) {
        m_addresses.push_back(address);
        m_masks.push_back(mask);
        m_isNeeded.push_back(mask != 0);
    }
}

WdbWantedBytes::Place WdbWantedBytes::placeOf(const WdbScalar& scalar) const {
    const std::size_t value = indexOf(addressOf(scalar));
    if (isWholeByte(scalar)) return {value, 1, value, value, WdbScalarBTree::WholeByte};
    return {indexOf(scalar.address), PairSize, value, indexOf(addressOf(scalar) + PlaneOffset),
            scalar.bit % BitsOfByte};
}

std::size_t WdbWantedBytes::indexOf(long long address) const {
    const auto it = std::lower_bound(m_addresses.begin(), m_addresses.end(), address);
    return static_cast<std::size_t>(it - m_addresses.begin());
}

std::size_t WdbWantedBytes::countMissing(const WdbByteStates& states, std::size_t first,
                                         std::size_t last) const {
    std::size_t missing = 0;
    for (std::size_t i = first; i < last; ++i)
        missing += m_isNeeded[i] && !states[i].isKnown;
    return missing;
}

std::vector<long long> WdbWantedBytes::missingAddresses(const WdbByteStates& states,
                                                        std::size_t first, std::size_t last) const {
    std::vector<long long> missing;
    for (std::size_t i = first; i < last; ++i)
        if (m_isNeeded[i] && !states[i].isKnown) missing.push_back(m_addresses[i]);
    return missing;
}

bool WdbWantedBytes::needPairs(const WdbByteStates& states) {
    bool isNew = false;
    for (const Place& place : m_places) {
        if (hasValue(place, states)) continue;
        for (std::size_t i = place.first; i < place.first + place.count; ++i) {
            isNew = isNew || !m_isNeeded[i];
            m_isNeeded[i] = true;
        }
    }
    return isNew;
}

std::vector<WdbByteValue> WdbWantedBytes::valuesOf(const WdbByteStates& states) const {
    std::vector<WdbByteValue> values(m_places.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        const Place& place = m_places[i];
        if (!hasValue(place, states)) continue;
        const unsigned char byte = states[place.value].value;
        values[i].type = WdbByteValue::SingleValue;
        values[i].value = place.shift == WdbScalarBTree::WholeByte
                              ? byte
                              : shownBit(byte, states[place.plane].value, place.shift);
    }
    return values;
}

bool WdbWantedBytes::hasValue(const Place& place, const WdbByteStates& states) {
    for (std::size_t i = place.first; i < place.first + place.count; ++i)
        if (states[i].isKnown) return true;
    return false;
}

}  // namespace Korvel
