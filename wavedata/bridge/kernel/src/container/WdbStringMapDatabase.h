#pragma once

#include <memory>
#include <string>

#include "container/WdbAppendingStringBlockList.h"
#include "container/WdbFileManager.h"
#include "container/WdbStringBlock.h"

namespace Korvel {

/// The strings of a recording under consecutive ids, counted from 1. Section "WDB.StringMap".
///
/// Strings fill blocks of 1,024 bytes; a list of the stored blocks keeps each one's first id and
/// number of strings, so that a look-up unpacks one block. Nothing is cached here. One thread at a
/// time, except that creating the section holds the container's lock.
class WdbStringMapDatabase {
public:
    using List = WdbAppendingStringBlockList<WdbStringBlock, 100>;

    static const char SectionID[];
    static constexpr unsigned int SectionVersion = 1;
    static constexpr unsigned int StringBlockSize = 1024;

    /// Longest string that an empty block can take.
    static constexpr unsigned int LongestString = StringBlockSize - WdbStringBlock::HeaderSize - 2;

    /// The section's first block.
    ///
    ///   offset  size  field
    ///        0     4  databaseTypeId         given by the creator
    ///        4     4  stringBlockSize        bytes of a block before compression
    ///        8     8  stringBlockFileOffset  where the first list node's handle is kept
    struct WdbStringMapDatabaseHeader {
        unsigned int databaseTypeId = 0;
        unsigned int stringBlockSize = StringBlockSize;
        long long stringBlockFileOffset = 0;
    };

    /// Walks the stored blocks in order.
    class Iterator {
    public:
        Iterator(const WdbIBlockManager& store, long long firstNode)
            : m_pStore(&store), m_walker(store, firstNode) {
            skipUsedUpNodes();
        }

        explicit operator bool() const { return !isEof(); }
        bool isEof() const { return !m_walker.isAtNode() || m_index >= m_walker.node().m_count; }
        Iterator& operator++();

        void getBlockInfo(long long& blockHandle, unsigned int& compressedSize, long long& startId,
                          unsigned int& count) const;
        void getStringBlock(WdbStringBlock& block) const;

    private:
        void skipUsedUpNodes();

        const WdbIBlockManager* m_pStore;
        List::Walker m_walker;
        unsigned int m_index = 0;  // of the entry in the walker's node
    };

    /// Binds to a container; nothing is read yet.
    WdbStringMapDatabase(WdbFileManager& fileManager, int databaseTypeId);
    ~WdbStringMapDatabase();
    WdbStringMapDatabase(const WdbStringMapDatabase&) = delete;
    WdbStringMapDatabase& operator=(const WdbStringMapDatabase&) = delete;

    /// Makes the section's blocks and returns its header's handle.
    /// @param registerSection  Whether the table of contents names it.
    long long createStringMapSection(int databaseTypeId, WdbFileManager& fileManager,
                                     bool registerSection);

    /// Loads the section. Opened writable, ids go on after the last one stored.
    /// Throws Veld::OpenException when the header makes no sense.
    void initialize(long long headerHandle, bool writable);

    /// Stores a string of at most LongestString bytes and returns its id.
    long long addString(const std::string& text);

    /// Finds a string, also one added a moment ago. Unchanged @p out and false for an unknown id.
    bool getString(unsigned int id, std::string& out) const;

    /// Stores the current block, full or not.
    void flush();

    /// Writes the list's current node, so that a killed recording keeps the blocks stored so far.
    /// Leaves the current block open: the finished file is the same with and without.
    void checkpoint();

    Iterator getIterator() const;
    void loadDataBlock(long long handle, unsigned int size, WdbStringBlock& block) const;

    const WdbStringMapDatabaseHeader& getStringDatabaseHeader() const { return m_header; }
    void dumpHeader() const;

private:
    void readHeader(long long headerHandle);
    long long lastStoredId() const;

    WdbIBlockManager* m_pStore;
    std::unique_ptr<List> m_list;  // null before initialize
    WdbStringMapDatabaseHeader m_header;
    bool m_writable = false;
    long long m_lastId = 0;  // given out last; 0 before any
};
static_assert(sizeof(WdbStringMapDatabase::WdbStringMapDatabaseHeader) == 16);

}  // namespace Korvel
