#include "writers/WdbStandAloneWriter.h"

#include <cstdint>

#include <unistd.h>
#include <boost/filesystem/operations.hpp>

#include "events/WdbEventBlockDatabaseFactory.h"
#include "support/OutputFileNames.h"
#include "support/WdbKeepForever.h"
#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbStandAloneWriter";
const char DefaultFileName[] = "torq.wdb";
constexpr unsigned int CompilerSectionVersion = 1;
constexpr int StringMapTypeId = 101;

}  // namespace

static_assert(IWdbWriter::SingleBucket == WdbEventBlockDatabaseFactory::SingleBucket &&
              IWdbWriter::MultipleBucket == WdbEventBlockDatabaseFactory::MultipleBucket &&
              IWdbWriter::MultipleBucketBtree == WdbEventBlockDatabaseFactory::MultipleBtree);

WdbStandAloneWriter* WdbStandAloneWriter::s_pStandAloneWriter = nullptr;

WdbStandAloneWriter::WdbStandAloneWriter() {
    s_pStandAloneWriter = this;
}

WdbStandAloneWriter::~WdbStandAloneWriter() {
    close();
    if (s_pStandAloneWriter == this) s_pStandAloneWriter = nullptr;
}

void WdbStandAloneWriter::open(WriterMode, const std::string& designPath,
                               const std::string& fileName, int) {
    close();
    checkSettings();
    m_processID = ::getpid();
    m_fileName = fileName.empty() ? DefaultFileName : fileName;
    try {
        openSections(designPath);
    } catch (...) {
        close();
        throw;
    }
    m_pEventCheckpoint = dynamic_cast<WdbICheckpoint*>(m_eventDatabase.get());
    // From here on a reader finds an empty recording.
    m_fileManager.getBlockManager().flushStream();
    m_lastMark = 0;
    m_checkpointClock.start();
}

void WdbStandAloneWriter::checkSettings() const {
    if (m_bucketDivision == 0) {
        throwOpenException(ClassFile, __LINE__, "The bucket division must not be 0.");
    }
    if (m_addressSize < 0) {
        throwOpenException(ClassFile, __LINE__, "The address size must not be negative.");
    }
    const long long buckets = (m_addressSize - 1) / m_bucketDivision + 1;
    if (buckets > INT32_MAX) {
        throwOpenException(ClassFile, __LINE__,
                           "The address size is too large for the bucket division.");
    }
    if (m_databaseType < SingleBucket || m_databaseType > MultipleBucketBtree) {
        throwOpenException(ClassFile, __LINE__, "There is no such type of event database.");
    }
    // Its buckets' bases are multiples of 2048, whatever the division: other addresses would be
    // recorded as others.
    if (m_databaseType == MultipleBucketBtree &&
        m_bucketDivision != WdbEventDatabaseHeader::AddressesPerBucket) {
        throwOpenException(ClassFile, __LINE__, "An event B-tree needs a bucket division of 2048.");
    }
}

void WdbStandAloneWriter::openSections(const std::string& designPath) {
    m_eventDatabase.reset(
        WdbEventBlockDatabaseFactory::getInstance().create(m_databaseType, m_fileManager));
    m_eventDatabase->setFilterRepeatedValue(m_filterRepeatedValue);
    m_fileManager.create(m_fileName);
    embedCompilerFiles(designPath);
    const long long header = WdbIEventBlockDatabase::createEventSection(
        m_databaseType, bucketCount(), static_cast<unsigned long>(m_addressSize), m_bucketDivision,
        m_fileManager);
    m_eventDatabase->initialize(header, /*writable=*/true);
    m_stringMap = std::make_unique<WdbStringMapDatabase>(m_fileManager, StringMapTypeId);
    const long long stringMap = m_stringMap->createStringMapSection(StringMapTypeId, m_fileManager,
                                                                    /*registerSection=*/true);
    m_stringMap->initialize(stringMap, /*writable=*/true);
}

void WdbStandAloneWriter::embedCompilerFiles(const std::string& designPath) {
    const std::string directory = TORQ::OutputFileNames::getKernelDirectory(designPath);
    struct CompilerFile {
        const char* name;
        const char* sectionID;
    };
    for (const CompilerFile& file :
         {CompilerFile{"torq.dbg", "Pellon DBG"}, CompilerFile{"torq.rtti", "Pellon RTTI"}}) {
        const std::string path = directory + "/" + file.name;
        boost::system::error_code error;
        if (!boost::filesystem::exists(boost::filesystem::status(path, error))) continue;
        m_fileManager.embedFileInNewSection(file.sectionID, CompilerSectionVersion, path);
    }
}

unsigned int WdbStandAloneWriter::bucketCount() const {
    if (m_databaseType == SingleBucket) return 1;
    const long long division = m_bucketDivision;
    return static_cast<unsigned int>(m_addressSize / division + (m_addressSize % division != 0));
}

