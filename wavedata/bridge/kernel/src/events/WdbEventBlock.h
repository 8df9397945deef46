#pragma once

#include <cstring>
#include <iosfwd>
#include <memory>

#include "container/CArray.h"
#include "container/WdbIBlockManager.h"
#include "events/WdbEvent.h"
#include "events/WdbEventIterator.h"

namespace Korvel {

struct WdbLiveEvent;

/// What the first bytes of an event block claim.
struct WdbEventBlockHeader {
    long long startTime = 0;
    long long timeLength = 0;
    unsigned int eventCount = 0;
};

/// Events packed back to back into one fixed-size image, stored deflated as a whole.
///
///   offset  size  field
///        0     8  start time    signed, time of the first event
///        8     8  time length   signed, last event's time minus start time
///       16     4  event count
///       20     -  events        in the order added (WdbEvent); zero from there to the end
///
/// The unused tail stays zero, so that equal blocks give equal bytes and cost almost nothing once
/// deflated. The header is filled in when the block is stored; while events are added it may be
/// stale. Addresses in the image count from the base address, which the image does not hold.
///
/// One thread at a time.
class WdbEventBlock {
public:
    static constexpr unsigned int HeaderSize = 20;

    /// Room that canAdd() asks for on top of the values: an event's header and four bytes more.
    static constexpr unsigned int AddReserve = 20;

    /// Addresses that an occupancy key covers, one bit each.
    static constexpr unsigned int KeyAddresses = 2048;
    static constexpr unsigned int KeySize = KeyAddresses / 8;

    /// Goes through the events that the block held when the iterator was made; a plain value. The
    /// block must outlive it.
    class Iterator {
    public:
        Iterator(char* image, long long baseAddress, const CArray& offsets)
            : m_baseAddress(baseAddress),
              m_count(offsets.size()),
              m_pImage(image),
              m_offsets(offsets),
              m_event(image) {
            m_event.setBaseAddress(m_baseAddress);
        }

        explicit operator bool() const { return static_cast<unsigned int>(m_index) < m_count; }
        Iterator& operator++() {
            ++m_index;
            return *this;
        }
        WdbEvent operator*() const {
            m_event.setBase(m_pImage + m_offsets[static_cast<unsigned int>(m_index)]);
            return m_event;
        }
        void setIndex(int index) { m_index = index; }
        int getIndex() const { return m_index; }

    private:
        long long m_baseAddress;
        int m_index = 0;
        unsigned int m_count;
        char* m_pImage;
        CArray m_offsets;
        mutable WdbEvent m_event;  // re-pointed by each dereference
    };

    /// @param capacity     Bytes of the image, header included.
    /// @param baseAddress  What stored addresses are counted from.
    WdbEventBlock(unsigned int capacity, long long baseAddress);
    WdbEventBlock(const WdbEventBlock& other);
    WdbEventBlock& operator=(const WdbEventBlock& other);

    // --- Once per value change: no allocation, no lock, no check of the room. ---

    /// Whether an event with so many value bytes fits. Leaves at least four bytes free.
    bool canAdd(unsigned int valueLength) const {
        return 0ull + m_usedSize + valueLength + AddReserve < m_capacity;
    }

    /// Whether the image has room for an event of so many value bytes at all.
    bool hasRoomFor(unsigned long long valueLength) const {
        return m_usedSize + WdbEvent::HeaderSize + valueLength <= m_capacity;
    }

    /// Adds an event; one without value bytes is dropped. The caller has made sure of the room.
    void addEvent(long long time, long long address, unsigned int length,
                  const unsigned char* value) {
        if (length == 0) return;
        char* event = m_image.get() + m_usedSize;
        const auto relative =
            static_cast<unsigned int>(address) - static_cast<unsigned int>(m_baseAddress);
        std::memcpy(event, &time, sizeof(time));
        std::memcpy(event + 8, &relative, sizeof(relative));
        std::memcpy(event + 12, &length, sizeof(length));
        copyValue(event + WdbEvent::HeaderSize, value, length);
        recordEvent(WdbEvent::HeaderSize + length);
    }

    // --- End of the path that runs once per value change. ---

    void addEvent(const WdbLiveEvent* event);

    /// Adds an event that is already encoded against this block's base address.
    void addEvent(char* encoded, unsigned int size);

    bool isEmpty() const { return m_eventCount == 0; }

    /// Number of events.
    unsigned int size() const { return m_eventCount; }
    void clear();

    unsigned int getMaxEventBlockSize() const { return m_capacity; }
    unsigned int sizeofEventBlock() const { return m_capacity; }
    unsigned int getUsedSize() const { return m_usedSize; }

    long long getStartTime() const { return readHeader(StartTimeOffset); }
    long long getTimeLength() const { return readHeader(TimeLengthOffset); }

