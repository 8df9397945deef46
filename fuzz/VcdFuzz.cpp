#include "description/DesignDescription.h"
#include "import/ImportDescription.h"
#include "vcd/VcdDeclarations.h"
#include "vcd/VcdReader.h"

#include <cstdlib>
#include <string>

using namespace Korvel;

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// Turns every call into a number, and values into what would be recorded.
struct Digest {
    const VcdDeclarations& declarations;
    std::uint64_t sum = 0;
    long long time = -1;
    std::vector<VlogWordPair> pairs{};
    std::vector<unsigned char> elements{};

    void add(std::uint64_t value) { sum = sum * 0x100000001B3U + value; }
    void add(std::string_view text) {
        for (const char c : text)
            add(static_cast<unsigned char>(c));
    }
    std::uint32_t widthOf(std::uint32_t signal) {
        require(signal < declarations.signals.size());
        add(signal);
        return declarations.signals[signal].width;
    }
    bool onTime(long long newTime) {
        require(newTime > time);
        time = newTime;
        add(static_cast<std::uint64_t>(time));
        return true;
    }
    void onScalar(std::uint32_t signal, char digit) {
        widthOf(signal);
        require((digitClass(digit) & (NoDigit | Blank)) == 0);
        add(std::string_view(&digit, 1));
    }
    void onVector(std::uint32_t signal, std::string_view digits, std::uint8_t classes) {
        const std::uint32_t width = widthOf(signal);
        require((classes & (NoDigit | Blank)) == 0);
        add(digits);
        pairs.resize(pairsOfBits(width));
        elements.resize(width);
        packVlogValue(digits, width, pairs.data());
        packVhdlValue(digits, width, elements.data());
        const bool isPartial = width % BitsPerPair != 0;
        require(!isPartial || (pairs.back().value >> width % BitsPerPair) == 0);
        for (const unsigned char element : elements)
            require(element < 9);
    }
    void onReal(std::uint32_t signal, std::string_view text) {
        widthOf(signal);
        add(text);
    }
    void onText(std::uint32_t signal, std::string_view text) {
        widthOf(signal);
        add(unescapeVcdText(text));
    }
    void onDumping(bool isOn) { add(isOn ? 1 : 2); }
    bool onProgress(std::uint64_t) { return true; }
};

std::uint64_t digestOf(VcdSource& source, const VcdDeclarations& declarations, std::size_t chunk,
                       std::uint64_t end, VcdOutcome& outcome) {
    VcdTokenizer tokens(source, declarations.endOffset, end, chunk);
    Digest digest{declarations};
    VcdReader reader(tokens, declarations.ids, digest);
    outcome = reader.read();
    return digest.sum;
}

}  // namespace

// Any bytes given as a dump are refused or read, within their bounds and to an end: with the same
// outcome whatever the window's size, and once more up to the damage, where it must be undamaged.
// What is declared can be described.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t SmallChunk = 5;
    constexpr std::uint32_t MaxBitsInAll = 1 << 20;
    VcdMemorySource source({reinterpret_cast<const char*>(data), size});
    VcdDeclarations declarations;
    try {
        VcdTokenizer tokens(source);
        declarations = readVcdDeclarations(tokens);
    } catch (const VcdError& error) {
        require(error.offset() <= size && lineOfOffset(source, error.offset()) <= size + 1);
        return 0;
    }
    require(declarations.endOffset <= size);
    std::uint64_t bits = 0;
    for (const VcdSignal& signal : declarations.signals)
        bits += signal.width;
    if (bits > MaxBitsInAll) return 0;

    VcdOutcome outcome;
    VcdOutcome again;
    const std::uint64_t sum =
        digestOf(source, declarations, VcdTokenizer::DefaultChunk, UINT64_MAX, outcome);
    require(outcome.offset <= size);
    require(digestOf(source, declarations, SmallChunk, UINT64_MAX, again) == sum);
    require(again.kind == outcome.kind && again.offset == outcome.offset);
    require(digestOf(source, declarations, SmallChunk, outcome.offset, again) == sum);
    require(again.kind == VcdOutcome::AtEnd || outcome.reason.find("$end") != std::string::npos);

    const RecordingLayout layout(declarations.signals,
                                 std::vector<std::uint8_t>(declarations.signals.size(), VhdlDigit));
    try {
        std::string error;
        require(DesignDescription::fromBytes(describeImport(declarations, layout, {}, {}), &error)
                    .has_value());
    } catch (const std::out_of_range&) {
        // Scopes are nested too deeply.
    }
    return 0;
}
