#include "writers/WdbLiveWriter.h"

#include <cstdlib>
#include <iostream>

#include "support/WdbOpenFailure.h"

namespace Korvel {
namespace {

const char ClassFile[] = "wavedata/bridge/kernel/src/WdbLiveWriter";

}  // namespace

WdbLiveWriter* WdbLiveWriter::s_pLiveWriter = nullptr;

WdbLiveWriter::WdbLiveWriter() {
    s_pLiveWriter = this;
}

WdbLiveWriter::~WdbLiveWriter() {
    if (s_pLiveWriter == this) s_pLiveWriter = nullptr;
}

void WdbLiveWriter::open(WriterMode mode, const std::string&, const std::string&, int) {
    if (mode != LiveMode) std::exit(EXIT_FAILURE);
    throwOpenException(ClassFile, __LINE__,
                       "This build cannot stream to a viewer yet; record into a file instead.");
}

void WdbLiveWriter::traceVhdlScalar(long long, unsigned int, unsigned int, const unsigned char*) {
    std::cout << "trace vhdl scalar called" << std::endl;
}

}  // namespace Korvel
