#pragma once

#include "ask/ValueFormat.h"
#include "ask/ViewedObject.h"
#include "plot/RowRaster.h"
#include "plot/WavePicture.h"

#include <vector>

namespace Korvel {

/// A row without segments: how the object is shown, and under which names.
WaveRow rowOf(const ViewedObject& viewed, const DesignDescription* description);

/// Where scopes of one parent follow each other with a single row each, like those of a generate
/// loop, puts their rows under the parent, so that not every row has a heading of its own.
void joinLoneRows(std::vector<WaveRow>& rows);

/// Makes the segments of rows.
class RowBuilder {
public:
    /// @param from,to  Times at the ends of the waves; @p from is less.
    /// @param width    Of the waves, in pixels.
    RowBuilder(const ValueFormat& format, long long from, long long to, unsigned int width)
        : m_format(format), m_from(from), m_to(to), m_width(width) {}

    /// @param raster  What the object's scalars show between the same times.
    void fill(WaveRow& row, const ViewedObject& viewed, const RowRaster& raster) const;

private:
    double pixel(long long time) const;
    WaveKind kindOf(const ViewedObject& viewed, const ViewedValue& value) const;
    void addText(WaveSegment& segment, const ViewedObject& viewed, const ViewedValue& value) const;

    const ValueFormat& m_format;
    long long m_from;
    long long m_to;
    unsigned int m_width;
};

}  // namespace Korvel
