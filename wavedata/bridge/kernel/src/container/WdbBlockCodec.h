#pragma once

// Blocks of events and of strings are stored as the zlib stream (level 1) of one fixed-size image.
// A recording makes one such stream for every few hundred value changes, so the memory that zlib
// needs for it is kept and used again.

#include <cstddef>
#include <memory>
#include <vector>

#include "container/WdbIBlockManager.h"

namespace Korvel {

/// Compresses and unpacks block images. Gives the bytes that compress2 at level 1 gives, also for
/// an image that grows by it. One thread at a time.
class WdbBlockCodec {
public:
    struct Bytes {
        const char* data;  // lives until the codec's next call
        std::size_t size;
    };

    WdbBlockCodec();
    ~WdbBlockCodec();
    WdbBlockCodec(const WdbBlockCodec&) = delete;
    WdbBlockCodec& operator=(const WdbBlockCodec&) = delete;

    /// The image's zlib stream. Throws std::bad_alloc.
    Bytes deflate(const char* image, std::size_t size);

    /// Unpacks a stored block into a zero-filled image of @p capacity bytes. False, with the image
    /// zero again, when the bytes are no whole zlib stream or hold more than the image takes. What
    /// lies behind the stream is not looked at.
    bool inflate(const char* stored, std::size_t size, char* image, std::size_t capacity);

    /// Unpacks the first @p wanted bytes of an image, from a stored block or its beginning, and
    /// nothing behind them: no checksum is looked at. Returns how many could be unpacked.
    std::size_t inflateFirst(const char* stored, std::size_t size, char* image, std::size_t wanted);

    /// A buffer of at least @p size bytes for the stored form; lives until the next call.
    char* storedBuffer(std::size_t size);

private:
    struct Streams;
    std::unique_ptr<Streams> m_streams;
    std::vector<char> m_stored;
};

/// Borrows a codec from the process's stock for as long as it lives. Any thread may.
class WdbCodecLease {
public:
    WdbCodecLease();
    ~WdbCodecLease();
    WdbCodecLease(const WdbCodecLease&) = delete;
    WdbCodecLease& operator=(const WdbCodecLease&) = delete;

    WdbBlockCodec* operator->() const { return m_codec.get(); }

private:
    std::unique_ptr<WdbBlockCodec> m_codec;
};

/// To be called by the constructor of whatever may still compress when static objects are
/// destroyed: the stock of codecs then goes after it.
void outliveCodecUsers();

/// The fatal texts of one kind of block.
struct WdbStoreTexts {
    const char* storeFailed;       // the stream failed while the block was stored
    const char* unspecified;       // another exception while it was stored
    const char* unspecifiedEarly;  // any exception before
};

/// Compresses an image and stores it as a new block. Any failure ends the process.
/// @param compressedSize  Receives the stored size.
long long storeDeflated(WdbIBlockManager& store, const char* image, std::size_t size,
                        unsigned int& compressedSize, const WdbStoreTexts& texts);

/// Reads a stored block and unpacks it into a zero-filled image. False, with the image all zero,
/// when the store does not hold the block or it cannot be unpacked.
bool loadInflated(const WdbIBlockManager& store, long long handle, unsigned int compressedSize,
                  char* image, std::size_t capacity);

/// Reads the first @p wanted bytes of a stored block's image for a fraction of what the whole
/// costs. They are a claim that no checksum backs. False when there are not so many.
bool loadFirstInflated(const WdbIBlockManager& store, long long handle, unsigned int compressedSize,
                       char* image, std::size_t wanted);

}  // namespace Korvel
