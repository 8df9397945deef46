#include "korvel/WdbLiveSimulation.h"

#include "readers/WdbLiveReader.h"
#include "support/OutputFileNames.h"
#include "transport/WdbSharedMemory.h"
#include "transport/WdbWaitingViewer.h"

namespace Korvel {

class WdbLiveSimulation::Impl {
public:
    explicit Impl(const std::string& designPath)
        : directory(TORQ::OutputFileNames::getKernelDirectory(designPath)) {}

    // Once more each time: the directory may be made, or made anew, meanwhile.
    void beSeen() { waiting = std::make_unique<WdbWaitingViewer>(directory); }

    const std::string directory;
    std::unique_ptr<WdbWaitingViewer> waiting;
};

WdbLiveSimulation::WdbLiveSimulation(const std::string& designPath)
    : m_impl(std::make_unique<Impl>(designPath)) {
    m_impl->beSeen();
}

WdbLiveSimulation::~WdbLiveSimulation() = default;

const std::string& WdbLiveSimulation::getDirectory() const {
    return m_impl->directory;
}

WdbLiveSimulation::State WdbLiveSimulation::getState() {
    m_impl->beSeen();
    const WdbSharedMemory::Presence presence = WdbSharedMemory::look(m_impl->directory);
    if (presence.isDenied) return State::Denied;
    if (!presence.isThere) return State::NotThere;
    if (!presence.hasSimulator) return State::Ended;
    return presence.hasViewer ? State::Followed : State::Free;
}

bool WdbLiveSimulation::isStreaming(const WdbIEventReader& reader) {
    const auto* live = dynamic_cast<const WdbLiveReader*>(&reader);
    return live != nullptr && live->isStreaming();
}

void WdbLiveSimulation::stopAtNewRun(WdbIEventReader& reader) {
    if (auto* live = dynamic_cast<WdbLiveReader*>(&reader)) live->stopAtNewRun();
}

bool WdbLiveSimulation::hasBegunAgain(const WdbIEventReader& reader) {
    const auto* live = dynamic_cast<const WdbLiveReader*>(&reader);
    return live != nullptr && live->hasBegunAgain();
}

void WdbLiveSimulation::stop(WdbIEventReader& reader) {
    if (auto* live = dynamic_cast<WdbLiveReader*>(&reader)) live->stopStreaming();
}

}  // namespace Korvel
