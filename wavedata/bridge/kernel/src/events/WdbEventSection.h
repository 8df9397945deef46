#pragma once

#include "events/WdbEventDatabaseHeader.h"

namespace Korvel {

class WdbFileBlockManager;
class WdbFileManager;

/// The header of an event section, in memory and in its file. What every event database has.
class WdbEventSection {
public:
    WdbEventSection(WdbFileManager& fileManager, int typeId);

    /// Reads the header. Throws Veld::OpenException when it lies outside the file, is of another
    /// type of database, or claims sizes that the file cannot hold or that no address could use.
    void load(long long headerOffset, bool writable);

    bool isWritable() const { return m_writable; }
    const WdbEventDatabaseHeader& header() const { return m_header; }
    WdbFileBlockManager& store() const { return *m_pStore; }

    /// Where the handle of a bucket's first node or tree is kept.
    long long slotOf(unsigned int bucket) const;

    /// Both rewrite the header in place, unless the section is only read.
    void putLatestTime(long long time);
    void putAddressMap(long long offset, long long size);

private:
    bool isSound() const;

    WdbFileBlockManager* m_pStore;
    int m_typeId;  // of the database that the section is for
    WdbEventDatabaseHeader m_header;
    long long m_headerOffset = 0;
    bool m_writable = false;
};

}  // namespace Korvel
