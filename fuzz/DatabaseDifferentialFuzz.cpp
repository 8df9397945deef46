#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "events/WdbIEventSource.h"
#include "tests/support/EventFile.h"

using namespace Korvel;

namespace {

constexpr long long Addresses = 5000;

// For each address the times of its changes, and the value that the last write of the time left.
using Values = std::vector<std::vector<std::pair<long long, char>>>;

void apply(Values& values, long long time, long long address, const std::string& bytes) {
    for (const char byte : bytes) {
        auto& changes = values.at(static_cast<std::size_t>(address++));
        if (changes.empty() || changes.back().first != time) changes.emplace_back(time, byte);
        changes.back().second = byte;
    }
}

Values valuesOf(const EventFile& file) {
    Values values(Addresses);
    for (const StoredEvent& event : file.stored())
        apply(values, event.time, event.address, event.values);
    return values;
}

// What looking an address up gives, from its first change on.
std::vector<std::pair<long long, char>> lookUp(const EventFile& file, long long address) {
    std::vector<std::pair<long long, char>> changes;
    const auto value = file.database->getIEventDataSource()->findEventBlock(address, -1);
    for (; !value->isEof(); ++*value)
        changes.emplace_back(value->getTime(), static_cast<char>(*(**value).bytes));
    return changes;
}

}  // namespace

// The same changes through every database, with and without the filter, and into a map: at every
// time every address must have the same value. (Databases differ on purpose in how many writes of
// one time they keep, and in the latest time. One with trees shows saved blocks only, and is not
// reopened for writing.) Four bytes a change: time step and form, address, value; the forms reach
// events of all sizes, reading in between and reopening.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    EventFile single(SingleBucket, Addresses);
    EventFile multiple(MultipleBucket, Addresses);
    EventFile filtered(MultipleBucket, Addresses);
    EventFile trees(MultipleBtree, Addresses);
    EventFile* const files[] = {&single, &multiple, &filtered, &trees};
    Values model(Addresses);
    long long time = 0;
    for (int changes = 0; size >= 4 && changes < 100; ++changes, data += 4, size -= 4) {
        filtered.database->setFilterRepeatedValue(true);
        time += data[0] % 4;
        const long long address = (data[1] | data[2] << 8) % Addresses;
        const unsigned int form = data[0] / 4;
        std::size_t length = form < 50 ? 1 + form % 8 : 60 * form;
        length = std::min(length, static_cast<std::size_t>(Addresses - address));
        const std::string values(length, static_cast<char>(data[3]));
        for (EventFile* file : files) {
            if (form == 61) file->stored();
            if (form == 62 && file != &trees) file->load(/*writable=*/true);
            file->write(time, address, values);
        }
        apply(model, time, address, values);
    }
    for (EventFile* file : files) {
        if (file != &trees && valuesOf(*file) != model) std::abort();
        file->open();
        if (valuesOf(*file) != model) std::abort();
    }
    for (long long address = 0; address < Addresses; ++address) {
        if (lookUp(trees, address) != model[static_cast<std::size_t>(address)]) std::abort();
    }
    return 0;
}
