#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Korvel {

/// A made-up recording like that of a processor core: a few hundred 32-bit objects, some of which
/// change at every step and most only now and then. Made once a process, as a wave database and,
/// where its library is there, as an FST file with the same changes.
class CoreRecording {
public:
    static constexpr unsigned int Objects = 384;
    static constexpr long long StepTime = 10;  // base units between changes
    static constexpr unsigned int ChangesAStep = 20;

    /// @param changes  Value changes in all, roughly.
    explicit CoreRecording(std::uint64_t changes);
    ~CoreRecording();
    CoreRecording(const CoreRecording&) = delete;
    CoreRecording& operator=(const CoreRecording&) = delete;

    const std::string& wdbPath() const { return m_wdbPath; }
    /// Empty where FST files cannot be made here.
    const std::string& fstPath() const { return m_fstPath; }
    std::uint64_t changes() const { return m_changes; }
    long long endTime() const { return m_endTime; }

    /// Object 0 changes at every step, the highest most seldom.
    static long long addressOf(unsigned int object) { return 8LL * object; }

private:
    using Visitor = std::function<void(long long time, unsigned int object, std::uint32_t value)>;
    void visitChanges(const Visitor& visit);
    void writeWdb();
    void writeFst();

    std::uint64_t m_steps;
    std::uint64_t m_changes = 0;
    long long m_endTime = 0;
    std::string m_wdbPath;
    std::string m_fstPath;
};

}  // namespace Korvel
