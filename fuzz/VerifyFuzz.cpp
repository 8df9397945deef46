#include "inspect/Verifier.h"

#include "description/DesignDescriptionWriter.h"
#include "tests/support/EventFile.h"
#include "tests/support/RecordingFile.h"

#include <cstdlib>
#include <cstring>

using namespace Korvel;

namespace {

// Counts findings and keeps none: a mutated file can give millions.
void verify(const std::uint8_t* data, std::size_t size, bool mustBeSound) {
    const RecordingMemoryBytes bytes({data, size});
    FindingList list(0);
    Inspection inspection(bytes, list);
    verifyRecording(inspection);
    if (mustBeSound && list.count(Severity::Error) != 0) std::abort();
}

// Reaches every structure: a description, several buckets, more than one block, strings.
std::string goodRecording() {
    DesignDescriptionWriter description;
    ObjectDefinition object;
    object.name = "pc";
    description.addObject(object);
    RecordingFile file(5000, description.finish());
    for (int i = 0; i < 12; ++i) {
        file.write(i, i % 2 * 2048, std::string(2000, 'v'));
        file.writer().addString(std::string(300, 's'));
    }
    file.close();
    return file.bytes();
}

// The same for a tree: two leaves below a root.
std::string goodTree() {
    EventFile file(WdbEventBlockDatabaseFactory::MultipleBtree, 5000);
    for (int i = 0; i < 505; ++i)
        file.write(i, 0, std::string(2000, 'v'));
    file.close();
    return readFile(file.path);
}

void verifyPatched(std::string bytes, const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t PatchSize = 4;
    constexpr std::size_t MaxPatches = 16;
    const std::size_t patches = std::min(size / PatchSize, MaxPatches);
    for (std::size_t i = 0; i < patches; ++i) {
        std::uint32_t patch = 0;
        std::memcpy(&patch, data + i * PatchSize, sizeof(patch));
        bytes[patch % (1U << 24) % bytes.size()] = static_cast<char>(patch >> 24);
    }
    verify(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), patches == 0);
}

}  // namespace

// Whatever the bytes of a file are, verifying it ends, inside the bytes, and finds nothing in what
// the writer made. The input is taken as a file, and as patches of (24-bit place, byte) on good
// ones: only a file whose structures nearly all hold leads into its depths.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    verify(data, size, /*mustBeSound=*/false);
    static const std::string good[] = {goodRecording(), goodTree()};
    for (const std::string& bytes : good)
        verifyPatched(bytes, data, size);
    return 0;
}