long long WdbStandAloneWriter::addString(const std::string& text) {
    if (!m_stringMap || text.size() > WdbStringMapDatabase::LongestString) return -1;
    return m_stringMap->addString(text);
}

void WdbStandAloneWriter::close() {
    m_pEventCheckpoint = nullptr;
    if (isInForkedProcess()) {
        abandon();
        return;
    }
    m_eventDatabase.reset();
    m_stringMap.reset();
    m_fileManager.close();
}

// A simulator may fork, and the child may leave by exit(), which destroys its copy of the writer.
// The file and its offset are shared: whatever the child wrote would land in the parent's
// recording.
bool WdbStandAloneWriter::isInForkedProcess() const {
    return m_eventDatabase && m_processID != ::getpid();
}

void WdbStandAloneWriter::abandon() {
    // Their destructors would store what they hold.
    keepForever(m_eventDatabase.release());
    keepForever(m_stringMap.release());
    m_fileManager.abandon();
}

void WdbStandAloneWriter::setFilterRepeatedValue(bool filter) {
    m_filterRepeatedValue = filter;
    if (m_eventDatabase) m_eventDatabase->setFilterRepeatedValue(filter);
}

void WdbStandAloneWriter::markCurrentTime(long long time) {
    if (!m_eventDatabase) return;
    m_eventDatabase->setLatestTime(time);
    if (time == m_lastMark || !m_checkpointing) return;
    m_lastMark = time;
    if (m_checkpointClock.isDue()) checkpoint();
}

void WdbStandAloneWriter::checkpoint() {
    if (m_pEventCheckpoint == nullptr) return;
    m_checkpointClock.beginCheckpoint();
    m_pEventCheckpoint->checkpoint();
    m_stringMap->checkpoint();
    m_fileManager.getBlockManager().flushStream();
    m_checkpointClock.endCheckpoint();
}

// --- Once per value change: no allocation, no lock, no stream while blocks have room. ---

long long WdbStandAloneWriter::addressOf(const unsigned char* storage) const {
    return static_cast<long long>(reinterpret_cast<std::uintptr_t>(storage) -
                                  static_cast<std::uintptr_t>(m_baseOffset));
}

void WdbStandAloneWriter::traceVhdl(long long time, unsigned int, unsigned int size,
                                    unsigned char* storage, unsigned char* value) {
    const WdbStandAloneWriter* writer = s_pStandAloneWriter;
    if (writer == nullptr || !writer->m_eventDatabase) return;
    writer->m_eventDatabase->writeEvent(time, writer->addressOf(storage), size, value);
}

void WdbStandAloneWriter::traceVlog(long long time, unsigned int, unsigned int,
                                    unsigned char* storage, unsigned char* bits,
                                    unsigned int firstBit, unsigned int endBit) {
    WdbStandAloneWriter* writer = s_pStandAloneWriter;
    if (writer == nullptr || !writer->m_eventDatabase) return;
    writer->mergeAndWriteVlogEvent(time, writer->addressOf(storage), storage, bits, firstBit,
                                   endBit);
}

void WdbStandAloneWriter::traceScObject(long long time, unsigned long long address,
                                        unsigned char* current, unsigned char* bits,
                                        unsigned int firstBit, unsigned int bitCount) {
    WdbStandAloneWriter* writer = s_pStandAloneWriter;
    if (writer == nullptr || !writer->m_eventDatabase) return;
    writer->mergeAndWriteVlogEvent(time, static_cast<long long>(address), current, bits, firstBit,
                                   firstBit + bitCount);
    writer->markCurrentTime(time);
}

void WdbStandAloneWriter::traceScVirtualObject(long long time, unsigned long long address,
                                               unsigned char* value, unsigned int offset,
                                               unsigned int size) {
    WdbStandAloneWriter* writer = s_pStandAloneWriter;
    if (writer == nullptr || !writer->m_eventDatabase) return;
    writer->m_eventDatabase->writeEvent(time, static_cast<long long>(address + offset), size,
                                        value);
    writer->markCurrentTime(time);
}

void WdbStandAloneWriter::mergeAndWriteVlogEvent(long long time, long long address,
                                                 const unsigned char* current,
                                                 const unsigned char* bits, unsigned int firstBit,
                                                 unsigned int endBit) {
    if (endBit <= firstBit) return;
    const WdbVlogMerge::Range range = WdbVlogMerge::pairsOf(firstBit, endBit);
    const unsigned char* merged = m_merge.merge(current, bits, firstBit, endBit);
    m_eventDatabase->writeEvent(time, address + 8ll * range.firstPair, 8 * range.pairCount, merged);
    m_merge.trim();
}

// --- End of the path that runs once per value change. ---

}  // namespace Korvel
