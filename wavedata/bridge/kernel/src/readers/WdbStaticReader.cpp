#include "readers/WdbStaticReader.h"

#include <vector>

#include "container/WdbStringMapDatabase.h"
#include "events/WdbEventBlockDatabaseFactory.h"
#include "events/WdbEventDatabaseHeader.h"
#include "events/WdbIEventBlockDatabase.h"
#include "support/WdbOpenFailure.h"
#include "veld/OpenException.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbStaticReader";
constexpr int NoEventDatabaseLine = 73;  // what the exception says in every release

}  // namespace

WdbStaticReader::WdbStaticReader() = default;
WdbStaticReader::~WdbStaticReader() = default;

void WdbStaticReader::createReader(const std::string&, const std::string& wdbPath, int,
                                   const std::string& tmpDir) {
    discardRecording();
    createDrawingBTreeTmpFile("", wdbPath, 0, tmpDir);
    m_fileManager.open(wdbPath);
    std::unique_ptr<WdbIEventBlockDatabase> database = loadEventDatabase();
    loadObjectFilter(database->getEventDatabaseHeader());
    loadStringMap();
    setEventDatabase(database.release());
}

// File offset of a section; 0 where there is none.
long long WdbStaticReader::findSection(const char* id) const {
    try {
        return m_fileManager.getSectionFileOffset(id, 1);
    } catch (const Veld::OpenException&) {
        return 0;
    }
}

std::unique_ptr<WdbIEventBlockDatabase> WdbStaticReader::loadEventDatabase() {
    const WdbFileBlockManager& store = m_fileManager.getBlockManager();
    const long long offset = findSection(WdbIEventBlockDatabase::SectionID);
    WdbEventDatabaseHeader header;
    if (mayFollowHandle(store, offset, sizeof(header)))
        store.getBlock(offset, reinterpret_cast<char*>(&header), sizeof(header));
    std::unique_ptr<WdbIEventBlockDatabase> database(
        WdbEventBlockDatabaseFactory::getInstance().create(header.databaseTypeId, m_fileManager));
    if (!database) {
        throwOpenException(ClassFile, NoEventDatabaseLine,
                           "The wdb file does not contain event database.");
    }
    database->initialize(offset, false);
    return database;
}

void WdbStaticReader::loadObjectFilter(const WdbEventDatabaseHeader& header) {
    m_tracedObjects.clear();
    m_isObjectFilterActive = true;
    const long long count = header.addressMapSize;
    const long long offset = header.addressMapOffset;
    if (count < 1 || offset == 0) {
        m_isObjectFilterActive = false;
        return;
    }
    // More than any file holds, so that their size in bytes can be computed.
    constexpr long long MostIntervals = 1LL << 48;
    const WdbFileBlockManager& store = m_fileManager.getBlockManager();
    const auto size = static_cast<unsigned long long>(count) * sizeof(WdbTracedInterval);
    if (count > MostIntervals || !mayFollowHandle(store, offset, size)) {
        throwOpenException(ClassFile, __LINE__,
                           "The wdb file does not hold its list of traced objects.");
    }
    std::vector<WdbTracedInterval> intervals(static_cast<std::size_t>(count));
    store.getBlock(offset, reinterpret_cast<char*>(intervals.data()), size);
    for (const WdbTracedInterval& interval : intervals)
        m_tracedObjects.addInterval(interval.low, interval.high);
}

void WdbStaticReader::loadStringMap() {
    const long long offset = findSection(WdbStringMapDatabase::SectionID);
    if (offset == 0) return;
    constexpr int TypeId = 0;  // the header tells it
    auto database = std::make_unique<WdbStringMapDatabase>(m_fileManager, TypeId);
    database->initialize(offset, false);
    setStringMapDatabase(database.release());
}

}  // namespace Korvel
