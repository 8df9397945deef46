#include "container/WdbBlockStream.h"

#include <cstring>
#include <new>

#include "container/WdbFileHeader.h"

namespace Korvel {

WdbBlockCopy copyBlock(const char* data, unsigned long long size) {
    // malloc(0) may give null, which would look like a failure.
    WdbBlockCopy copy(static_cast<char*>(std::malloc(size == 0 ? 1 : size)));
    if (!copy) throw std::bad_alloc();
    if (data != nullptr && size != 0) std::memcpy(copy.get(), data, size);
    return copy;
}

long long appendToStream(std::fstream& stream, const char* data, unsigned long long size) {
    stream.seekp(0, std::ios::end);
    const long long offset = stream.tellp();
    stream.write(data, static_cast<std::streamsize>(size));
    return offset;
}

void readFromStream(std::fstream& stream, long long offset, char* buffer, unsigned long long size) {
    stream.seekg(offset, std::ios::beg);
    stream.read(buffer, static_cast<std::streamsize>(size));
}

void writeToStream(std::fstream& stream, long long offset, const char* data,
                   unsigned long long size) {
    stream.seekp(offset, std::ios::beg);
    stream.write(data, static_cast<std::streamsize>(size));
}

long long streamSize(std::fstream& stream) {
    stream.seekg(0, std::ios::end);
    return stream.tellg();
}

bool isBlockInFile(long long handle, unsigned long long size, long long fileSize) {
    return handle >= static_cast<long long>(sizeof(WdbFileHeader)) && handle <= fileSize &&
           size <= static_cast<unsigned long long>(fileSize - handle);
}

}  // namespace Korvel