    void setFileOffset(long long offset) { m_fileOffset = offset; }
    long long getFileOffset() const { return m_fileOffset; }
    char* getMemory() const { return m_image.get(); }
    void setBaseAddress(long long address) { m_baseAddress = address; }
    long long getBaseAddress() const { return m_baseAddress; }

    /// Calls @p visit with each event in turn, as cheaply as going through a block once can be: an
    /// iterator first notes where all events begin.
    template <typename Visitor>
    void forEachEvent(Visitor&& visit) const {
        WdbEvent event;
        event.setBaseAddress(m_baseAddress);
        for (unsigned int offset = HeaderSize; offset < m_usedSize;) {
            event.setBase(m_image.get() + offset);
            offset += event.sizeofEvent();
            visit(event);
        }
    }

    Iterator getIterator() const;
    WdbEventIterator getEventIterator() const;

    /// Stores the block compressed; 0, and nothing stored, when it is empty. Any failure ends the
    /// process.
    long long addBlock(WdbIBlockManager& store, unsigned int& compressedSize) const;

    /// Reads a compressed block. What cannot be unpacked is an empty block, and the events end at
    /// the first that does not lie wholly inside the image. The base address stays as it is.
    void loadBlock(long long offset, unsigned int compressedSize, const WdbIBlockManager& store);

    /// Reads a compressed block's header alone, without a look at the rest. False when it cannot be
    /// unpacked.
    static bool peek(long long offset, unsigned int compressedSize, const WdbIBlockManager& store,
                     WdbEventBlockHeader& header);

    /// Overwrites a block that is stored as it is, uncompressed. Nothing happens when it is empty.
    void putBlock(long long offset, WdbIBlockManager& store) const;

    /// Sets the bit of every address that changes in the block. Those outside the 2048 from
    /// @p baseAddress on have none.
    void getkeyMap(long long baseAddress, unsigned char key[KeySize]) const;

    static bool isAddressInKey(long long address, long long baseAddress, const unsigned char* key);

    /// Largest time between two changes of one address in the block; the block's whole time span
    /// when an address, looked at in ascending order, changes only once.
    /// Throws std::out_of_range for an address 2048 or more above @p baseAddress.
    long long getLargestDiff(long long baseAddress) const;

    /// getLargestDiff() and the occupancy key in one go.
    void getLargestDiffAndKey(long long baseAddress, long long& largestDiff,
                              unsigned char key[KeySize]) const;

    /// Keeps only the last of several writes of the same time, start address and length. Values are
    /// not compared. A block whose first 102 events hold no repeat is left alone, which is what
    /// makes the look cheap in a recording without repeats.
    void filterOutRepeatedValue();

    void dump(std::ostream& out, bool withEvents) const;

private:
    static constexpr unsigned int StartTimeOffset = 0;
    static constexpr unsigned int TimeLengthOffset = 8;
    static constexpr unsigned int CountOffset = 16;
    static constexpr unsigned int ReservedOffsets = 1024;

    class GapTable;

    // Most changes are one VHDL element or one Verilog word pair, which need no call to copy.
    static void copyValue(char* to, const unsigned char* value, unsigned int length) {
        if (length == 8) {
            std::memcpy(to, value, 8);
        } else if (length == 1) {
            *to = static_cast<char>(*value);
        } else {
            std::memcpy(to, value, length);
        }
    }

    long long readHeader(unsigned int offset) const {
        long long value;
        std::memcpy(&value, m_image.get() + offset, sizeof(value));
        return value;
    }
    bool hasRepeatEarlyOn() const;
    void storeCount() const;
    void fillHeader() const;
    unsigned int claimedCount() const;
    void walkImage(unsigned int eventCount);
    const CArray& offsets() const;
    WdbEvent eventAtOffset(unsigned int offset) const;
    WdbEvent eventAt(unsigned int index) const { return eventAtOffset(offsets()[index]); }
    long long timeSpan() const;

    void recordEvent(unsigned int size) {
        m_lastEvent = m_usedSize;
        m_usedSize += size;
        ++m_eventCount;
    }

    // What adding an event touches fits one cache line: a simulation's changes are scattered over
    // many blocks, and every further line is a miss.
    long long m_baseAddress;
    unsigned int m_capacity;
    unsigned int m_usedSize = HeaderSize;  // bytes of the image in use, header included
    unsigned int m_eventCount = 0;
    unsigned int m_lastEvent = 0;  // offset of the event added last; 0 in an empty block
    std::unique_ptr<char[]> m_image;
    long long m_fileOffset = 0;  // where the owner stored the block; 0 until it says so
    // Offset of each event in the image, found out when first asked for: a writer never asks.
    mutable CArray m_offsets{0};
};

}  // namespace Korvel
