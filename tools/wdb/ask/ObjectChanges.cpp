#include "ask/ObjectChanges.h"

#include <algorithm>

namespace Korvel {

ObjectChanges::ObjectChanges(const ViewedRecording& recording,
                             const std::vector<ViewedObject>& objects, TimeRange range,
                             long long resolution)
    : ObjectChanges(recording, objects, recording.makeTrees(scalarsOf(objects, recording.file())),
                    range, resolution) {}

ObjectChanges::ObjectChanges(const ViewedRecording& recording,
                             const std::vector<ViewedObject>& objects,
                             const std::vector<WdbScalarBTree*>& trees, TimeRange range,
                             long long resolution)
    : m_objects(objects),
      m_range(range),
      m_records(trees, range.from, range.to, resolution, recording.latestTime()) {
    m_firstScalars.reserve(objects.size());
    for (std::uint32_t i = 0; i < objects.size(); ++i) {
        m_firstScalars.push_back(m_owners.size());
        m_owners.resize(m_owners.size() + objects[i].scalarCount(), i);
    }
    m_entries.resize(m_owners.size());
}

bool ObjectChanges::next() {
    m_changed.clear();
    if (!m_records) return false;
    // What is in effect at the begin of the range may have been recorded long before.
    m_time = std::max(m_records.getTime(), m_range.from);
    for (; m_records && m_records.getTime() <= m_time; ++m_records) {
        const std::size_t scalar = m_records.getTreeIndex();
        const WdbTimeByteValue record = *m_records;
        m_entries[scalar] = {record.type, record.value};
        if (m_changed.empty() || m_changed.back() != m_owners[scalar]) {
            m_changed.push_back(m_owners[scalar]);
        }
    }
    std::sort(m_changed.begin(), m_changed.end());
    m_changed.erase(std::unique(m_changed.begin(), m_changed.end()), m_changed.end());
    return true;
}

ViewedValue ObjectChanges::value(std::size_t object) const {
    return assembleValue(m_objects[object], m_entries.data() + m_firstScalars[object]);
}

}  // namespace Korvel
