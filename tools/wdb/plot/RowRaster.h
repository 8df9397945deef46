#pragma once

#include "korvel/WdbByteValue.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Korvel {

/// A stretch of time in which what an object's scalars show stays the same, or, if it is dense,
/// changes too often to be shown.
struct RowSpan {
    long long begin = 0;
    long long end = 0;
    bool isDense = false;
    std::size_t column = 0;  ///< where entries() finds what the scalars show, unless it is dense
};

/// Puts the scalars of one object together, in columns of a few pixels, from what a range query at
/// resolution() tells of each alone.
///
/// Asking for all scalars at once would give a snapshot of all of them at each change of any. Here
/// memory depends on the number of columns and scalars only, however the changes are spread.
class RowRaster {
public:
    /// @param from,to  Times of the left and right end of the columns; @p from is less.
    /// @param end      Up to where values are known, from @p from to @p to.
    RowRaster(long long from, long long to, long long end, std::size_t columns,
              std::size_t scalars);

    /// Base units a column, rounded up: what lasts shorter cannot be told apart.
    long long resolution() const { return m_resolution; }

    /// @param snapshots  Answer of a range query from begin to end for this scalar alone.
    void addScalar(std::size_t scalar, const std::vector<WdbTimeByteValues>& snapshots);

    /// The stretches between @p from and @p end. A change that is followed within less than the
    /// resolution, by one of the same or another scalar or by the end, is part of a dense stretch;
    /// one exactly at the end makes a dense stretch without length.
    std::vector<RowSpan> spans() const;

    /// What each scalar shows in a stretch that is not dense, which may be that it is dense itself.
    std::vector<WdbByteValue> entries(const RowSpan& span) const;

    /// Whether all scalars keep at @p from what they had before.
    bool isCut() const { return m_isCut; }

private:
    struct Column {
        long long firstChange = NoChange;
        long long lastChange = NoChange;
    };

    static constexpr long long NoChange = -1;

    std::size_t columnOf(long long time) const;
    void markChange(long long time);
    void fill(std::size_t scalar, std::size_t begin, std::size_t end, const WdbByteValue& entry);

    long long m_from;
    long long m_to;
    long long m_end;
    std::size_t m_scalars;
    long long m_resolution;
    bool m_isCut = true;
    std::vector<Column> m_columns;
    // What scalars show at the end of each column, those of a column side by side.
    std::vector<std::uint16_t> m_states;
};

}  // namespace Korvel
