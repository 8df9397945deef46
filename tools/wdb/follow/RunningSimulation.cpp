#include "follow/RunningSimulation.h"

#include "Interrupt.h"
#include "ToolError.h"
#include "korvel/WdbEventReaderFactory.h"
#include "veld/OpenException.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>
#include <vector>

namespace Korvel {

namespace {

constexpr std::chrono::milliseconds WaitingInterval{20};

// Changes at addresses behind this size are recorded as well, only less well divided.
constexpr unsigned long UndescribedAddresses = 1UL << 20;

// A table of all buckets is part of every recording; only a damaged description has so many.
constexpr std::int64_t MostAddresses = std::int64_t{1} << 36;

// A path within the directory, which must not end in a slash more than this one.
std::string designPathIn(const std::string& directory) {
    std::error_code ignored;
    if (directory.empty() || (std::filesystem::exists(directory, ignored) &&
                              !std::filesystem::is_directory(directory, ignored))) {
        throw ToolError("'" + directory + "'", "is no directory of a snapshot");
    }
    return (std::filesystem::absolute(directory) / "").lexically_normal().string();
}

}  // namespace

RunningSimulation::RunningSimulation(const std::string& directory)
    : m_designPath(designPathIn(directory)),
      m_simulation(m_designPath),
      m_directory(m_simulation.getDirectory()) {}

std::string RunningSimulation::descriptionFile() const {
    return (m_directory / "torq.dbg").string();
}

std::string RunningSimulation::rttiFile() const {
    return (m_directory / "torq.rtti").string();
}

void RunningSimulation::waitForIt() {
    using State = WdbLiveSimulation::State;
    State state = m_simulation.getState();
    if (state == State::Ended) {
        fmt::print(stderr, "wdb: a simulation in {} was killed; waiting for the next one\n",
                   m_directory.string());
    }
    if (state == State::NotThere)
        fmt::print(stderr, "wdb: waiting for a simulation in {}\n", m_directory.string());
    while (state != State::Free) {
        if (state == State::Followed) {
            throw ToolError(m_directory.string(),
                            "the simulation has its viewer already; there can be one only");
        }
        if (state == State::Denied) {
            throw ToolError(m_directory.string(), "the simulation is another user's");
        }
        if (Interrupt::isRequested()) throw ToolExit{ExitInterrupted};
        std::this_thread::sleep_for(WaitingInterval);
        state = m_simulation.getState();
    }
}

bool RunningSimulation::readDescription() {
    m_description.reset();
    m_fault = "there is no description of the design";
    std::ifstream file(descriptionFile(), std::ios::binary);
    std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!bytes.empty()) m_description = DesignDescription::fromBytes(std::move(bytes), &m_fault);
    return m_description.has_value();
}

void RunningSimulation::sayUndescribed() const {
    Korvel::sayUndescribed(descriptionFile(), m_fault);
}

ParsedTime RunningSimulation::parseTime(const std::string& text) const {
    std::optional<TimeUnit> unit;
    if (m_description) unit = m_description->timeUnit();
    return parseTimeArgument(descriptionFile(), text, unit);
}

unsigned long RunningSimulation::addressSize() const {
    if (!m_description || m_description->objectCount() == 0) return UndescribedAddresses;
    std::int64_t end = 1;
    for (ObjectId id = 0; id < m_description->objectCount(); ++id) {
        const ObjectView object = m_description->object(id);
        end = std::max(end, object.address + object.size);
    }
    if (end > MostAddresses) {
        throw ToolError(descriptionFile(), fmt::format("has values up to address {}, more than {}",
                                                       end, MostAddresses));
    }
    return static_cast<unsigned long>(end);
}

ViewedRecording RunningSimulation::record(const std::string& file) {
    const auto exists = [](const std::filesystem::path& path) {
        std::error_code ignored;
        return std::filesystem::is_regular_file(path, ignored);
    };
    std::unique_ptr<WdbIEventReader> reader(
        WdbEventReaderFactory::getInstance().create(WdbEventReaderFactory::LIVE_READER));
    reader->setMemFileSize(addressSize());
    WdbLiveSimulation::stopAtNewRun(*reader);
    try {
        reader->createReader(m_designPath, file, 0, "");
        if (exists(descriptionFile())) reader->saveDbg(descriptionFile());
        if (exists(rttiFile())) reader->saveRtti(rttiFile());
    } catch (const Veld::OpenException& failure) {
        throw ToolError(file, failure.what());
    }
    return {file, std::move(reader), std::move(m_description)};
}

}  // namespace Korvel
