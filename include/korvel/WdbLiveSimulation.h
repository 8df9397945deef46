#pragma once

#include <memory>
#include <string>

namespace Korvel {

class WdbIEventReader;

/// A simulation that streams its changes, or will, as a viewer sees it from outside.
///
/// While an object of this class exists, the viewer counts as waiting: a simulation that ends
/// before the viewer attached gives it a moment to do so, so that the shortest run is not missed.
/// One thread at a time, but for the static operations, which any thread may call.
class __attribute__((visibility("default"))) WdbLiveSimulation {
public:
    enum class State {
        NotThere,  ///< no simulation has begun to stream yet
        Ended,     ///< one was killed; what it left unread can still be read
        Free,      ///< one is running, and createReader() of a live reader attaches to it
        Followed,  ///< one is running, and has its viewer: there can be one only
        Denied     ///< one is there, which this user may not attach to
    };

    /// @param designPath  As the simulation gives it to its writer, and a viewer to createReader().
    explicit WdbLiveSimulation(const std::string& designPath);
    ~WdbLiveSimulation();
    WdbLiveSimulation(const WdbLiveSimulation&) = delete;
    WdbLiveSimulation& operator=(const WdbLiveSimulation&) = delete;

    /// The directory of the snapshot, by which simulation and viewer meet, and in which the
    /// simulation leaves its design description as "torq.dbg". Need not exist yet.
    const std::string& getDirectory() const;

    State getState();

    /// Whether changes may still come to @p reader. False once the simulation has ended or died and
    /// everything that it sent is recorded, soon after stop() when what was taken in is recorded,
    /// and for a reader that is not attached to one.
    static bool isStreaming(const WdbIEventReader& reader);

    /// Has @p reader, a live one that is to be opened or relaunched, stop streaming where the
    /// simulation comes back, in the same process, to a time before its latest mark: it has begun
    /// again. Otherwise the reader records what comes, whatever its time.
    static void stopAtNewRun(WdbIEventReader& reader);

    /// Whether @p reader has stopped for that. relaunchAfterRestart() records the new run from its
    /// beginning.
    static bool hasBegunAgain(const WdbIEventReader& reader);

    /// Records no more of what the simulation sends, and ends markTime() in other threads. What was
    /// recorded can still be asked for.
    static void stop(WdbIEventReader& reader);

private:
    class __attribute__((visibility("hidden"))) Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace Korvel
