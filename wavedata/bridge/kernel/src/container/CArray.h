#pragma once

#include <algorithm>
#include <memory>

namespace Korvel {

/// Fixed-capacity array of unsigned 32-bit values, all zero where nothing was stored.
///
/// Nothing is checked: a caller reserves before it stores. reserve() to a larger capacity loses the
/// contents; grow() keeps them.
class CArray {
public:
    static constexpr unsigned int DefaultCapacity = 128;

    explicit CArray(unsigned int capacity = DefaultCapacity)
        : m_capacity(capacity), m_data(std::make_unique<unsigned int[]>(capacity)) {}
    CArray(const CArray& other) : CArray(other.m_capacity) { copyFrom(other); }
    CArray& operator=(const CArray& other) {
        if (this == &other) return *this;
        if (m_capacity != other.m_capacity) {
            m_data = std::make_unique<unsigned int[]>(other.m_capacity);
            m_capacity = other.m_capacity;
        }
        copyFrom(other);
        return *this;
    }

    unsigned int& operator[](unsigned int index) { return m_data[index]; }
    const unsigned int& operator[](unsigned int index) const { return m_data[index]; }
    unsigned int size() const { return m_size; }
    unsigned int capacity() const { return m_capacity; }
    bool empty() const { return m_size == 0; }
    unsigned int front() const { return m_data[0]; }
    unsigned int back() const { return m_size == 0 ? 0 : m_data[m_size - 1]; }

    void push_back(unsigned int value) { m_data[m_size++] = value; }
    void setSize(unsigned int size) { m_size = size; }
    void setData(unsigned int index, unsigned int value) { m_data[index] = value; }

    /// Makes room for @p capacity values. Loses the contents when that is more than there is now.
    void reserve(unsigned int capacity) {
        if (capacity > m_capacity) *this = CArray(capacity);
    }

    /// Makes room for @p capacity values and keeps the contents.
    void grow(unsigned int capacity) {
        if (capacity <= m_capacity) return;
        auto data = std::make_unique<unsigned int[]>(capacity);
        std::copy_n(m_data.get(), m_size, data.get());
        m_data = std::move(data);
        m_capacity = capacity;
    }

    void clear() {
        std::fill_n(m_data.get(), m_capacity, 0u);
        m_size = 0;
    }

private:
    void copyFrom(const CArray& other) {
        std::copy_n(other.m_data.get(), m_capacity, m_data.get());
        m_size = other.m_size;
    }

    unsigned int m_capacity;
    unsigned int m_size = 0;
    std::unique_ptr<unsigned int[]> m_data;
};

/// Byte offsets of the records in a block.
using WdbOffsetArray = CArray;

}  // namespace Korvel
