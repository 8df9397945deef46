#pragma once

#include <atomic>
#include <fstream>
#include <string>

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
/// Threads may share the store: every operation holds the recursive mutex, but for reading a file
/// that this process does not write, which goes beside the stream and needs no lock. Whoever needs
/// several operations in a row undisturbed takes the mutex around them. A failing stream ends the
/// process.
class WdbFileBlockManager : public WdbIBlockManager, public WdbIHandleCheck {
public:
    /// @param stream  Not owned; raises exceptions for the bad and the fail state.
    explicit WdbFileBlockManager(std::fstream& stream);
    ~WdbFileBlockManager() override;
    WdbFileBlockManager(const WdbFileBlockManager&) = delete;
    WdbFileBlockManager& operator=(const WdbFileBlockManager&) = delete;

    long long addBlock(const char* data, unsigned long long size) override;
    void getBlock(long long handle, char* buffer, unsigned long long size) const override;
    void putBlock(long long handle, const char* data, unsigned long long size) override;
    void freeBlock(long long handle, unsigned long long size) override;

    bool mayFollow(long long handle, unsigned long long size) const override;

    /// Hands what the stream still buffers to the operating system, from where a killed process
    /// cannot take it back.
    void flushStream();

    /// Reads blocks without the stream from now on, which was opened on this file for reading only.
    void readBeside(const std::string& path);

    /// Forgets the file: the stream is about to be opened on another one.
    void forgetFile();

    boost::recursive_mutex& getMutex() const { return m_mutex; }

private:
    mutable boost::recursive_mutex m_mutex;
    std::fstream* m_pStream;
    WdbFreeExtents m_freeExtents;
    int m_beside = -1;                              // descriptor for reading; -1: the stream reads
    mutable std::atomic<long long> m_knownSize{0};  // the file had at least these bytes when last
                                                    // looked at
};

}  // namespace Korvel
