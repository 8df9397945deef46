#pragma once

#include "import/RecordingLayout.h"
#include "import/TextStore.h"
#include "korvel/IWdbWriter.h"
#include "vcd/VcdText.h"

#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace Korvel {

/// Asked now and then with the offset that has been reached; false stops.
using VcdProgress = std::function<bool(std::uint64_t offset)>;

/// Handler of VcdReader that records every change, as a simulator kernel would: it owns the data
/// space whose storage the writer's addresses are derived from.
class Recorder {
public:
    /// What could not be recorded as it stands in the dump.
    struct Losses {
        std::uint64_t misfits = 0;     // changes of another kind than the signal's values
        std::uint64_t tooLong = 0;     // vectors with more digits than bits, cut on the left
        std::uint64_t badNumbers = 0;  // reals that are no numbers
        std::uint64_t lostTexts = 0;   // texts that the recording did not take
    };

    Recorder(IWdbWriter& writer, const RecordingLayout& layout, VcdProgress progress);
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// To be called once the recording is open.
    void begin();
    /// Marks the last time. To be called before the recording is closed.
    void end() { m_writer.markCurrentTime(m_time); }

    bool onTime(long long time);
    void onScalar(std::uint32_t index, char digit);
    void onVector(std::uint32_t index, std::string_view digits, std::uint8_t classes);
    void onReal(std::uint32_t index, std::string_view text);
    void onText(std::uint32_t index, std::string_view text);
    void onDumping(bool) {}
    bool onProgress(std::uint64_t offset) { return m_progress(offset); }

    long long time() const { return m_time; }
    std::uint64_t changes() const { return m_changes; }
    const Losses& losses() const { return m_losses; }
    const TextStore& texts() const { return m_texts; }

private:
    void initializeDataSpace();
    void recordDigits(const RecordedSignal& signal, const char* digits, std::size_t count);
    void recordBytes(const RecordedSignal& signal, const void* bytes, std::size_t size);

    IWdbWriter& m_writer;
    const RecordingLayout& m_layout;
    VcdProgress m_progress;
    TextStore m_texts;
    IWdbWriter::TraceVlogFunc m_traceVlog = nullptr;
    IWdbWriter::TraceVhdlFunc m_traceVhdl = nullptr;
    std::vector<unsigned char> m_dataSpace;  // the value that each signal has
    std::vector<VlogWordPair> m_pairs;       // room for the widest value
    std::vector<unsigned char> m_elements;   // room for the most elements
    long long m_time = 0;
    std::uint64_t m_changes = 0;
    Losses m_losses;
};

}  // namespace Korvel
