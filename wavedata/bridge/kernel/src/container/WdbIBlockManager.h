#pragma once

namespace Korvel {

/// A store of blocks: byte runs of a size that the caller chooses, named by a signed 64-bit handle.
///
/// Everything in a recording is kept as blocks, and whoever keeps them is written against this
/// interface alone. Callers use one size for one handle. Handle 0 names no block: in a file the
/// header lies there.
class WdbIBlockManager {
public:
    virtual ~WdbIBlockManager() = default;

    /// Stores a new block with a copy of @p size bytes and returns its handle.
    virtual long long addBlock(const char* data, unsigned long long size) = 0;

    /// Copies the first @p size bytes of the block to @p buffer.
    virtual void getBlock(long long handle, char* buffer, unsigned long long size) const = 0;

    /// Overwrites the first @p size bytes of the block.
    virtual void putBlock(long long handle, const char* data, unsigned long long size) = 0;

    /// Gives the block up.
    virtual void freeBlock(long long handle, unsigned long long size) = 0;
};

}  // namespace Korvel
