#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryDirectory.h"
#include "writers/WdbStandAloneWriter.h"

namespace Korvel {

// A recording made by the stand-alone writer, in a directory of its own.
class RecordingFile {
public:
    // @param description  What the compiler would have left as "torq.dbg"; nothing when empty.
    explicit RecordingFile(long long addresses, const std::vector<std::uint8_t>& description = {}) {
        const std::string kernelDirectory = m_directory.file("torq.dir/snap");
        if (!description.empty()) {
            std::filesystem::create_directories(kernelDirectory);
            writeFile(kernelDirectory + "/torq.dbg",
                      std::string(description.begin(), description.end()));
        }
        m_writer.setAddressSize(addresses);
        m_writer.setCheckpointing(false);
        m_writer.open(IWdbWriter::DefaultMode, kernelDirectory + "/kernel", path, 0);
    }

    void write(long long time, long long address, const std::string& values) {
        std::string bytes = values;
        m_writer.getTraceScVirtualObjectFunc()(time, static_cast<unsigned long long>(address),
                                               reinterpret_cast<unsigned char*>(bytes.data()), 0,
                                               static_cast<unsigned int>(bytes.size()));
    }
    WdbStandAloneWriter& writer() { return m_writer; }

    // The file as a kill at this moment would leave it, or after close() for good.
    std::string bytes() const { return readFile(path); }
    void close() { m_writer.close(); }

private:
    TemporaryDirectory m_directory;

public:
    const std::string path = m_directory.file("run.wdb");

private:
    WdbStandAloneWriter m_writer;
};

}  // namespace Korvel
