#pragma once

#include <string>
#include <vector>

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include "korvel/WdbByteValue.h"

namespace Korvel {

class WdbAddressBTreeManager;
class WdbScalarBTree;
struct WdbLiveEvent;

/// Takes events one by one.
class IEventSink {
public:
    virtual ~IEventSink() = default;

    /// Adds an event to the drawing indexes at once. False, and nothing is done, while there are no
    /// indexes, or where none of them is concerned.
    virtual bool addEventDirect(const WdbLiveEvent* event) = 0;
};

/// What a waveform viewer asks of a recording, finished or still growing.
///
/// Create one with WdbEventReaderFactory, open it with createReader(), get the indexes of the
/// scalars to be shown from getBTreeManager(), then query. Times are signed 64-bit counts of the
/// simulator's base unit; 0 doubles as "no time at all", and an end time of -1 is no bound.
///
/// The queries are const and may be called by any thread that holds getReadWriteMutex() while the
/// indexes may grow; the other operations by one thread at a time. The virtual operations keep
/// their order for ever.
class WdbIEventReader : public IEventSink {
public:
    /// Guards the drawing indexes.
    virtual boost::recursive_mutex& getReadWriteMutex() const = 0;

    /// Whether the recording is of the version that this library writes.
    virtual bool isWDBVersionMatched() const = 0;

    /// The compiler's run-time type information and the design description that the recording
    /// holds; null when it has none. The caller releases the buffer with free.
    /// @param size  Receives the number of bytes; may be null.
    virtual unsigned char* getRtti(long long* size) const = 0;
    virtual unsigned char* getDbg(long long* size) const = 0;

    /// Settings that the viewer's front end left in the recording; empty when there are none.
    virtual std::string getProtoSettings() const = 0;

    /// The first @p size bytes of the design description, the rest zero where it is shorter; null
    /// when there is none. The caller releases the buffer with delete[].
    virtual unsigned char* getDbgHeader(long long size) const = 0;

    /// Number of addresses that a running simulation may trace. Comes before createReader().
    virtual void setMemFileSize(unsigned long size) = 0;

    /// The time that the recording has reached; 0 when nothing is open.
    virtual long long getLatestTime() const = 0;

    /// Opens what there is to read, in place of what was open. Trees handed out before are gone.
    ///
    /// @param source   Design path of a running simulation; not used for a finished recording.
    /// @param wdbPath  The recording: read, or, for a running simulation, created.
    /// @param index    Number of a running simulation; not used for a finished recording.
    /// @param tmpDir   Directory for the temporary file of the drawing indexes; the system's own
    ///                 when it is empty or does not exist.
    /// Throws Veld::OpenException.
    virtual void createReader(const std::string& source, const std::string& wdbPath, int index,
                              const std::string& tmpDir) = 0;

    /// The text that the recording keeps under an id; empty for an unknown one. The texts asked for
    /// last are kept, without a lock: one thread at a time.
    virtual std::string getStringMapValue(long long id) const = 0;

    /// Appends to @p out the changes of @p trees in the closed range [@p start, @p end].
    ///
    /// @param resolution  Base units a pixel. Changes closer together become dense entries; 0 keeps
    ///                    every change.
    /// @param trees       One a scalar, not owned. An empty tree stays at type 0.
    /// @param[in,out] out Snapshots in time order, never cleared. Each holds trees.size() entries.
    ///
    /// The first snapshot carries the values in effect at @p start, and may lie before it: its time
    /// is the latest of its entries' times. A time at which no entry really becomes different gives
    /// no snapshot.
    virtual void getValueEvents(long long start, long long end, long long resolution,
                                const std::vector<WdbScalarBTree*>& trees,
                                std::vector<WdbTimeByteValues>& out) const = 0;

    /// Time of the next change after @p time.
    ///
    /// The first tree that is not empty decides first: where it has no change after @p time, the
    /// time of its last change is the answer, whatever the others have. Callers that want the next
    /// change of any tree ask for one tree at a time. 0 when all trees are empty.
    virtual long long getNextEvent(long long time,
                                   const std::vector<WdbScalarBTree*>& trees) const = 0;

    /// Time of the last change before @p time, or, where that is below 1, at it. A tree whose
    /// changes all lie later counts with its first one. 0 when all trees are empty.
    virtual long long getPreviousEvent(long long time,
                                       const std::vector<WdbScalarBTree*>& trees) const = 0;

    /// Replaces @p out by the values at @p time and the time of the latest change that led to them.
    /// A tree whose first change lies later stays at type 0.
    virtual void getValueEvent(long long time, const std::vector<WdbScalarBTree*>& trees,
                               WdbTimeByteValues& out) const = 0;

    /// The mutex that markTime() takes a lock of. The same for as long as the reader lives.
    virtual boost::mutex& getTimeMarkMutex() = 0;

    /// Waits until the running simulation has marked a time since @p lock was taken; marks that
    /// come close together may count as one, the latest. Returns also when no more comes: the
    /// simulation has ended or died, or begins anew, or is followed no longer. Returns at once for
    /// a finished recording.
    virtual void markTime(boost::unique_lock<boost::mutex>& lock) = 0;

    /// Whether events arrived since the last call.
    virtual bool hasMoreData() = 0;

    /// Tells the running simulation's transport to begin again.
    virtual void restart() = 0;

    virtual WdbAddressBTreeManager& getBTreeManager() = 0;

    /// Embed a file in the recording of a running simulation; to be done again after
    /// relaunchAfterRestart(). Throw Veld::OpenException for a file that cannot be read, and
    /// where no recording is open.
    virtual void saveRtti(const std::string& path) = 0;
    virtual void saveDbg(const std::string& path) = 0;

    /// Keeps settings of the viewer's front end, not in the recording.
    virtual void setProtoSettingsString(const std::string& settings) = 0;

    /// Adds an object to the set of those that are traced.
    virtual void setObjectTraced(unsigned int id, unsigned long long, unsigned int) = 0;

    /// Whether an object's changes are recorded. True for any where the recording does not say.
    virtual bool isObjectTraced(unsigned int id) const = 0;

    /// As addEventDirect(), to be applied by flushEvents().
    virtual bool addEventBuffered(const WdbLiveEvent* event) = 0;
    virtual void flushEvents() = 0;

    /// Begins anew after the simulation was started again.
    virtual void relaunchAfterRestart() = 0;
};

}  // namespace Korvel
