#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "container/WdbStringMapDatabase.h"
#include "fuzz/ThrowingFatalError.h"
#include "tests/support/EventFile.h"
#include "tests/support/FileBytes.h"
#include "veld/OpenException.h"

using namespace Korvel;

namespace {

constexpr std::size_t MostChanges = 8;   // with more of them hardly a file opens
constexpr std::size_t VersionSize = 24;  // a change there would always be refused

// Both kinds of event section, strings, and enough other sections for a second node.
std::string goodFile() {
    TemporaryDirectory directory;
    const std::string path = directory.file("a.wdb");
    WdbFileManager manager;
    manager.create(path);
    for (const int type : {SingleBucket, MultipleBucket}) {
        const std::unique_ptr<WdbIEventBlockDatabase> events(
            WdbEventBlockDatabaseFactory::getInstance().create(type, manager));
        events->initialize(WdbIEventBlockDatabase::createEventSection(type, 2, 4000, 2048, manager),
                           true);
        const std::string values(3000, 'v');
        for (int time = 0; time < 8; ++time)
            events->writeEvent(time, 900, 3000,
                               reinterpret_cast<const unsigned char*>(values.data()));
    }
    WdbStringMapDatabase strings(manager, 0);
    strings.initialize(strings.createStringMapSection(0, manager, true), true);
    for (int i = 0; i < 9; ++i) {
        strings.addString(std::string(300, 's'));
        manager.embedDataInNewSection("other", 1, reinterpret_cast<const unsigned char*>("data"),
                                      4);
    }
    strings.flush();
    strings.checkpoint();
    manager.writeHeader();
    return readFile(path);
}

void readEverything(const std::string& path) {
    WdbFileManager manager;
    manager.open(path);
    for (const WdbTableOfContentItem& item : manager.getSections()) {
        const auto version = static_cast<unsigned int>(item.m_version);
        long long size = 0;
        std::free(manager.getSectionData(item.getSectionID(), version, &size));
        delete[] manager.getSectionData(item.getSectionID(), version, 8ll);
        // Whatever a section is called, its bytes may be taken for any database.
        for (const int type : {SingleBucket, MultipleBucket}) {
            try {
                const std::unique_ptr<WdbIEventBlockDatabase> events(
                    WdbEventBlockDatabaseFactory::getInstance().create(type, manager));
                events->initialize(item.m_offset, false);
                EventFile::eventsOf(events->getAllEventBlockDatabaseIterator());
                events->getEventBlockDatabaseIterator({0, 2048, 1ll << 40, -1});
            } catch (const Veld::OpenException&) {
            }
        }
        try {
            WdbStringMapDatabase strings(manager, 0);
            strings.initialize(item.m_offset, false);
            std::string text;
            for (unsigned int id = 0; id < 12; ++id)
                strings.getString(id, text);
        } catch (const Veld::OpenException&) {
        }
    }
}

}  // namespace

// The input changes bytes of a good file, three for each (where, and to what), and may cut it at an
// end that its first two bytes name; or it is a whole file. Reading ends, keeps to its memory, and
// throws nothing but what it says. It ends the process for one reason only: no table.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string good = goodFile();
    static const int file = ::memfd_create("recording", 0);
    std::string bytes(data, data + size);
    if (bytes.compare(0, 6, good, 0, 6) != 0) {
        bytes = good;
        const std::size_t used = std::min<std::size_t>(size, 2 + 3 * MostChanges);
        for (std::size_t i = 2; i + 3 <= used; i += 3) {
            const std::size_t where =
                VersionSize + (data[i] | data[i + 1] << 8) % (bytes.size() - VersionSize);
            bytes[where] = static_cast<char>(data[i + 2]);
        }
        const std::size_t end = size < 2 ? 0 : data[0] | data[1] << 8;
        if (end % 8 == 1) bytes.resize(end % bytes.size());
    }
    if (::ftruncate(file, 0) != 0 ||
        ::pwrite(file, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        std::abort();
    try {
        readEverything("/proc/self/fd/" + std::to_string(file));
    } catch (const Veld::OpenException&) {
    } catch (const FatalError&) {
        if (fieldAt<long long>(bytes, 48) != 0) std::abort();
    }
    return 0;
}
