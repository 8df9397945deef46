#pragma once

#include <memory>
#include <string>
#include <vector>

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

#include "events/WdbEventBlockDatabaseFactory.h"
#include "readers/WdbCommonReader.h"
#include "readers/WdbTimeMarks.h"

namespace Korvel {

class WdbSharedMemReader;

/// Follows a simulation that is running: records what it streams into a file of its own, and
/// answers from that.
///
/// The queries and getLatestTime() take getReadWriteMutex() themselves. Whoever opens, relaunches
/// or destroys the reader must not hold it: that waits for threads which take it.
class WdbLiveReader : public WdbCommonReader {
public:
    WdbLiveReader();
    ~WdbLiveReader() override;

    void setMemFileSize(unsigned long size) override { m_memFileSize = size; }
    long long getLatestTime() const override;

    /// Where there is no simulation, the recording stays empty. Throws Veld::OpenException, also
    /// where the simulation has another viewer, and before it touches a file then; nothing is open
    /// afterwards.
    void createReader(const std::string& designPath, const std::string& fileName, int index,
                      const std::string& tmpDir) override;
    void getValueEvents(long long start, long long end, long long resolution,
                        const std::vector<WdbScalarBTree*>& trees,
                        std::vector<WdbTimeByteValues>& out) const override;
    long long getNextEvent(long long time,
                           const std::vector<WdbScalarBTree*>& trees) const override;
    long long getPreviousEvent(long long time,
                               const std::vector<WdbScalarBTree*>& trees) const override;
    void getValueEvent(long long time, const std::vector<WdbScalarBTree*>& trees,
                       WdbTimeByteValues& out) const override;
    boost::mutex& getTimeMarkMutex() override { return m_timeMarks.getMutex(); }

    /// Also returns when nothing more will come.
    void markTime(boost::unique_lock<boost::mutex>& lock) override;
    bool hasMoreData() override;
    void restart() override;

    /// Both throw Veld::OpenException where there is no such file, or nothing is open.
    void saveRtti(const std::string& path) override;
    void saveDbg(const std::string& path) override;
    void setProtoSettingsString(const std::string& settings) override { m_settings = settings; }

    /// Empties the recording and goes on with the simulation that runs now, or with what it has
    /// sent since it began again. Throws as createReader(), and where no simulation was opened;
    /// after it has failed it may be tried again.
    void relaunchAfterRestart() override;

    /// Whether more may come. Any thread may call these three.
    bool isStreaming() const { return m_timeMarks.areExpected(); }
    void stopAtNewRun();
    bool hasBegunAgain() const;

    /// Also ends what createReader() or relaunchAfterRestart() are about to begin.
    void stopStreaming();

private:
    void beginAttaching();
    void attach();
    void checkCreatable() const;
    void createRecording();
    void startStreaming();
    void saveTracedObjects();
    void closeRecording();
    void letGo();
    void setSharedMemReader(std::unique_ptr<WdbSharedMemReader> next);
    void embedFile(const char* sectionID, const std::string& path);

    unsigned long m_memFileSize = 0;  // addresses
    int m_eventDatabaseType = WdbEventBlockDatabaseFactory::MultipleBucket;
    std::string m_settings;
    std::string m_fileName;   // absolute; empty until a simulation was opened
    std::string m_directory;  // of the simulation
    int m_index = 0;
    WdbTimeMarks m_timeMarks;

    mutable boost::mutex m_attachMutex;                     // held where the next two change
    std::unique_ptr<WdbSharedMemReader> m_sharedMemReader;  // null unless open
    bool m_isStoppingAtNewRun = false;
    bool m_isStopped = false;  // by stopStreaming(), since it began to attach
};

}  // namespace Korvel
