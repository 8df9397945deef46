#include "inspect/BlockUnpacker.h"

#include <fmt/format.h>

#include <new>

namespace Korvel {

BlockUnpacker::BlockUnpacker() {
    if (inflateInit(&m_stream) != Z_OK) throw std::bad_alloc();
}

BlockUnpacker::~BlockUnpacker() {
    inflateEnd(&m_stream);
}

std::string BlockUnpacker::unpack(std::vector<std::uint8_t>& image) {
    inflateReset(&m_stream);
    m_stream.next_in = m_stored.data();
    m_stream.avail_in = static_cast<uInt>(m_stored.size());
    m_stream.next_out = image.data();
    m_stream.avail_out = static_cast<uInt>(image.size());
    const int status = ::inflate(&m_stream, Z_FINISH);
    if (status == Z_STREAM_END) {
        if (m_stream.avail_out != 0) {
            return fmt::format("unpacks to {} bytes instead of {}", m_stream.total_out,
                               image.size());
        }
        if (m_stream.avail_in == 0) return {};
        return fmt::format("{} bytes follow the compressed stream", m_stream.avail_in);
    }
    if (status == Z_BUF_ERROR) {
        if (m_stream.avail_in == 0) return "the compressed stream is cut off";
        return fmt::format("unpacks to more than {} bytes", image.size());
    }
    return fmt::format("cannot be unpacked: {}",
                       m_stream.msg != nullptr ? m_stream.msg : "not a zlib stream");
}

}  // namespace Korvel
