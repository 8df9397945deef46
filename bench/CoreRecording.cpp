#include "bench/CoreRecording.h"

#include <array>
#include <filesystem>
#include <random>

#include <unistd.h>

#include "writers/WdbStandAloneWriter.h"
#ifdef KORVEL_HAS_FST
#include <fstapi.h>
#endif

namespace Korvel {
namespace {

std::string pathWith(const char* extension) {
    const std::string name = "bench-read-" + std::to_string(::getpid()) + extension;
    return (std::filesystem::temp_directory_path() / name).string();
}

}  // namespace

CoreRecording::CoreRecording(std::uint64_t changes)
    : m_steps(changes / ChangesAStep), m_wdbPath(pathWith(".wdb")) {
    m_endTime = static_cast<long long>(m_steps) * StepTime;
    writeWdb();
    writeFst();
}

CoreRecording::~CoreRecording() {
    std::filesystem::remove(m_wdbPath);
    if (!m_fstPath.empty()) std::filesystem::remove(m_fstPath);
}

void CoreRecording::visitChanges(const Visitor& visit) {
    std::mt19937 random(1);
    std::array<std::uint32_t, Objects> values{};
    std::array<std::uint64_t, Objects> changedAt{};
    for (std::uint64_t step = 1; step <= m_steps; ++step) {
        const auto time = static_cast<long long>(step) * StepTime;
        visit(time, 0, values[0] ^= 1);
        for (unsigned int i = 1; i < ChangesAStep; ++i) {
            // The product of two numbers is small more often than large.
            const std::uint32_t r = random();
            const unsigned int object = 1 + (r % 619) * (r / 619 % 619) % (Objects - 1);
            if (changedAt[object] == step) continue;
            changedAt[object] = step;
            values[object] += object % 4 == 0 ? 4 : 1 + (random() >> (object % 32));
            visit(time, object, values[object]);
        }
    }
}

void CoreRecording::writeWdb() {
    WdbStandAloneWriter writer;
    writer.setAddressSize(8LL * Objects);
    writer.open(IWdbWriter::DefaultMode, m_wdbPath, m_wdbPath, 0);
    const auto trace = writer.getTraceScVirtualObjectFunc();
    std::array<std::uint32_t, 2> pair{};
    visitChanges([&](long long time, unsigned int object, std::uint32_t value) {
        pair[0] = value;
        trace(time, static_cast<unsigned long long>(addressOf(object)),
              reinterpret_cast<unsigned char*>(pair.data()), 0, sizeof(pair));
        ++m_changes;
    });
    writer.close();
}

#ifdef KORVEL_HAS_FST
void CoreRecording::writeFst() {
    m_fstPath = pathWith(".fst");
    void* fst = fstWriterCreate(m_fstPath.c_str(), 1);
    fstWriterSetPackType(fst, FST_WR_PT_LZ4);
    std::array<fstHandle, Objects> handles{};
    for (unsigned int i = 0; i < Objects; ++i) {
        const std::string name = "object" + std::to_string(i);
        handles[i] = fstWriterCreateVar(fst, FST_VT_VCD_WIRE, FST_VD_IMPLICIT, 32, name.c_str(), 0);
    }
    long long now = -1;
    std::string bits(32, '0');
    visitChanges([&](long long time, unsigned int object, std::uint32_t value) {
        if (time != now) fstWriterEmitTimeChange(fst, static_cast<std::uint64_t>(now = time));
        for (unsigned int bit = 0; bit < 32; ++bit)
            bits[31 - bit] = (value >> bit & 1) != 0 ? '1' : '0';
        fstWriterEmitValueChange(fst, handles[object], bits.data());
    });
    fstWriterClose(fst);
}
#else
void CoreRecording::writeFst() {}
#endif

}  // namespace Korvel
