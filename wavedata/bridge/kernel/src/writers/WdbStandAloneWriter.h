#pragma once

#include <memory>
#include <string>

#include "container/WdbFileManager.h"
#include "container/WdbStringMapDatabase.h"
#include "events/WdbIEventBlockDatabase.h"
#include "korvel/IWdbWriter.h"
#include "support/WdbCheckpointClock.h"
#include "support/WdbICheckpoint.h"
#include "writers/WdbVlogMerge.h"

namespace Korvel {

/// Records into a ".wdb" file from inside the simulator's process.
///
/// While it is open, a few times a second, what the lists of the file name is brought up to date,
/// so that a recording whose simulator was killed opens with every block that was full by then.
class WdbStandAloneWriter : public IWdbWriter {
public:
    WdbStandAloneWriter();
    ~WdbStandAloneWriter() override;
    WdbStandAloneWriter(const WdbStandAloneWriter&) = delete;
    WdbStandAloneWriter& operator=(const WdbStandAloneWriter&) = delete;

    void open(WriterMode mode, const std::string& designPath, const std::string& fileName,
              int index) override;
    TraceVhdlFunc getTraceVhdlFunc() override { return traceVhdl; }
    TraceVhdlScalarFunc getTraceVhdlFuncScalar() override { return traceVhdlScalar; }
    TraceVlogFunc getTraceVlogFunc() override { return traceVlog; }
    TraceScObjectFunc getTraceScObjectFunc() override { return traceScObject; }
    TraceScVirtualObjectFunc getTraceScVirtualObjectFunc() override { return traceScVirtualObject; }
    long long addString(const std::string& text) override;
    void close() override;
    void restart() override {}
    void setMaxTraceableSize(unsigned int) override {}
    void markCurrentTime(long long time) override;
    void setBaseDPOffset(long long offset) override { m_baseOffset = offset; }
    void setApplication(const std::string& name) override { m_fileManager.setApplication(name); }
    void setAddressSize(long long size) override { m_addressSize = size; }
    void setBucketDivision(unsigned int division) override { m_bucketDivision = division; }
    void setFilterRepeatedValue(bool filter) override;
    void setDatabaseType(int type) override { m_databaseType = type; }

    void createDataBase(const std::string&) {}

    /// Makes every stored block findable in the file now. Nothing happens when no file is open.
    void checkpoint();

    /// Whether time marks lead to checkpoints now and then; on at first.
    void setCheckpointing(bool enabled) { m_checkpointing = enabled; }

private:
    static void traceVhdl(long long time, unsigned int, unsigned int size, unsigned char* storage,
                          unsigned char* value);
    static void traceVhdlScalar(long long, unsigned int, unsigned int, const unsigned char*) {}
    static void traceVlog(long long time, unsigned int, unsigned int, unsigned char* storage,
                          unsigned char* bits, unsigned int firstBit, unsigned int endBit);
    static void traceScObject(long long time, unsigned long long address, unsigned char* current,
                              unsigned char* bits, unsigned int firstBit, unsigned int bitCount);
    static void traceScVirtualObject(long long time, unsigned long long address,
                                     unsigned char* value, unsigned int offset, unsigned int size);

    void mergeAndWriteVlogEvent(long long time, long long address, const unsigned char* current,
                                const unsigned char* bits, unsigned int firstBit,
                                unsigned int endBit);
    long long addressOf(const unsigned char* storage) const;

    bool isInForkedProcess() const;
    void abandon();
    void checkSettings() const;
    void openSections(const std::string& designPath);
    void embedCompilerFiles(const std::string& designPath);
    unsigned int bucketCount() const;

    // The writer that the trace functions record through: the one constructed last.
    static WdbStandAloneWriter* s_pStandAloneWriter;

    WdbFileManager m_fileManager;
    std::unique_ptr<WdbIEventBlockDatabase> m_eventDatabase;  // null unless open
    std::unique_ptr<WdbStringMapDatabase> m_stringMap;        // null unless open
    std::string m_fileName;
    int m_processID = 0;  // of the process that opened the recording
    long long m_addressSize = 0;
    long long m_baseOffset = 0;
    unsigned int m_bucketDivision = WdbEventDatabaseHeader::AddressesPerBucket;
    int m_databaseType = MultipleBucket;
    WdbVlogMerge m_merge;
    bool m_filterRepeatedValue = true;

    WdbICheckpoint* m_pEventCheckpoint = nullptr;  // the event database again, where it can
    WdbCheckpointClock m_checkpointClock;
    long long m_lastMark = 0;  // the clock is looked at when a mark differs from the one before
    bool m_checkpointing = true;
};

}  // namespace Korvel
