#pragma once

#include "ask/ViewedObject.h"
#include "ask/ViewedRecording.h"
#include "korvel/WdbMultiBtreeIterator.h"

#include <cstddef>
#include <vector>

namespace Korvel {

/// Goes through the changes of objects, one time after the other. Memory does not grow with the
/// number of changes.
///
/// The first step shows, at the begin of the range, the values in effect there.
class ObjectChanges {
public:
    /// @param objects     Must outlive it.
    /// @param resolution  0 shows every change; otherwise changes closer together become dense.
    ObjectChanges(const ViewedRecording& recording, const std::vector<ViewedObject>& objects,
                  TimeRange range, long long resolution);

    /// The same of indexes that are there already, and may be growing: the caller then holds the
    /// reader's mutex for as long as this lives.
    ObjectChanges(const ViewedRecording& recording, const std::vector<ViewedObject>& objects,
                  const std::vector<WdbScalarBTree*>& trees, TimeRange range, long long resolution);

    /// Moves to the next time at which something changes. False at the end.
    bool next();

    long long time() const { return m_time; }
    /// Positions of the objects that changed, ascending.
    const std::vector<std::size_t>& changed() const { return m_changed; }
    ViewedValue value(std::size_t object) const;

private:
    const std::vector<ViewedObject>& m_objects;
    TimeRange m_range;
    std::vector<std::size_t> m_firstScalars;  // by object
    std::vector<std::uint32_t> m_owners;      // by scalar: its object
    std::vector<WdbByteValue> m_entries;      // by scalar
    WdbMultiBtreeIterator m_records;
    long long m_time = 0;
    std::vector<std::size_t> m_changed;
};

}  // namespace Korvel
