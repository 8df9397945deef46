#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include "korvel/WdbScalarBTree.h"

namespace Korvel {

class BTreeEventDispatcher;
class WdbIEventBlockDatabase;
struct WdbLiveEvent;

/// Names a scalar: a byte, or a bit of the Verilog word pair that begins at an address. Bits from
/// 32 on lie in the pairs that follow.
struct WdbScalar {
    long long address = 0;
    int bit = WdbScalarBTree::WholeByte;
};

/// Owns the drawing indexes of a reader: makes them on first request by scanning the recording, and
/// keeps them up to date while it grows.
///
/// Threads: any may call. The mutex guards the trees that were handed out. What asks for trees or
/// values waits for others that do, so it must not be called with the mutex held, nor from within
/// the progress of a scan: getBTrees, getValues, getNextChange, reset and what sets them up. A scan
/// runs on a pool of threads, one a hardware thread, and does not hold the mutex, so that drawing
/// goes on while further indexes are made.
class __attribute__((visibility("default"))) WdbAddressBTreeManager {
public:
    /// Told how far a scan is, from 0 to 1, by the thread that asked; false cancels the scan.
    using Progress = std::function<bool(double fraction)>;

    WdbAddressBTreeManager();
    ~WdbAddressBTreeManager();
    WdbAddressBTreeManager(const WdbAddressBTreeManager&) = delete;
    WdbAddressBTreeManager& operator=(const WdbAddressBTreeManager&) = delete;

    boost::recursive_mutex& getMutex() const;

    /// The indexes of @p scalars, in their order; a scalar that was asked for before gets the same
    /// tree again. The trees live until reset() or the manager's end.
    ///
    /// Those that do not exist yet are filled by one scan of the blocks that may hold them. Empty
    /// when the scan was cancelled; nothing is kept of it then. Without an event database all new
    /// trees are empty. Where the environment has WAVEDATA_RESCAN, an empty tree is filled again.
    /// Throws Veld::OpenException when the temporary file cannot take the indexes, and
    /// std::out_of_range for a bit below 0 or an address beyond 2^61.
    std::vector<WdbScalarBTree*> getBTrees(const std::vector<WdbScalar>& scalars,
                                           const Progress& progress = {});

    /// The values at @p time, found in the event blocks around it, without indexes. Takes long
    /// where one has not changed for most of a large recording. Throws std::out_of_range as
    /// getBTrees().
    /// @param[out] values  One a scalar: type 1, or 0 for one that has not changed up to then.
    void getValues(long long time, const std::vector<WdbScalar>& scalars,
                   std::vector<WdbByteValue>& values);

    /// Time of the first change of any of @p scalars after @p time, found in the event blocks from
    /// there on, without indexes; -1 when there is none.
    long long getNextChange(long long time, const std::vector<WdbScalar>& scalars);

    /// Whether an answer so far may lack changes, or show values that are too old, because a part
    /// of the recording could not be read.
    bool hasMetDamage() const;

    bool hasAtLeastOneBtree() const;

    /// Gives an event to the trees that it concerns, at once or with flushEvents(), which comes
    /// when all events up to the newest one's time were added. False while no tree is concerned.
    /// The buffered way does not wait for the mutex, unless tens of megabytes are in the buffer.
    bool addEventDirect(const WdbLiveEvent* event);
    bool addEventBuffered(const WdbLiveEvent* event);
    void flushEvents();

    /// The recording is complete up to @p time: listeners are told of the changes up to and with
    /// it.
    void markTime(long long time);

    /// Whom to register with for changes as they are recorded. Lives as long as the manager.
    BTreeEventDispatcher& getEventDispatcher();

    /// Creates the file that holds the indexes from now on; without one they stay in memory.
    /// Throws Veld::OpenException.
    void createDrawingBTreeFile(const std::string& path);

    /// Forgets all trees: the recording begins anew. The trees handed out are gone. Waits for calls
    /// of listeners in progress, so the caller must not hold the mutex.
    void reset();

    /// What is scanned; not owned, may be null.
    /// @param writeLock  Held during a scan. Whoever records meanwhile holds it while an event is
    ///                   added here and written to the database, so that new trees see it once.
    ///                   Null for a database that does not change.
    void setEventDatabase(WdbIEventBlockDatabase* database, boost::mutex* writeLock = nullptr);

    /// Bytes that the pages of all indexes take.
    unsigned long long getIndexSize() const;

private:
    class __attribute__((visibility("hidden"))) Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace Korvel
