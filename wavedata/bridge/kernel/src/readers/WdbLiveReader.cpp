#include "readers/WdbLiveReader.h"

#include <climits>
#include <exception>

#include <unistd.h>
#include <boost/filesystem/operations.hpp>
#include <boost/thread/reverse_lock.hpp>

#include "events/WdbIEventBlockDatabase.h"
#include "readers/WdbSharedMemoryReader.h"
#include "support/OutputFileNames.h"
#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

namespace fs = boost::filesystem;

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbLiveReader";
const char ApplicationName[] = "Pellon Simulator";
constexpr unsigned int SectionVersion = 1;
constexpr unsigned int BucketSize = WdbEventDatabaseHeader::AddressesPerBucket;
constexpr unsigned long MostAddresses = 1UL * INT_MAX * BucketSize;

using ManagerLock = boost::unique_lock<boost::recursive_mutex>;
using Lock = boost::unique_lock<boost::mutex>;

}  // namespace

WdbLiveReader::WdbLiveReader() = default;

WdbLiveReader::~WdbLiveReader() {
    try {
        letGo();
    } catch (const std::exception&) {
        // The base lets go of the rest.
    }
}

// --- Opening and closing. ---

void WdbLiveReader::createReader(const std::string& designPath, const std::string& fileName,
                                 int index, const std::string& tmpDir) {
    beginAttaching();
    // The objects of the first simulation may have been named before it was opened.
    if (!m_fileName.empty()) {
        letGo();
        m_tracedObjects.clear();
    }
    m_directory = TORQ::OutputFileNames::getKernelDirectory(designPath);
    m_index = index;
    m_fileName = fs::system_complete(fileName).string();
    try {
        checkCreatable();
        attach();
        createRecording();
        createDrawingBTreeTmpFile(m_directory, m_fileName, index, tmpDir);
        startStreaming();
    } catch (...) {
        m_fileName.clear();
        letGo();
        throw;
    }
}

void WdbLiveReader::relaunchAfterRestart() {
    if (m_fileName.empty()) throwOpenException(ClassFile, __LINE__, "No simulation was opened.");
    beginAttaching();
    try {
        if (m_sharedMemReader) {
            m_sharedMemReader->stop();
            closeRecording();
            checkCreatable();
            m_sharedMemReader->reattach();
        } else {
            checkCreatable();
            attach();
        }
        m_isTracedSetChanged = !m_tracedObjects.getIntervals().empty();
        createRecording();
        startStreaming();
    } catch (...) {
        letGo();
        throw;
    }
}

void WdbLiveReader::beginAttaching() {
    const Lock lock(m_attachMutex);
    m_isStopped = false;
}

void WdbLiveReader::attach() {
    setSharedMemReader(
        std::make_unique<WdbSharedMemReader>(m_directory, m_index, this, m_timeMarks));
}

// As far as can be told before anything is touched: a viewer that attaches and fails takes the
// simulation's ring with it.
void WdbLiveReader::checkCreatable() const {
    if (m_memFileSize > MostAddresses)
        throwOpenException(ClassFile, __LINE__, "The address size is too large.");
    const fs::path path(m_fileName);
    boost::system::error_code error;
    const bool isThere = fs::exists(path, error);
    const std::string toBeWritten = isThere ? m_fileName : path.parent_path().string();
    if (fs::is_directory(path, error) || ::access(toBeWritten.c_str(), W_OK) != 0)
        throwOpenException(ClassFile, __LINE__, "Cannot write the file " + m_fileName);
}

void WdbLiveReader::createRecording() {
    const unsigned long buckets = m_memFileSize / BucketSize + (m_memFileSize % BucketSize != 0);
    if (m_sharedMemReader->isTaken())
        throwOpenException(ClassFile, __LINE__,
                           "The simulation has a viewer already; there can be one only.");
    m_fileManager.setApplication(ApplicationName);
    m_fileManager.create(m_fileName);
    const long long header = WdbIEventBlockDatabase::createEventSection(
        m_eventDatabaseType, static_cast<unsigned int>(buckets), m_memFileSize, BucketSize,
        m_fileManager);
    std::unique_ptr<WdbIEventBlockDatabase> database(
        WdbEventBlockDatabaseFactory::getInstance().create(m_eventDatabaseType, m_fileManager));
    database->initialize(header, /*writable=*/true);
    flushFile();
    setEventDatabase(database.release(), &m_sharedMemReader->getDatabaseMutex());
}

void WdbLiveReader::startStreaming() {
    const Lock lock(m_attachMutex);
    m_sharedMemReader->setStoppingAtNewRun(m_isStoppingAtNewRun);
    m_sharedMemReader->start(m_pEventDatabase);
    if (m_isStopped) m_sharedMemReader->shutDown();
}

