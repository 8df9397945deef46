#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Korvel {

/// Bytes that can be read at any offset and more than once, as an import in two passes does.
class VcdSource {
public:
    virtual ~VcdSource() = default;

    /// Copies up to @p size bytes from @p offset to @p to. Fewer only at the end, 0 past it.
    virtual std::size_t read(std::uint64_t offset, char* to, std::size_t size) = 0;
    virtual std::uint64_t size() const = 0;
};

/// A dump in memory, which must outlive the source.
class VcdMemorySource final : public VcdSource {
public:
    explicit VcdMemorySource(std::string_view bytes) : m_bytes(bytes) {}

    std::size_t read(std::uint64_t offset, char* to, std::size_t size) override;
    std::uint64_t size() const override { return m_bytes.size(); }

private:
    std::string_view m_bytes;
};

/// A dump in a file. What cannot be read twice (standard input, called "-", or a pipe) is copied to
/// a temporary file without a name first.
///
/// The size is taken once: what a running simulation appends later is not seen. The file is read,
/// not mapped, so that one that shrinks meanwhile just ends early.
class VcdFileSource final : public VcdSource {
public:
    /// Throws ToolError when the file cannot be read or copied.
    explicit VcdFileSource(const std::string& path);
    ~VcdFileSource() override;
    VcdFileSource(const VcdFileSource&) = delete;
    VcdFileSource& operator=(const VcdFileSource&) = delete;

    std::size_t read(std::uint64_t offset, char* to, std::size_t size) override;
    std::uint64_t size() const override { return m_size; }

    /// What messages call the input.
    const std::string& name() const { return m_name; }

    /// Whether @p path leads to the file that is read.
    bool isSameFile(const std::string& path) const;

private:
    void spool();

    std::string m_name;
    int m_descriptor = -1;
    std::uint64_t m_size = 0;
};

/// Line, counted from 1, that the byte at @p offset is in. Reads all that comes before.
std::uint64_t lineOfOffset(VcdSource& source, std::uint64_t offset);

}  // namespace Korvel
