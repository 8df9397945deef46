#pragma once

#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <utility>

#include "support/WdbFatalError.h"

namespace Korvel {

/// Copy of a block as the caches keep it.
struct WdbFreeDeleter {
    void operator()(void* memory) const { std::free(memory); }
};
using WdbBlockCopy = std::unique_ptr<char, WdbFreeDeleter>;

/// A copy of @p size bytes. Throws std::bad_alloc.
WdbBlockCopy copyBlock(const char* data, unsigned long long size);

/// Blocks given up, by size. They are remembered but never used again: appending at the end only is
/// what lets the reader of a killed recording trust every block that a list already points to.
using WdbFreeExtents = std::multimap<unsigned long long, long long>;

// The three things that a store does to its file. Each begins with a seek, which also makes an
// earlier write reach the operating system. They throw std::ios_base::failure.

/// Writes @p size bytes at the file's end and returns where they begin.
long long appendToStream(std::fstream& stream, const char* data, unsigned long long size);
void readFromStream(std::fstream& stream, long long offset, char* buffer, unsigned long long size);
void writeToStream(std::fstream& stream, long long offset, const char* data,
                   unsigned long long size);

/// Where the file ends now, also when another process made it longer.
long long streamSize(std::fstream& stream);

/// Runs @p operation; a failing stream ends the process with @p fatalText and the system's reason.
/// Any other exception passes through.
template <typename Operation>
auto orFatal(const char* fatalText, Operation&& operation) {
    try {
        return std::forward<Operation>(operation)();
    } catch (const std::ios_base::failure&) {
        wdbFatalError(fatalText);
    }
}

/// Whether @p size bytes at @p handle lie behind the header of a file of @p fileSize bytes.
bool isBlockInFile(long long handle, unsigned long long size, long long fileSize);

}  // namespace Korvel