void WdbLiveReader::saveTracedObjects() {
    if (m_pEventDatabase == nullptr || !m_isTracedSetChanged) return;
    std::vector<WdbTracedInterval> intervals;
    for (const auto& [high, low] : m_tracedObjects.getIntervals())
        intervals.push_back({low, high});
    const long long offset =
        m_fileManager.getBlockManager().addBlock(reinterpret_cast<const char*>(intervals.data()),
                                                 intervals.size() * sizeof(WdbTracedInterval));
    m_pEventDatabase->setAddressMapFileOffsetAndSize(offset,
                                                     static_cast<long long>(intervals.size()));
    m_isTracedSetChanged = false;
}

// Nobody records any more.
void WdbLiveReader::closeRecording() {
    saveTracedObjects();
    discardRecording();
    m_fileManager.close();
}

void WdbLiveReader::letGo() {
    if (!m_sharedMemReader) return;
    m_sharedMemReader->stop();
    closeRecording();
    setSharedMemReader(nullptr);
}

void WdbLiveReader::setSharedMemReader(std::unique_ptr<WdbSharedMemReader> next) {
    const Lock lock(m_attachMutex);
    m_sharedMemReader.swap(next);
}

// --- Questions. ---

long long WdbLiveReader::getLatestTime() const {
    const ManagerLock lock(getReadWriteMutex());
    return WdbCommonReader::getLatestTime();
}

void WdbLiveReader::getValueEvents(long long start, long long end, long long resolution,
                                   const std::vector<WdbScalarBTree*>& trees,
                                   std::vector<WdbTimeByteValues>& out) const {
    const ManagerLock lock(getReadWriteMutex());
    WdbCommonReader::getValueEvents(start, end, resolution, trees, out);
}

long long WdbLiveReader::getNextEvent(long long time,
                                      const std::vector<WdbScalarBTree*>& trees) const {
    const ManagerLock lock(getReadWriteMutex());
    return WdbCommonReader::getNextEvent(time, trees);
}

long long WdbLiveReader::getPreviousEvent(long long time,
                                          const std::vector<WdbScalarBTree*>& trees) const {
    const ManagerLock lock(getReadWriteMutex());
    return WdbCommonReader::getPreviousEvent(time, trees);
}

void WdbLiveReader::getValueEvent(long long time, const std::vector<WdbScalarBTree*>& trees,
                                  WdbTimeByteValues& out) const {
    const ManagerLock lock(getReadWriteMutex());
    WdbCommonReader::getValueEvent(time, trees, out);
}

// --- The running simulation. ---

void WdbLiveReader::markTime(boost::unique_lock<boost::mutex>& lock) {
    m_timeMarks.wait(lock);
    // Without the mark lock: this takes the manager's mutex, whose holder, a listener or somebody
    // who draws, may be about to take the mark lock.
    const boost::reverse_lock<Lock> released(lock);
    m_bTreeManager.markTime(getLatestTime());
}

bool WdbLiveReader::hasMoreData() {
    const Lock lock(m_attachMutex);
    return m_sharedMemReader && m_sharedMemReader->hasMoreData();
}

void WdbLiveReader::restart() {
    const Lock lock(m_attachMutex);
    if (m_sharedMemReader) m_sharedMemReader->restart();
}

void WdbLiveReader::stopAtNewRun() {
    const Lock lock(m_attachMutex);
    m_isStoppingAtNewRun = true;
}

bool WdbLiveReader::hasBegunAgain() const {
    const Lock lock(m_attachMutex);
    return m_sharedMemReader && m_sharedMemReader->hasBegunAgain();
}

void WdbLiveReader::stopStreaming() {
    const Lock lock(m_attachMutex);
    m_isStopped = true;
    if (m_sharedMemReader) m_sharedMemReader->shutDown();
}

// --- What else goes into the recording. ---

void WdbLiveReader::saveRtti(const std::string& path) {
    embedFile("Pellon RTTI", path);
}

void WdbLiveReader::saveDbg(const std::string& path) {
    embedFile("Pellon DBG", path);
}

// Asks first, because embedding what cannot be read ends the process, as a simulator wants it.
void WdbLiveReader::embedFile(const char* sectionID, const std::string& path) {
    if (m_pEventDatabase == nullptr)
        throwOpenException(ClassFile, __LINE__, "No recording is open.");
    boost::system::error_code error;
    if (!fs::is_regular_file(path, error) || ::access(path.c_str(), R_OK) != 0)
        throwOpenException(ClassFile, __LINE__, "Cannot read the file " + path);
    m_fileManager.embedFileInNewSection(sectionID, SectionVersion, path);
}

}  // namespace Korvel
