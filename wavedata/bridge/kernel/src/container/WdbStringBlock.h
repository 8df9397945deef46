#pragma once

#include <memory>
#include <string>

#include "container/CArray.h"
#include "container/WdbIBlockManager.h"

namespace Korvel {

class WdbStringBlock;

/// Goes through the strings of one block in order. The block must outlive it.
class WdbStringBlockIterator {
public:
    explicit WdbStringBlockIterator(const WdbStringBlock& block) : m_pBlock(&block) {}

    bool hasNext() const;

    /// Moves to the next string; its id and text can then be asked for.
    void next();

    long long getID() const { return m_id; }

    /// Zero-terminated; lives as long as the block keeps its contents.
    const char* getText() const { return m_pText; }

private:
    const WdbStringBlock* m_pBlock;
    unsigned int m_index = 0;  // of the string that next() moves to
    long long m_id = 0;
    const char* m_pText = "";
};

/// Strings under consecutive ids in one fixed-size image, stored deflated as a whole.
///
///   offset  size  field
///        0     8  start id      signed, id of the first string
///        8     4  string count
///       12     -  strings       one after another, each with a zero byte; zero to the end
class WdbStringBlock {
public:
    static constexpr unsigned int HeaderSize = 12;

    /// @param maximumSize  Bytes of the image.
    explicit WdbStringBlock(unsigned int maximumSize);

    /// Whether @p text fits; one byte of the image always stays free.
    bool canAdd(const std::string& text) const;

    /// Adds a string that canAdd() accepted. The first one's id is the block's start id.
    void addString(long long id, const std::string& text);

    bool isEmpty() const { return m_offsets.empty(); }
    void clear();

    /// Stores the block; 0, and nothing stored, when it is empty. Any failure ends the process.
    long long addBlock(WdbIBlockManager& store, unsigned int& size, long long& startId,
                       unsigned int& count);

    /// Reads a stored block; empty when it cannot be unpacked. Strings that do not lie wholly
    /// inside the image are left out, whatever the count claims.
    void loadBlock(long long handle, unsigned int size, const WdbIBlockManager& store);

    WdbStringBlockIterator getStringBlockIterator() const { return WdbStringBlockIterator(*this); }

    void setSetStartID(long long id);
    long long getStartID() const;

    /// Number of strings.
    unsigned int size() const { return m_offsets.size(); }

    const char* getText(unsigned int index) const { return m_image.get() + m_offsets[index]; }

private:
    void setCount(unsigned int count);
    unsigned int getCount() const;
    void record(unsigned int offset);

    unsigned int m_maximumSize;
    std::unique_ptr<char[]> m_image;
    unsigned int m_dataOffset = HeaderSize;  // where the next string goes
    WdbOffsetArray m_offsets;                // of each string in the image
};

}  // namespace Korvel
