#pragma once

#include <memory>

#include "korvel/WdbByteValue.h"

namespace Korvel {

class WdbGapBTree;
class WdbGapCursor;
class WdbIndexPages;

/// Drawing index of one scalar: the times at which it really changed, and its values.
///
/// A scalar is one byte address (a VHDL element: its value is the enumeration position) or one bit
/// of a Verilog word pair, whose value is value bit + 2 * second-plane bit: 0, 1, 2 for Z, 3 for X.
/// Successive records have different values and times that strictly increase.
///
/// Trees belong to the WdbAddressBTreeManager that handed them out. They are read under its mutex
/// while they may grow.
class __attribute__((visibility("default"))) WdbScalarBTree {
public:
    /// Goes through the records forwards. Not to be used after the tree grew.
    class __attribute__((visibility("default"))) Iterator {
    public:
        ~Iterator();
        Iterator(const Iterator&) = delete;
        Iterator& operator=(const Iterator&) = delete;

        /// False at the end.
        operator bool() const { return !m_isAtEnd; }

        /// Time of the current record; 0 at the end.
        long long getTime() const { return m_current.time; }

        /// The current record; type 0 at the end.
        WdbTimeByteValue operator*() const { return m_current; }

        Iterator& operator++();

    private:
        friend class WdbScalarBTree;
        Iterator(std::unique_ptr<WdbGapCursor> cursor, unsigned long long resolution,
                 long long endTime);
        void show();

        std::unique_ptr<WdbGapCursor> m_cursor;
        unsigned long long m_resolution;  // 0: every record
        long long m_endTime;
        bool m_isAtEnd = false;
        WdbTimeByteValue m_current;
    };

    /// Stands for the whole byte at an address.
    static constexpr int WholeByte = -1;

    /// As an end time: no bound.
    static constexpr long long NoEndTime = -1;

    /// @param bit    Bit of the word pair at @p address, 0 to 31, or WholeByte.
    /// @param pages  Where full pages of the index go; a store in memory of its own when null.
    explicit WdbScalarBTree(long long address, int bit = WholeByte,
                            std::shared_ptr<WdbIndexPages> pages = nullptr);
    ~WdbScalarBTree();
    WdbScalarBTree(WdbScalarBTree&&) noexcept;
    WdbScalarBTree& operator=(WdbScalarBTree&&) noexcept;

    long long getAddress() const { return m_address; }
    int getBit() const { return m_bit; }

    bool isEmpty() const;
    unsigned long long getRecordCount() const;

    /// Time of the newest record; 0 when there is none.
    long long getLastValueTime() const;

    /// Positions an iterator at the record in effect at @p time, the last one at or before it, or
    /// at the first later one when none is in effect.
    ///
    /// With a @p resolution above 0, a record followed by the next one within less than that starts
    /// a run: one dense record stands for all of it up to the first record that lasts longer, which
    /// follows as a single value. Finding the end of a run costs the same whatever its length.
    ///
    /// @param latestTime  Up to where the newest record lasts. It shows its value however soon that
    ///                    is, so that this changes nothing.
    /// @param endTime     Records after it are left out, and runs not followed; NoEndTime: no
    /// bound.
    /// @return never null; the caller deletes it.
    Iterator* find(long long time, long long resolution, long long latestTime,
                   long long endTime) const;

    /// The records themselves, for whoever fills the tree.
    WdbGapBTree& records() { return *m_records; }

private:
    long long m_address;
    int m_bit;
    std::unique_ptr<WdbGapBTree> m_records;
};

}  // namespace Korvel
