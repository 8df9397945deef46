#pragma once

#include "korvel/IWdbWriter.h"

namespace Korvel {

/// Streams the changes of a running simulation to a viewer.
///
/// This build has no transport to stream through: open() says so, and whatever is traced before a
/// transport is open is dropped, as it is after one was shut down. The viewer owns the settings
/// that shape a recording, so the setters have nothing to do.
class WdbLiveWriter : public IWdbWriter {
public:
    WdbLiveWriter();
    ~WdbLiveWriter() override;
    WdbLiveWriter(const WdbLiveWriter&) = delete;
    WdbLiveWriter& operator=(const WdbLiveWriter&) = delete;

    /// Ends the process with exit status 1 unless @p mode is LiveMode.
    void open(WriterMode mode, const std::string& designPath, const std::string& fileName,
              int index) override;
    TraceVhdlFunc getTraceVhdlFunc() override { return traceVhdl; }
    TraceVhdlScalarFunc getTraceVhdlFuncScalar() override { return traceVhdlScalar; }
    TraceVlogFunc getTraceVlogFunc() override { return traceVlog; }
    TraceScObjectFunc getTraceScObjectFunc() override { return traceScObject; }
    TraceScVirtualObjectFunc getTraceScVirtualObjectFunc() override { return traceScVirtualObject; }

    /// Always 0: the viewer's recording has no string map of ours.
    long long addString(const std::string&) override { return 0; }
    void close() override {}
    void restart() override {}
    void setMaxTraceableSize(unsigned int) override {}
    void markCurrentTime(long long) override {}
    void setBaseDPOffset(long long offset) override { m_baseOffset = offset; }
    void setApplication(const std::string&) override {}
    void setAddressSize(long long) override {}
    void setBucketDivision(unsigned int) override {}
    void setFilterRepeatedValue(bool) override {}

private:
    static void traceVhdl(long long, unsigned int, unsigned int, unsigned char*, unsigned char*) {}
    static void traceVhdlScalar(long long, unsigned int, unsigned int, const unsigned char*);
    static void traceVlog(long long, unsigned int, unsigned int, unsigned char*, unsigned char*,
                          unsigned int, unsigned int) {}
    static void traceScObject(long long, unsigned long long, unsigned char*, unsigned char*,
                              unsigned int, unsigned int) {}
    static void traceScVirtualObject(long long, unsigned long long, unsigned char*, unsigned int,
                                     unsigned int) {}

    // The writer that the trace functions stream through: the one constructed last.
    static WdbLiveWriter* s_pLiveWriter;

    long long m_baseOffset = 0;
};

}  // namespace Korvel
