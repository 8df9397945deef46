#include "readers/WdbCommonReader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <boost/ptr_container/ptr_vector.hpp>

#include "container/WdbStringMapDatabase.h"
#include "events/WdbIEventBlockDatabase.h"
#include "readers/WdbDrawingFile.h"

namespace Korvel {
namespace {

const char RttiSection[] = "Pellon RTTI";
const char DbgSection[] = "Pellon DBG";
const char ProtoSection[] = "Pellon Proto";
constexpr unsigned int SectionVersion = 1;

constexpr long long NoEndTime = WdbScalarBTree::NoEndTime;
using Iterator = WdbScalarBTree::Iterator;

WdbByteValue valueOf(const WdbTimeByteValue& record) {
    return {record.type, record.value};
}

std::unique_ptr<Iterator> findValue(const WdbScalarBTree& tree, long long time, long long latest) {
    return std::unique_ptr<Iterator>(tree.find(time, 0, latest, NoEndTime));
}

}  // namespace

WdbCommonReader::WdbCommonReader() = default;

WdbCommonReader::~WdbCommonReader() {
    m_bTreeManager.setEventDatabase(nullptr);
    delete m_pEventDatabase;  // writes through the file manager, which goes later
}

// --- Events on their way into the indexes: free of cost until something is displayed. ---

bool WdbCommonReader::addEventDirect(const WdbLiveEvent* event) {
    WdbAddressBTreeManager& manager = getBTreeManager();
    return manager.hasAtLeastOneBtree() && manager.addEventDirect(event);
}

bool WdbCommonReader::addEventBuffered(const WdbLiveEvent* event) {
    WdbAddressBTreeManager& manager = getBTreeManager();
    return manager.hasAtLeastOneBtree() && manager.addEventBuffered(event);
}

void WdbCommonReader::flushEvents() {
    WdbAddressBTreeManager& manager = getBTreeManager();
    if (manager.hasAtLeastOneBtree()) manager.flushEvents();
}

boost::recursive_mutex& WdbCommonReader::getReadWriteMutex() const {
    // Handing out the lock changes no index.
    return const_cast<WdbCommonReader*>(this)->getBTreeManager().getMutex();
}

// --- What the recording holds beside events. ---

bool WdbCommonReader::isWDBVersionMatched() const {
    return m_fileManager.getHeader().isVersionStringMatched();
}

unsigned char* WdbCommonReader::getRtti(long long* size) const {
    return m_fileManager.getSectionData(RttiSection, SectionVersion, size);
}

unsigned char* WdbCommonReader::getDbg(long long* size) const {
    return m_fileManager.getSectionData(DbgSection, SectionVersion, size);
}

std::string WdbCommonReader::getProtoSettings() const {
    long long size = 0;
    unsigned char* data = m_fileManager.getSectionData(ProtoSection, SectionVersion, &size);
    if (data == nullptr) return {};
    const char* text = reinterpret_cast<const char*>(data);
    const std::string settings(text, ::strnlen(text, static_cast<std::size_t>(size)));
    std::free(data);
    return settings;
}

unsigned char* WdbCommonReader::getDbgHeader(long long size) const {
    return m_fileManager.getSectionData(DbgSection, SectionVersion, size);
}

long long WdbCommonReader::getLatestTime() const {
    return m_pEventDatabase != nullptr ? m_pEventDatabase->getLatestTime() : 0;
}

std::string WdbCommonReader::getStringMapValue(long long id) const {
    if (!m_stringMapDatabase || id < 1) return {};
    if (const std::string* cached = m_stringCache.find(id)) return *cached;
    std::string text;
    const bool isFound = id <= std::numeric_limits<unsigned int>::max() &&
                         m_stringMapDatabase->getString(static_cast<unsigned int>(id), text);
    if (isFound) m_stringCache.add(id, text);
    return text;
}

// --- Queries. ---

void WdbCommonReader::getValueEvent(long long time, const std::vector<WdbScalarBTree*>& trees,
                                    WdbTimeByteValues& out) const {
    const long long latest = getLatestTime();
    WdbTimeByteValues snapshot;
    snapshot.values.resize(trees.size());
    for (std::size_t i = 0; i < trees.size(); ++i) {
        if (trees[i]->isEmpty()) continue;
        const std::unique_ptr<Iterator> it = findValue(*trees[i], time, latest);
        if (!*it || it->getTime() > time) continue;
        snapshot.values[i] = valueOf(**it);
        snapshot.time = std::max(snapshot.time, it->getTime());
    }
    out = std::move(snapshot);
}

long long WdbCommonReader::getPreviousEvent(long long time,
                                            const std::vector<WdbScalarBTree*>& trees) const {
    const long long latest = getLatestTime();
    const long long probe = time >= 1 ? time - 1 : time;
    bool isFirst = true;
    long long result = 0;
    for (const WdbScalarBTree* tree : trees) {
        if (tree->isEmpty()) continue;
        const long long candidate = findValue(*tree, probe, latest)->getTime();
        result = isFirst ? candidate : std::max(result, candidate);
        isFirst = false;
    }
    return result;
}

long long WdbCommonReader::getNextEvent(long long time,
                                        const std::vector<WdbScalarBTree*>& trees) const {
    const long long latest = getLatestTime();
    bool isFirst = true;
    long long result = 0;
    for (const WdbScalarBTree* tree : trees) {
        if (tree->isEmpty()) continue;
        long long candidate = tree->getLastValueTime();
        const std::unique_ptr<Iterator> it = findValue(*tree, time, latest);
        if (*it && it->getTime() <= time) ++*it;
        if (*it) candidate = it->getTime();
        // The first tree's candidate stays where it has no change after the time, even if a later
        // tree has: viewers walk along the signal that was selected first.
        if (isFirst || (candidate > time && candidate < result)) result = candidate;
        isFirst = false;
    }
    return result;
}

namespace {

// The merged walk of a range query: one pass over the records of all trees.
class RangeWalk {
public:
    RangeWalk(const std::vector<WdbScalarBTree*>& trees, long long start, long long end,
              long long resolution, long long latest)
        : m_end(end == NoEndTime ? std::numeric_limits<long long>::max() : end),
          m_values(trees.size()),
          m_times(trees.size(), NoTime) {
        m_iterators.reserve(trees.size());
        for (const WdbScalarBTree* tree : trees)
            m_iterators.push_back(tree->find(start, resolution, latest, end));
        for (std::size_t i = 0; i < m_iterators.size(); ++i) {
            if (!noteTime(i)) continue;
            m_due.push_back(i);
            m_values[i] = valueOf(*m_iterators[i]);
            m_time = std::max(m_time, m_iterators[i].getTime());
            ++m_pending;
        }
    }

