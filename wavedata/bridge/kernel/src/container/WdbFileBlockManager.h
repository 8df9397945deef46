#pragma once

#include <fstream>

#include <boost/thread/recursive_mutex.hpp>

#include "container/WdbBlockStream.h"
#include "container/WdbIBlockManager.h"
#include "container/WdbIHandleCheck.h"

namespace Korvel {

extern const char FileAddBlockFailed[];
extern const char FileGetBlockFailed[];
extern const char FilePutBlockFailed[];

/// Blocks as byte ranges of a file: the handle is the absolute file offset.
///
/// Every operation holds the recursive mutex, so threads may share the store. Whoever needs several
/// operations in a row undisturbed takes the mutex around them. A failing stream ends the process.
class WdbFileBlockManager : public WdbIBlockManager, public WdbIHandleCheck {
public:
    /// @param stream  Not owned; raises exceptions for the bad and the fail state.
    explicit WdbFileBlockManager(std::fstream& stream);

    long long addBlock(const char* data, unsigned long long size) override;
    void getBlock(long long handle, char* buffer, unsigned long long size) const override;
    void putBlock(long long handle, const char* data, unsigned long long size) override;
    void freeBlock(long long handle, unsigned long long size) override;

    bool mayFollow(long long handle, unsigned long long size) const override;

    /// Hands what the stream still buffers to the operating system, from where a killed process
    /// cannot take it back.
    void flushStream();

    /// Forgets the file's size: the stream is about to be opened on another file.
    void forgetSize();

    boost::recursive_mutex& getMutex() const { return m_mutex; }

private:
    mutable boost::recursive_mutex m_mutex;
    std::fstream* m_pStream;
    WdbFreeExtents m_freeExtents;
    mutable long long m_knownSize = 0;  // the file had at least these bytes when last looked at
};

}  // namespace Korvel
