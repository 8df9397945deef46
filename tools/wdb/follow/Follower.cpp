#include "follow/Follower.h"

#include "Interrupt.h"
#include "OutputFile.h"
#include "ProgressBar.h"
#include "ToolError.h"
#include "korvel/WdbLiveSimulation.h"
#include "plot/RecordingPicture.h"
#include "plot/SvgPicture.h"

#include <boost/thread/lock_guard.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>

namespace Korvel {

namespace {

using Clock = std::chrono::steady_clock;

// A fast simulation marks far more often than anybody can read. Without a mark, there is still an
// interrupt to be noticed.
constexpr std::chrono::milliseconds ShortestWait{5};
constexpr std::chrono::milliseconds LongestWait{40};

// Waits for the time marks of a simulation on a thread of its own, so that who has more to look
// after is woken by them and yet never waits long. Nothing is recorded once it is gone.
class MarkWaiter {
public:
    explicit MarkWaiter(WdbIEventReader& reader) : m_reader(reader), m_thread([this] { run(); }) {}
    ~MarkWaiter() {
        WdbLiveSimulation::stop(m_reader);
        m_thread.join();
    }

    // A look at the recording costs a little for each object, and keeps those waiting who record:
    // they get as much time as the looks take.
    void wait() {
        const Clock::duration busy = Clock::now() - m_wokenAt;
        std::this_thread::sleep_for(std::clamp<Clock::duration>(busy, ShortestWait, LongestWait));
        std::unique_lock<std::mutex> lock(m_mutex);
        m_marked.wait_for(lock, LongestWait, [this] { return m_isMarked; });
        m_isMarked = false;
        m_wokenAt = Clock::now();
    }

private:
    void run() {
        while (WdbLiveSimulation::isStreaming(m_reader)) {
            {
                boost::unique_lock<boost::mutex> lock(m_reader.getTimeMarkMutex());
                m_reader.markTime(lock);
            }
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_isMarked = true;
            m_marked.notify_one();
        }
    }

    WdbIEventReader& m_reader;
    Clock::time_point m_wokenAt = Clock::now();
    std::mutex m_mutex;
    std::condition_variable m_marked;
    bool m_isMarked = false;  // since the last wait; guarded by m_mutex
    std::thread m_thread;
};

std::string statusOf(const ViewedRecording& recording, long long time) {
    constexpr double Megabyte = 1e6;
    std::error_code ignored;
    const std::uintmax_t bytes = std::filesystem::file_size(recording.file(), ignored);
    return fmt::format("{}, {:.1f} MB", recording.formatTime(time),
                       static_cast<double>(bytes) / Megabyte);
}

FollowEnd reasonOfEnd(const WdbIEventReader& reader) {
    return WdbLiveSimulation::hasBegunAgain(reader) ? FollowEnd::SimulationBeganAgain
                                                    : FollowEnd::SimulationEnded;
}

}  // namespace

Follower::Follower(const FollowOptions& options, const ViewedRecording& recording,
                   const std::vector<ViewedObject>& objects)
    : m_options(options),
      m_recording(recording),
      m_objects(objects),
      m_trees(recording.makeTrees(scalarsOf(objects, recording.file()))),
      m_printer(recording, options.query, objects) {}

FollowEnd Follower::run() {
    const FollowEnd end = runUntilEnd();
    m_reachedTime = std::min(m_reachedTime, m_options.until);
    print(m_reachedTime);
    draw(m_reachedTime);
    return end;
}

FollowEnd Follower::runUntilEnd() {
    const std::chrono::duration<double> pictureInterval(m_options.secondsAPicture);
    Clock::time_point drawnAt;
    ProgressBar status(m_recording.file());
    MarkWaiter marks(m_recording.reader());
    for (bool isInterrupted = false;; marks.wait()) {
        // In this order, the time that is read last is that of all that came.
        const bool isStreaming = WdbLiveSimulation::isStreaming(m_recording.reader());
        const long long latest = m_reachedTime = m_recording.latestTime();
        if (latest >= m_options.until) return FollowEnd::TimeReached;
        if (!isStreaming)
            return isInterrupted ? FollowEnd::Interrupted : reasonOfEnd(m_recording.reader());
        print(latest);
        if (latest != m_drawnTime && Clock::now() - drawnAt >= pictureInterval) {
            draw(latest);
            drawnAt = Clock::now();
        }
        if (!m_options.isPrinting && status.isDue()) status.update(statusOf(m_recording, latest));
        if (isInterrupted || !Interrupt::acknowledge()) continue;
        isInterrupted = true;
        WdbLiveSimulation::stop(m_recording.reader());  // what it has taken in is recorded first
    }
}

void Follower::print(long long time) {
    bool isMore = m_options.isPrinting;
    while (isMore && !Interrupt::isRequested()) {
        isMore = addPiece(time);
        m_printer.print();
    }
}

// While the mutex is held nothing is recorded, and in the end the simulation would wait for whoever
// reads what we print. So no more is taken at once than can be printed, and printed without it.
bool Follower::addPiece(long long time) {
    const boost::lock_guard<boost::recursive_mutex> lock(m_recording.reader().getReadWriteMutex());
    ObjectChanges changes(m_recording, m_objects, m_trees, {m_printedTime, time}, 0);
    while (changes.next()) {
        m_printer.add(changes);
        m_printedTime = changes.time();
        if (m_printer.isFull()) return true;
    }
    m_printedTime = time;
    return false;
}

// Who looks at the picture always finds a whole one.
void Follower::draw(long long time) {
    if (m_options.picture.empty()) return;
    WavePicture picture = pictureOf(m_recording, {0, time});
    const ValueFormat format = m_options.query.format(m_recording);
    if (!drawRows(picture, m_recording, m_objects, m_trees, format)) return;
    const std::string unfinished = m_options.picture + ".new";
    OutputFile output(unfinished);
    output.put(svgDocument(picture));
    output.close();
    std::error_code error;
    std::filesystem::rename(unfinished, m_options.picture, error);
    if (error) throw ToolError(m_options.picture, "cannot replace: " + error.message());
    m_drawnTime = time;
}

}  // namespace Korvel
