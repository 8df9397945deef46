#include "container/WdbBlockCodec.h"

#include <algorithm>
#include <cstring>
#include <ios>
#include <new>
#include <utility>

#include <libdeflate.h>
#include <zlib.h>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>

#include "container/WdbIHandleCheck.h"
#include "support/WdbFatalError.h"

namespace Korvel {
namespace {

constexpr int Level = 1;  // the fastest: a recording is compressed while the simulation waits

// Stored bytes that are read for a block's first ones. The code tables that open a stream take 570
// at most.
constexpr unsigned int BytesForFirst = 1024;

Bytef* bytesOf(const char* data) {
    // zlib does not write through its input pointer; it lacks the const.
    return reinterpret_cast<Bytef*>(const_cast<char*>(data));
}

}  // namespace

struct WdbBlockCodec::Streams {
    // Each made on first use: a reader never compresses.
    z_stream deflater = {};
    z_stream inflater = {};
    libdeflate_decompressor* unpacker = nullptr;  // for whole streams, at more than twice the speed
    bool hasDeflater = false;
    bool hasInflater = false;

    ~Streams() {
        if (hasDeflater) deflateEnd(&deflater);
        if (hasInflater) inflateEnd(&inflater);
        libdeflate_free_decompressor(unpacker);
    }

    void readyDeflater() {
        const int status = hasDeflater ? deflateReset(&deflater) : deflateInit(&deflater, Level);
        if (status != Z_OK) throw std::bad_alloc();
        hasDeflater = true;
    }

    void readyInflater() {
        const int status = hasInflater ? inflateReset(&inflater) : inflateInit(&inflater);
        if (status != Z_OK) throw std::bad_alloc();
        hasInflater = true;
    }

    void readyUnpacker() {
        if (unpacker == nullptr) unpacker = libdeflate_alloc_decompressor();
        if (unpacker == nullptr) throw std::bad_alloc();
    }
};

WdbBlockCodec::WdbBlockCodec() : m_streams(std::make_unique<Streams>()) {}

WdbBlockCodec::~WdbBlockCodec() = default;

WdbBlockCodec::Bytes WdbBlockCodec::deflate(const char* image, std::size_t size) {
    const std::size_t bound = compressBound(static_cast<uLong>(size));
    char* stored = storedBuffer(bound);
    m_streams->readyDeflater();
    z_stream& stream = m_streams->deflater;
    stream.next_in = bytesOf(image);
    stream.avail_in = static_cast<uInt>(size);
    stream.next_out = bytesOf(stored);
    stream.avail_out = static_cast<uInt>(bound);
    // The bound leaves room for any contents, so one call finishes.
    ::deflate(&stream, Z_FINISH);
    return {stored, bound - stream.avail_out};
}

bool WdbBlockCodec::inflate(const char* stored, std::size_t size, char* image,
                            std::size_t capacity) {
    m_streams->readyUnpacker();
    std::size_t unpacked = 0;
    const bool isWhole = libdeflate_zlib_decompress(m_streams->unpacker, stored, size, image,
                                                    capacity, &unpacked) == LIBDEFLATE_SUCCESS;
    if (!isWhole) unpacked = 0;
    // Copies may run past a short stream's end, and a damaged one leaves what it got to.
    std::memset(image + unpacked, 0, capacity - unpacked);
    return isWhole;
}

std::size_t WdbBlockCodec::inflateFirst(const char* stored, std::size_t size, char* image,
                                        std::size_t wanted) {
    m_streams->readyInflater();
    z_stream& stream = m_streams->inflater;
    stream.next_in = bytesOf(stored);
    stream.avail_in = static_cast<uInt>(size);
    stream.next_out = bytesOf(image);
    stream.avail_out = static_cast<uInt>(wanted);
    ::inflate(&stream, Z_SYNC_FLUSH);
    return wanted - stream.avail_out;
}

char* WdbBlockCodec::storedBuffer(std::size_t size) {
    if (m_stored.size() < size) m_stored.resize(size);
    return m_stored.data();
}

namespace {

struct CodecStock {
    boost::mutex mutex;
    std::vector<std::unique_ptr<WdbBlockCodec>> idle;
};

CodecStock& codecStock() {
    static CodecStock stock;
    return stock;
}

std::unique_ptr<WdbBlockCodec> borrowCodec() {
    CodecStock& stock = codecStock();
    {
        const boost::lock_guard<boost::mutex> lock(stock.mutex);
        if (!stock.idle.empty()) {
            std::unique_ptr<WdbBlockCodec> codec = std::move(stock.idle.back());
            stock.idle.pop_back();
            return codec;
        }
    }
    return std::make_unique<WdbBlockCodec>();
}

}  // namespace

void outliveCodecUsers() {
    codecStock();
}

WdbCodecLease::WdbCodecLease() : m_codec(borrowCodec()) {}

WdbCodecLease::~WdbCodecLease() {
    CodecStock& stock = codecStock();
    const boost::lock_guard<boost::mutex> lock(stock.mutex);
    stock.idle.push_back(std::move(m_codec));
}

long long storeDeflated(WdbIBlockManager& store, const char* image, std::size_t size,
                        unsigned int& compressedSize, const WdbStoreTexts& texts) {
    bool isStoring = false;
    try {
        const WdbCodecLease codec;
        const WdbBlockCodec::Bytes stored = codec->deflate(image, size);
        compressedSize = static_cast<unsigned int>(stored.size);
        isStoring = true;
        return store.addBlock(stored.data, stored.size);
    } catch (const std::ios_base::failure&) {
        wdbFatalError(isStoring ? texts.storeFailed : texts.unspecifiedEarly);
    } catch (...) {
        wdbFatalError(isStoring ? texts.unspecified : texts.unspecifiedEarly);
    }
}

bool loadInflated(const WdbIBlockManager& store, long long handle, unsigned int compressedSize,
                  char* image, std::size_t capacity) {
    if (compressedSize == 0 || !mayFollowHandle(store, handle, compressedSize)) return false;
    const WdbCodecLease codec;
    char* stored = codec->storedBuffer(compressedSize);
    store.getBlock(handle, stored, compressedSize);
    return codec->inflate(stored, compressedSize, image, capacity);
}

bool loadFirstInflated(const WdbIBlockManager& store, long long handle, unsigned int compressedSize,
                       char* image, std::size_t wanted) {
    if (compressedSize == 0 || !mayFollowHandle(store, handle, compressedSize)) return false;
    const WdbCodecLease codec;
    const auto firstOf = [&](unsigned int size) {
        char* stored = codec->storedBuffer(size);
        store.getBlock(handle, stored, size);
        return codec->inflateFirst(stored, size, image, wanted) == wanted;
    };
    // More than that is needed only where nothing but padding opens the stream.
    return firstOf(std::min(compressedSize, BytesForFirst)) ||
           (compressedSize > BytesForFirst && firstOf(compressedSize));
}

}  // namespace Korvel
