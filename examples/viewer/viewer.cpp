// A waveform viewer in a hundred lines: draws scalars of a recording as text.
//
//   viewer FILE ADDRESS[.BIT]...
//
// A scalar is the byte at an address of the simulator's data space, or a bit of the Verilog word
// pair that begins there. One column stands for the same stretch of time on every line:
//   _ 0   ~ 1   z   x   any other value in hexadecimal   # several changes   blank: no value yet

#include "korvel/WdbAddressBTreeManager.h"
#include "korvel/WdbEventReaderFactory.h"
#include "veld/OpenException.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr long long Columns = 72;

Korvel::WdbScalar parseScalar(const std::string& text) {
    const std::size_t dot = text.find('.');
    Korvel::WdbScalar scalar;
    scalar.address = std::stoll(text.substr(0, dot));
    if (dot != std::string::npos) scalar.bit = std::stoi(text.substr(dot + 1));
    return scalar;
}

char symbolOf(const Korvel::WdbByteValue& shown, bool isBit) {
    if (shown.type == Korvel::WdbByteValue::NoValue) return ' ';
    if (shown.type == Korvel::WdbByteValue::DenseValue) return '#';
    return isBit ? "_~zx"[shown.value & 3] : "0123456789abcdef"[shown.value & 15];
}

// One line: the value in effect in each column.
std::string lineOf(const std::vector<Korvel::WdbTimeByteValues>& snapshots, std::size_t tree,
                   bool isBit, long long step) {
    std::string line(Columns, ' ');
    for (std::size_t i = 0; i < snapshots.size(); ++i) {
        const long long end = i + 1 < snapshots.size() ? snapshots[i + 1].time : Columns * step;
        const long long from = std::clamp(snapshots[i].time / step, 0LL, Columns);
        const long long to = std::clamp((end + step - 1) / step, from, Columns);
        const char symbol = symbolOf(snapshots[i].values[tree], isBit);
        // A column in which anything is dense stays so.
        for (long long column = from; column < to; ++column) {
            char& shown = line[static_cast<std::size_t>(column)];
            if (shown != '#') shown = symbol;
        }
    }
    return line;
}

void draw(const char* file, const std::vector<std::string>& names) {
    const std::unique_ptr<Korvel::WdbIEventReader> reader(
        Korvel::WdbEventReaderFactory::getInstance().create(
            Korvel::WdbEventReaderFactory::STATIC_READER));
    reader->createReader("", file, 0, "");

    std::vector<Korvel::WdbScalar> scalars;
    for (const std::string& name : names)
        scalars.push_back(parseScalar(name));
    // One scan of the recording fills the indexes of everything that is asked for together. From
    // then on a picture costs what its columns cost, however long the recording is.
    const std::vector<Korvel::WdbScalarBTree*> trees = reader->getBTreeManager().getBTrees(scalars);

    const long long latest = reader->getLatestTime();
    const long long step = std::max(1LL, (latest + Columns) / Columns);
    for (std::size_t i = 0; i < trees.size(); ++i) {
        std::vector<Korvel::WdbTimeByteValues> snapshots;
        reader->getValueEvents(0, latest, step, {trees[i]}, snapshots);
        const bool isBit = scalars[i].bit != Korvel::WdbScalarBTree::WholeByte;
        std::printf("%12s %s\n", names[i].c_str(), lineOf(snapshots, 0, isBit, step).c_str());
    }
    std::printf("%12s 0, one column %lld, latest time %lld\n", "", step, latest);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s FILE ADDRESS[.BIT]...\n", argv[0]);
        return 2;
    }
    try {
        draw(argv[1], {argv + 2, argv + argc});
        return 0;
    } catch (const Veld::OpenException& error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    return 1;
}
