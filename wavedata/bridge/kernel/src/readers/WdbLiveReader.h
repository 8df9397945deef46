#pragma once

#include <memory>
#include <string>
#include <vector>

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

#include "events/WdbEventBlockDatabaseFactory.h"
#include "readers/WdbCommonReader.h"

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
    boost::mutex& getTimeMarkMutex() override;

    /// Also returns when nothing more will come.
    void markTime(boost::unique_lock<boost::mutex>& lock) override;
    bool hasMoreData() override;
    void restart() override;

    /// Both throw Veld::OpenException where there is no such file.
    void saveRtti(const std::string& path) override;
    void saveDbg(const std::string& path) override;
    void setProtoSettingsString(const std::string& settings) override { m_settings = settings; }

    /// Empties the recording and goes on with the simulation that runs now. Throws as
    /// createReader().
    void relaunchAfterRestart() override;

    /// Whether more may come. Any thread may call these two.
    bool isStreaming() const;
    void stopStreaming();

private:
    void createRecording();
    void saveTracedObjects();
    void closeRecording();
    void letGo();
    void setSharedMemReader(std::unique_ptr<WdbSharedMemReader> next);
    void embedFile(const char* sectionID, const std::string& path);

    unsigned long m_memFileSize = 0;  // addresses
    int m_eventDatabaseType = WdbEventBlockDatabaseFactory::MultipleBucket;
    std::string m_settings;
    std::string m_fileName;  // absolute

    mutable boost::mutex m_attachMutex;                     // held where the next one is replaced
    std::unique_ptr<WdbSharedMemReader> m_sharedMemReader;  // null unless open
    boost::mutex m_idleMarkMutex;                           // handed out while it is null
};

}  // namespace Korvel
