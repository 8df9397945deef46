#include "import/Recorder.h"

#include "Interrupt.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace Korvel {

namespace {

constexpr std::uint32_t VlogX = 0xFFFFFFFFU;  // in both planes

bool parseReal(std::string_view text, double& number) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    const char* end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    if (last != end || text.empty()) return false;
    if (error == std::errc::result_out_of_range) {
        number = std::strtod(std::string(text).c_str(), nullptr);
        return true;
    }
    return error == std::errc{};
}

}  // namespace

Recorder::Recorder(IWdbWriter& writer, const RecordingLayout& layout, VcdProgress progress)
    : m_writer(writer), m_layout(layout), m_progress(std::move(progress)), m_texts(writer) {
    initializeDataSpace();
    m_writer.setAddressSize(m_layout.size);
    m_writer.setBaseDPOffset(reinterpret_cast<long long>(m_dataSpace.data()));
}

// As a design is before it has run: X, or U for VHDL, which is position 0.
void Recorder::initializeDataSpace() {
    m_dataSpace.resize(static_cast<std::size_t>(m_layout.size));
    std::uint32_t widest = 0;
    std::uint32_t mostElements = 0;
    for (const RecordedSignal& signal : m_layout.signals) {
        if (signal.representation == ValueRepresentation::VhdlEnumeration) {
            mostElements = std::max(mostElements, signal.width);
        }
        if (signal.representation != ValueRepresentation::VerilogFourState) continue;
        widest = std::max(widest, signal.width);
        for (std::uint32_t done = 0; done < signal.width; done += BitsPerPair) {
            const std::uint32_t unused = BitsPerPair - std::min(signal.width - done, BitsPerPair);
            const VlogWordPair pair{VlogX >> unused, VlogX >> unused};
            std::memcpy(m_dataSpace.data() + signal.address + done / BitsPerPair * sizeof pair,
                        &pair, sizeof pair);
        }
    }
    m_pairs.resize(pairsOfBits(widest));
    m_elements.resize(mostElements);
}

void Recorder::begin() {
    m_traceVlog = m_writer.getTraceVlogFunc();
    m_traceVhdl = m_writer.getTraceVhdlFunc();
}

bool Recorder::onTime(long long time) {
    if (time > m_time) m_writer.markCurrentTime(m_time);
    m_time = time;
    return !Interrupt::isRequested();
}

// ---- Once per value change
// -----------------------------------------------------------------------

void Recorder::onScalar(std::uint32_t index, char digit) {
    constexpr std::size_t Front = 7;  // digits are loaded eight at a time
    const RecordedSignal& signal = m_layout.signals[index];
    char digits[Front + 1 + 8] = {};
    digits[Front] = digit;
    recordDigits(signal, digits + Front, 1);
}

void Recorder::onVector(std::uint32_t index, std::string_view digits, std::uint8_t) {
    recordDigits(m_layout.signals[index], digits.data(), digits.size());
}

void Recorder::recordDigits(const RecordedSignal& signal, const char* digits, std::size_t count) {
    unsigned char* storage = m_dataSpace.data() + signal.address;
    const std::string_view text(digits, count);
    if (count > signal.width) ++m_losses.tooLong;
    if (count == 0) {
        ++m_losses.misfits;
        return;
    }
    switch (signal.representation) {
        case ValueRepresentation::VerilogFourState: {
            auto* bits = reinterpret_cast<unsigned char*>(m_pairs.data());
            packVlogValue(text, signal.width, m_pairs.data());
            m_traceVlog(m_time, 0, 0, storage, bits, 0, signal.width);
            std::memcpy(storage, bits, sizeof(VlogWordPair) * pairsOfBits(signal.width));
            ++m_changes;
            break;
        }
        case ValueRepresentation::VhdlEnumeration:
            packVhdlValue(text, signal.width, m_elements.data());
            recordBytes(signal, m_elements.data(), signal.width);
            break;
        case ValueRepresentation::Event:
            // Checkpoints say x for an event that has not happened.
            if (digits[count - 1] == '1') {
                const auto triggers = static_cast<unsigned char>(*storage + 1);
                recordBytes(signal, &triggers, sizeof triggers);
            }
            break;
        default:
            ++m_losses.misfits;
    }
}

void Recorder::recordBytes(const RecordedSignal& signal, const void* bytes, std::size_t size) {
    unsigned char* storage = m_dataSpace.data() + signal.address;
    auto* value = static_cast<unsigned char*>(const_cast<void*>(bytes));
    m_traceVhdl(m_time, 0, static_cast<unsigned int>(size), storage, value);
    std::memcpy(storage, value, size);
    ++m_changes;
}

void Recorder::onReal(std::uint32_t index, std::string_view text) {
    const RecordedSignal& signal = m_layout.signals[index];
    double number = 0;
    if (signal.representation != ValueRepresentation::Real) {
        ++m_losses.misfits;
    } else if (!parseReal(text, number)) {
        ++m_losses.badNumbers;
    } else {
        recordBytes(signal, &number, sizeof number);
    }
}

void Recorder::onText(std::uint32_t index, std::string_view text) {
    const RecordedSignal& signal = m_layout.signals[index];
    std::uint64_t value = 0;
    if (signal.representation != ValueRepresentation::String) {
        ++m_losses.misfits;
    } else if (!m_texts.store(text, value)) {
        ++m_losses.lostTexts;
    } else {
        recordBytes(signal, &value, sizeof value);
    }
}

}  // namespace Korvel
