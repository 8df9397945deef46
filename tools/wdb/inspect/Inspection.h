#pragma once

#include "inspect/BlockUnpacker.h"
#include "inspect/ClaimedBytes.h"
#include "inspect/Finding.h"
#include "inspect/RecordingBytes.h"

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Korvel {

/// One pass over a recording: its bytes, which of them were seen to belong to something, and what
/// was found. Every structure is visited once; whoever reads it claims its bytes first.
class Inspection {
public:
    Inspection(const RecordingBytes& bytes, FindingSink& findings)
        : m_bytes(bytes), m_findings(findings) {}
    Inspection(const Inspection&) = delete;
    Inspection& operator=(const Inspection&) = delete;

    const RecordingBytes& bytes() const { return m_bytes; }
    const ClaimedBytes& claimed() const { return m_claimed; }

    /// Takes the bytes for one structure. False, with a finding, when the file does not hold them
    /// or they belong to another one.
    bool claim(const Place& place, std::int64_t offset, std::uint64_t size) {
        if (!m_bytes.holds(offset, size)) {
            error(place, "{} bytes at {} lie outside the file of {} bytes", size, offset,
                  m_bytes.size());
            return false;
        }
        if (m_claimed.claim(static_cast<std::uint64_t>(offset), size)) return true;
        error(place, "some of the {} bytes at {} belong to another structure", size, offset);
        return false;
    }

    /// Reads claimed bytes. False, with a finding, when they are no longer there.
    bool read(const Place& place, std::int64_t offset, void* to, std::size_t size) {
        if (m_bytes.read(offset, to, size)) return true;
        error(place, "{} bytes at {} are gone: the file has become shorter", size, offset);
        return false;
    }

    /// Claims and reads.
    template <typename Record>
    bool takeRecord(const Place& place, std::int64_t offset, Record& record) {
        return claim(place, offset, sizeof(record)) && read(place, offset, &record, sizeof(record));
    }

    /// Reads and unpacks a claimed block into an image that has its size already.
    bool unpack(const Place& place, std::int64_t offset, std::uint32_t storedSize,
                std::vector<std::uint8_t>& image) {
        if (storedSize > BlockUnpacker::mostStored(image.size())) {
            error(place, "{} stored bytes are more than a block of {} can take", storedSize,
                  image.size());
            return false;
        }
        std::vector<std::uint8_t>& stored = m_unpacker.stored();
        stored.resize(storedSize);
        if (!read(place, offset, stored.data(), storedSize)) return false;
        const std::string fault = m_unpacker.unpack(image);
        if (!fault.empty()) error(place, "{}", fault);
        return fault.empty();
    }

    template <typename... Args>
    void error(const Place& place, fmt::format_string<Args...> text, Args&&... args) {
        m_findings.add({Severity::Error, place, fmt::format(text, std::forward<Args>(args)...)});
    }
    template <typename... Args>
    void warning(const Place& place, fmt::format_string<Args...> text, Args&&... args) {
        m_findings.add({Severity::Warning, place, fmt::format(text, std::forward<Args>(args)...)});
    }
    template <typename... Args>
    void information(const Place& place, fmt::format_string<Args...> text, Args&&... args) {
        m_findings.add(
            {Severity::Information, place, fmt::format(text, std::forward<Args>(args)...)});
    }

private:
    const RecordingBytes& m_bytes;
    FindingSink& m_findings;
    ClaimedBytes m_claimed;
    BlockUnpacker m_unpacker;
};

}  // namespace Korvel
