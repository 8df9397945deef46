#pragma once

#include "ask/ObjectChanges.h"
#include "ask/QueryOptions.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include <fmt/format.h>

namespace Korvel {

/// Spells changes, a line or a JSON document each, and prints them in larger pieces.
class ChangePrinter {
public:
    /// @param objects  Must outlive it, as must the others.
    ChangePrinter(const ViewedRecording& recording, const QueryOptions& options,
                  const std::vector<ViewedObject>& objects);

    /// Adds what changed at the current time of @p changes, until @p limit lines are there in all.
    void add(const ObjectChanges& changes, std::uint64_t limit = UINT64_MAX);

    /// Lines so far, printed or not.
    std::uint64_t count() const { return m_count; }

    /// Whether what waits to be printed is worth a system call.
    bool isFull() const { return m_text.size() >= PieceBytes; }
    /// Throws ToolError, or ToolExit, where it cannot be written.
    void print();

private:
    static constexpr std::size_t PieceBytes = 1 << 18;

    void addLine(long long time, std::size_t object, ViewedValue value);

    const ViewedRecording& m_recording;
    const std::vector<ViewedObject>& m_objects;
    ValueFormat m_format;
    bool m_isJson;
    std::size_t m_column;
    std::vector<ViewedValue> m_shown;  // by object
    std::uint64_t m_count = 0;
    fmt::memory_buffer m_text;
};

}  // namespace Korvel
