#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include "drawing/WdbScalarCells.h"
#include "events/WdbIEventBlockIterator.h"

namespace Korvel {

/// Fills trees from the stored blocks of some buckets, on a pool of threads.
///
/// Any thread unpacks any bucket's blocks, a few neighbours at a time, and picks out what concerns
/// the bucket's trees. The picks of one bucket are applied in the order of its blocks, by whichever
/// thread completes the next piece: the trees end up as one thread would have made them, and all
/// cores work also where one bucket holds everything.
class WdbIndexScan {
public:
    using IteratorPtr = boost::shared_ptr<WdbIEventBlockIterator>;
    using Progress = std::function<bool(double fraction)>;

    /// @param blockSize  Bytes of a block before compression.
    explicit WdbIndexScan(unsigned int blockSize) : m_blockSize(blockSize) {}

    /// Adds a bucket. Where the cells' bytes lie in several buckets, all of these are given.
    /// @param cells  Not owned.
    void add(const std::vector<IteratorPtr>& buckets, WdbScalarCells& cells);

    /// Scans. False when progress said so; the trees are then half filled. Rethrows what went wrong
    /// in a thread.
    /// @param threads   At least 1.
    /// @param progress  Called by the calling thread only; may be empty.
    bool run(unsigned int threads, const Progress& progress);

    /// Whether something was met that cannot be read. After run().
    bool isDamaged() const { return m_isDamaged; }

private:
    using Changes = std::vector<WdbScalarCells::Change>;

    struct Lane {
        std::vector<IteratorPtr> buckets;
        WdbScalarCells* cells;
        std::size_t taken = 0;                   // pieces given to threads
        std::size_t applied = 0;                 // pieces whose changes are in the trees
        std::map<std::size_t, Changes> waiting;  // by number, for those before them
        bool isApplying = false;                 // a thread is at it
    };
    struct Piece {
        Lane* lane = nullptr;
        std::size_t number = 0;
        std::vector<WdbStoredBlock> blocks;
    };
    using Lock = boost::unique_lock<boost::mutex>;

    static constexpr std::size_t PieceBlocks = 16;
    static constexpr std::size_t MostBytesAhead = std::size_t{64} << 20;
    static constexpr std::size_t PiecesAhead = 8;  // a thread: unpacked, but not applied yet

    std::size_t mostOutstanding(std::size_t threads) const;
    void work(std::size_t mostOutstanding);
    bool takePiece(Piece& piece, std::size_t mostOutstanding);
    void unpack(const Piece& piece, Changes& changes);
    void deliver(const Piece& piece, Changes changes);
    void scanMerged(Lane& lane);
    void stop(std::exception_ptr reason);
    bool reportUntilDone(std::size_t threads, const Progress& progress);

    unsigned int m_blockSize;
    std::deque<Lane> m_lanes;  // a deque, because pieces point to them
    std::size_t m_blockCount = 0;
    std::atomic<bool> m_isDamaged{false};

    // Guards what follows, and the lanes. Not held while unpacking or applying.
    boost::mutex m_mutex;
    // There is room for more unpacked pieces, or none is wanted any more.
    boost::condition_variable m_applied;
    // All threads are at their end.
    boost::condition_variable m_done;
    std::size_t m_currentLane = 0;
    std::size_t m_outstanding = 0;  // pieces taken and not applied
    std::size_t m_blocksDone = 0;
    std::size_t m_threadsDone = 0;
    bool m_isStopped = false;
    std::exception_ptr m_failure;
};

}  // namespace Korvel
