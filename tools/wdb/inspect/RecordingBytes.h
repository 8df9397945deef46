#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Korvel {

/// The bytes of a recording, read at any offset. Offsets come from the recording itself, so every
/// one is asked about before it is followed: a read outside is an answer, not an error.
class RecordingBytes {
public:
    virtual ~RecordingBytes() = default;

    /// May grow while a simulator still writes.
    virtual std::uint64_t size() const = 0;

    /// Copies the bytes from @p offset. False, with part of them copied, when not all are there.
    virtual bool read(std::int64_t offset, void* to, std::size_t size) const = 0;

    bool holds(std::int64_t offset, std::uint64_t size) const;

    template <typename Record>
    bool readRecord(std::int64_t offset, Record& record) const {
        return read(offset, &record, sizeof(record));
    }
};

/// A recording in memory, which must outlive this.
class RecordingMemoryBytes final : public RecordingBytes {
public:
    explicit RecordingMemoryBytes(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}

    std::uint64_t size() const override { return m_bytes.size(); }
    bool read(std::int64_t offset, void* to, std::size_t size) const override;

private:
    std::span<const std::uint8_t> m_bytes;
};

/// A recording in a file, which is read, not mapped: one that shrinks meanwhile just ends early.
class RecordingFileBytes final : public RecordingBytes {
public:
    /// Throws ToolError when there is no such file or it cannot be read.
    explicit RecordingFileBytes(const std::string& path);
    ~RecordingFileBytes() override;
    RecordingFileBytes(const RecordingFileBytes&) = delete;
    RecordingFileBytes& operator=(const RecordingFileBytes&) = delete;

    std::uint64_t size() const override;

    /// Throws ToolError when the device fails.
    bool read(std::int64_t offset, void* to, std::size_t size) const override;

private:
    std::string m_path;
    int m_descriptor;
};

}  // namespace Korvel
