#pragma once

#include <atomic>
#include <memory>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include "korvel/IWdbWriter.h"
#include "writers/WdbVlogMerge.h"

namespace Korvel {

class WdbSharedMemMgr;
struct WdbLivePacketContainer;

/// Streams the changes of a running simulation to a viewer, through memory that both share.
///
/// Nothing goes to disk: the viewer records what it is sent, and owns the settings that shape the
/// recording, so that their setters have nothing to do here. What is traced while no transport is
/// open is lost.
///
/// One thread at a time traces; another may mark times meanwhile.
class WdbLiveWriter : public IWdbWriter {
public:
    WdbLiveWriter();
    ~WdbLiveWriter() override;
    WdbLiveWriter(const WdbLiveWriter&) = delete;
    WdbLiveWriter& operator=(const WdbLiveWriter&) = delete;

    /// Makes the ring of the snapshot that @p designPath lies in. Ends the process with exit status
    /// 1 unless @p mode is LiveMode.
    void open(WriterMode mode, const std::string& designPath, const std::string& fileName,
              int index) override;
    TraceVhdlFunc getTraceVhdlFunc() override { return traceVhdl; }
    TraceVhdlScalarFunc getTraceVhdlFuncScalar() override { return traceVhdlScalar; }
    TraceVlogFunc getTraceVlogFunc() override { return traceVlog; }
    TraceScObjectFunc getTraceScObjectFunc() override { return traceScObject; }
    TraceScVirtualObjectFunc getTraceScVirtualObjectFunc() override { return traceScVirtualObject; }

    /// Always 0: the viewer's recording has no string map of ours.
    long long addString(const std::string&) override { return 0; }
    void close() override;

    /// The simulation begins anew: what the viewer has not taken yet is forgotten.
    void restart() override;
    void setMaxTraceableSize(unsigned int) override {}
    void markCurrentTime(long long time) override;
    void setBaseDPOffset(long long offset) override { m_baseOffset = offset; }
    void setApplication(const std::string&) override {}
    void setAddressSize(long long) override {}
    void setBucketDivision(unsigned int) override {}
    void setFilterRepeatedValue(bool) override {}
    void setDatabaseType(int) override {}

private:
    static void traceVhdl(long long time, unsigned int, unsigned int size, unsigned char* storage,
                          unsigned char* value);
    static void traceVhdlScalar(long long, unsigned int, unsigned int, const unsigned char*);
    static void traceVlog(long long time, unsigned int, unsigned int, unsigned char* storage,
                          unsigned char* bits, unsigned int firstBit, unsigned int endBit);
    static void traceScObject(long long time, unsigned long long address, unsigned char* current,
                              unsigned char* bits, unsigned int firstBit, unsigned int bitCount);
    static void traceScVirtualObject(long long time, unsigned long long address,
                                     unsigned char* value, unsigned int offset, unsigned int size);

    unsigned long long addressOf(const unsigned char* storage) const;
    void mergeAndPutVlogPacket(long long time, unsigned long long address,
                               const unsigned char* current, const unsigned char* bits,
                               unsigned int firstBit, unsigned int endBit);
    void constructAndPutRegularPacket(long long time, unsigned int size, unsigned long long address,
                                      const unsigned char* value);
    void putPacketRegular(WdbLivePacketContainer& event);
    void enterBehindMark();
    void leaveToMark();

    // The writer that the trace functions stream through: the one constructed last.
    static WdbLiveWriter* s_pLiveWriter;

    std::unique_ptr<WdbSharedMemMgr> m_transport;  // null unless open
    boost::mutex m_packetMutex;
    boost::condition_variable m_packetCondition;  // a flag was cleared
    // Each side sets its flag before it looks at the other's, so that one of them sees the other.
    std::atomic<bool> m_isMarkPending{false};
    std::atomic<bool> m_isRegularInFlight{false};
    long long m_baseOffset = 0;
    WdbVlogMerge m_merge;
};

}  // namespace Korvel