    void run(std::vector<WdbTimeByteValues>& out) {
        // The values in effect at the start are shown even if they never change.
        bool isFirst = true;
        while (m_pending != 0) {
            const bool isChanged = takeDue();
            if (isChanged || isFirst) out.push_back({m_time, m_values});
            findNextTime();
            isFirst = false;
        }
    }

private:
    // Above all times that count, since the end is at most as large.
    static constexpr long long NoTime = std::numeric_limits<long long>::max();

    // Whether the iterator still has a record in the range.
    bool noteTime(std::size_t i) {
        const Iterator& it = m_iterators[i];
        const bool isInRange = it && it.getTime() <= m_end;
        m_times[i] = isInRange ? it.getTime() : NoTime;
        return isInRange;
    }

    // Takes the records of the current time; whether an entry became different.
    bool takeDue() {
        bool isChanged = false;
        for (const std::size_t i : m_due) {
            const WdbByteValue value = valueOf(*m_iterators[i]);
            if (isDifferent(value, m_values[i])) {
                m_values[i] = value;
                isChanged = true;
            }
            ++m_iterators[i];
            if (!noteTime(i)) --m_pending;
        }
        return isChanged;
    }

    void findNextTime() {
        m_due.clear();
        if (m_pending == 0) return;
        m_time = *std::min_element(m_times.begin(), m_times.end());
        for (std::size_t i = 0; i < m_times.size(); ++i) {
            if (m_times[i] == m_time && m_iterators[i]) m_due.push_back(i);
        }
    }

    long long m_end;
    boost::ptr_vector<Iterator> m_iterators;
    std::vector<WdbByteValue> m_values;
    std::vector<long long> m_times;  // of each iterator; NoTime behind the range
    std::vector<std::size_t> m_due;  // iterators at the current time
    std::size_t m_pending = 0;       // iterators that have a record in the range
    long long m_time = 0;
};

}  // namespace

void WdbCommonReader::getValueEvents(long long start, long long end, long long resolution,
                                     const std::vector<WdbScalarBTree*>& trees,
                                     std::vector<WdbTimeByteValues>& out) const {
    RangeWalk(trees, start, end, resolution, getLatestTime()).run(out);
}

// --- Traced objects. ---

void WdbCommonReader::setObjectTraced(unsigned int id, unsigned long long, unsigned int) {
    if (m_tracedObjects.add(id)) m_isTracedSetChanged = true;
}

bool WdbCommonReader::isObjectTraced(unsigned int id) const {
    return !m_isObjectFilterActive || m_tracedObjects.contains(id);
}

// --- Set-up. ---

void WdbCommonReader::discardRecording() {
    const std::unique_ptr<WdbIEventBlockDatabase> database(m_pEventDatabase);
    setEventDatabase(nullptr);
    m_bTreeManager.reset();
    m_stringMapDatabase.reset();
    m_stringCache.clear();
}

void WdbCommonReader::setEventDatabase(WdbIEventBlockDatabase* database, boost::mutex* writeLock) {
    {
        const boost::unique_lock<boost::recursive_mutex> lock(m_bTreeManager.getMutex());
        m_pEventDatabase = database;
    }
    m_bTreeManager.setEventDatabase(database, writeLock);
}

void WdbCommonReader::flushFile() {
    m_fileManager.getBlockManager().flushStream();
}

void WdbCommonReader::setStringMapDatabase(WdbStringMapDatabase* database) {
    m_stringMapDatabase.reset(database);
}

void WdbCommonReader::createDrawingBTreeTmpFile(const std::string&, const std::string& wdbPath,
                                                int index, const std::string& tmpDir) {
    m_drawingBTreeFilePath = makeDrawingFile(
        drawingFileDirectory(tmpDir), wdbPath, index,
        [this](const std::string& path) { m_bTreeManager.createDrawingBTreeFile(path); });
}

}  // namespace Korvel
