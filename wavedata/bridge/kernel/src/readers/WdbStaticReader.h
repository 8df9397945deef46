#pragma once

#include <boost/thread/mutex.hpp>

#include "readers/WdbCommonReader.h"

namespace Korvel {

struct WdbEventDatabaseHeader;

/// Reads a recording on disk. It never changes once it is open; what only makes sense for a running
/// simulation does nothing.
class WdbStaticReader : public WdbCommonReader {
public:
    WdbStaticReader();
    ~WdbStaticReader() override;

    void setMemFileSize(unsigned long) override {}

    /// Opens the file and loads what it tells of traced objects. @p source and @p index are not
    /// used.
    void createReader(const std::string& source, const std::string& wdbPath, int index,
                      const std::string& tmpDir) override;
    boost::mutex& getTimeMarkMutex() override { return m_timeMarkMutex; }
    void markTime(boost::unique_lock<boost::mutex>&) override {}
    bool hasMoreData() override { return false; }
    void restart() override {}
    void saveRtti(const std::string&) override {}
    void saveDbg(const std::string&) override {}
    void setProtoSettingsString(const std::string&) override {}
    void relaunchAfterRestart() override {}

private:
    long long findSection(const char* id) const;
    std::unique_ptr<WdbIEventBlockDatabase> loadEventDatabase();
    void loadObjectFilter(const WdbEventDatabaseHeader& header);
    void loadStringMap();

    boost::mutex m_timeMarkMutex;  // handed out, never taken here
};

}  // namespace Korvel
