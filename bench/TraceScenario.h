#pragma once

#include <vector>

#include "events/WdbEventBlock.h"
#include "korvel/IWdbWriter.h"

namespace Korvel {

/// The value changes of a made-up simulation, ready to be traced, and what they come to once
/// packed.
///
/// Objects of one width lie side by side in an address space. Which of them changes is scattered
/// evenly over all, because a clock tree touches every bucket in turn: the worst case for one open
/// block a bucket. Time advances every few changes and no object changes twice at one time, so that
/// nothing is filtered and the packed events are known in advance.
class TraceScenario {
public:
    enum class Kind { Vhdl, Vlog };

    /// @param width      Bytes of a VHDL value or bits of a Verilog value.
    /// @param addresses  Size of the address space, rounded up to one object.
    TraceScenario(Kind kind, unsigned int width, long long addresses);

    /// One simulation: every change through the writer's trace function, a time mark whenever time
    /// advances.
    void trace(IWdbWriter& writer);

    /// What the packing alone costs: every change copied into the image of its bucket, which starts
    /// over when it is full.
    void copyOnly();

    /// The images that a recording compresses: all full blocks in the order in which they fill up,
    /// then the unfinished ones.
    const std::vector<std::vector<char>>& images() const { return m_images; }

    long long addressSize() const { return m_addressSize; }
    std::size_t changeCount() const { return m_changes.size(); }

    /// Whether a recording holds every change as it was traced.
    bool isRecordedIn(const char* path, int databaseType) const;

private:
    struct Change {
        long long time;
        long long address;
        std::size_t value;  // index into m_values
    };

    unsigned int eventBytes() const;
    void makeChanges();
    void fillValue(unsigned char* value, unsigned char* previous, unsigned long long random) const;
    void packImages();

    Kind m_kind;
    unsigned int m_width;
    unsigned int m_valueSize;  // bytes of a value as it is recorded
    long long m_addressSize;
    std::vector<unsigned char> m_storage;  // the simulator's data space
    std::vector<unsigned char> m_values;
    std::vector<Change> m_changes;
    std::vector<std::vector<char>> m_images;
    std::vector<WdbEventBlock> m_buckets;  // for copyOnly
};

}  // namespace Korvel
