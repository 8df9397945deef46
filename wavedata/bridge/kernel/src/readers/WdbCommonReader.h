#pragma once

#include <memory>
#include <string>
#include <vector>

#include "container/WdbFileManager.h"
#include "korvel/WdbAddressBTreeManager.h"
#include "korvel/WdbIEventReader.h"
#include "readers/WdbStringCache.h"
#include "readers/WdbTracedObjects.h"

namespace Korvel {

class WdbIEventBlockDatabase;
class WdbStringMapDatabase;

/// All of a reader that does not depend on where the changes come from. What derives from it opens
/// the data and sets the databases.
///
/// The queries go through the virtual getBTreeManager() and getLatestTime().
class WdbCommonReader : public WdbIEventReader {
public:
    WdbCommonReader();
    ~WdbCommonReader() override;
    WdbCommonReader(const WdbCommonReader&) = delete;
    WdbCommonReader& operator=(const WdbCommonReader&) = delete;

    bool addEventDirect(const WdbLiveEvent* event) override;
    boost::recursive_mutex& getReadWriteMutex() const override;
    bool isWDBVersionMatched() const override;
    unsigned char* getRtti(long long* size) const override;
    unsigned char* getDbg(long long* size) const override;
    std::string getProtoSettings() const override;
    unsigned char* getDbgHeader(long long size) const override;
    long long getLatestTime() const override;
    std::string getStringMapValue(long long id) const override;
    void getValueEvents(long long start, long long end, long long resolution,
                        const std::vector<WdbScalarBTree*>& trees,
                        std::vector<WdbTimeByteValues>& out) const override;
    long long getNextEvent(long long time,
                           const std::vector<WdbScalarBTree*>& trees) const override;
    long long getPreviousEvent(long long time,
                               const std::vector<WdbScalarBTree*>& trees) const override;
    void getValueEvent(long long time, const std::vector<WdbScalarBTree*>& trees,
                       WdbTimeByteValues& out) const override;
    WdbAddressBTreeManager& getBTreeManager() override { return m_bTreeManager; }
    void setObjectTraced(unsigned int id, unsigned long long, unsigned int) override;
    bool isObjectTraced(unsigned int id) const override;
    bool addEventBuffered(const WdbLiveEvent* event) override;
    void flushEvents() override;

    /// Takes over a database; what was set before is not deleted.
    /// @param writeLock  As WdbAddressBTreeManager::setEventDatabase() has it.
    void setEventDatabase(WdbIEventBlockDatabase* database, boost::mutex* writeLock = nullptr);

    /// Hands what is recorded so far to the operating system.
    void flushFile();

    /// Takes over a string map in place of the one before, which is deleted.
    void setStringMapDatabase(WdbStringMapDatabase* database);

    /// Makes the temporary file of the drawing indexes.
    /// @param index   Part of its name where it is above 0.
    /// @param tmpDir  Its directory; the system's own where this is empty or none.
    /// Throws Veld::OpenException.
    void createDrawingBTreeTmpFile(const std::string& source, const std::string& wdbPath, int index,
                                   const std::string& tmpDir);

    const std::string& getDrawingBTreeFilePath() const { return m_drawingBTreeFilePath; }

protected:
    /// Lets go of what is open: databases, trees and what was kept of them.
    void discardRecording();

    WdbIEventBlockDatabase* m_pEventDatabase = nullptr;  // owned; null until set; replaced with
                                                         // the manager's mutex held
    std::unique_ptr<WdbStringMapDatabase> m_stringMapDatabase;  // null where there is none
    WdbAddressBTreeManager m_bTreeManager;
    WdbFileManager m_fileManager;
    std::string m_drawingBTreeFilePath;
    WdbTracedObjects m_tracedObjects;
    bool m_isTracedSetChanged = false;  // by setObjectTraced()
    mutable WdbStringCache m_stringCache;
    bool m_isObjectFilterActive = true;  // otherwise every object counts as traced
};

}  // namespace Korvel
