#pragma once

#include <zlib.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Korvel {

/// Unpacks stored blocks, each the zlib stream of an image of a fixed size, and judges the stream:
/// whole, with the right checksum, no byte more or less on either side.
class BlockUnpacker {
public:
    BlockUnpacker();
    ~BlockUnpacker();
    BlockUnpacker(const BlockUnpacker&) = delete;
    BlockUnpacker& operator=(const BlockUnpacker&) = delete;

    /// The most that an image of this size is stored in, whatever its contents.
    static std::uint64_t mostStored(std::size_t imageSize) { return compressBound(imageSize); }

    /// Where the stored bytes go before they are unpacked.
    std::vector<std::uint8_t>& stored() { return m_stored; }

    /// Unpacks into an image that has its size already.
    /// @return what is wrong with the stream; empty when nothing is.
    std::string unpack(std::vector<std::uint8_t>& image);

private:
    std::vector<std::uint8_t> m_stored;
    z_stream m_stream = {};
};

}  // namespace Korvel
