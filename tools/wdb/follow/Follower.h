#pragma once

#include "ask/ChangePrinter.h"

#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace Korvel {

struct FollowOptions {
    QueryOptions query;       ///< without a file
    bool isPrinting = false;  ///< changes, on standard output, as "wdb changes" does
    std::string picture;      ///< file that a picture is kept in; empty = none
    double secondsAPicture = 1;
    long long until = std::numeric_limits<long long>::max();
};

/// Why a simulation is not followed any more.
enum class FollowEnd { SimulationEnded, SimulationBeganAgain, TimeReached, Interrupted };

/// Shows what a running simulation does, as far as it has marked its time.
class Follower {
public:
    /// @param objects  Those to be shown, may be none. Must outlive it, as must the others.
    Follower(const FollowOptions& options, const ViewedRecording& recording,
             const std::vector<ViewedObject>& objects);

    /// Returns when the simulation ends or has marked the last time asked for, or when an Interrupt
    /// that the caller keeps is requested; all up to then is shown, unless another is requested.
    /// Nothing more is recorded afterwards.
    FollowEnd run();

    /// The time that was reached.
    long long reachedTime() const { return m_reachedTime; }
    /// Changes printed.
    std::uint64_t printedCount() const { return m_printer.count(); }

private:
    FollowEnd runUntilEnd();
    void print(long long time);
    bool addPiece(long long time);
    void draw(long long time);

    const FollowOptions& m_options;
    const ViewedRecording& m_recording;
    const std::vector<ViewedObject>& m_objects;
    std::vector<WdbScalarBTree*> m_trees;
    ChangePrinter m_printer;
    long long m_reachedTime = 0;
    long long m_printedTime = 0;  // changes at this time may have been printed, or not yet
    long long m_drawnTime = -1;   // of the picture; -1 while there is none
};

}  // namespace Korvel
