#include "import/RecordingLayout.h"

#include <algorithm>
#include <stdexcept>

namespace Korvel {

namespace {

constexpr std::int64_t Alignment = 8;
constexpr std::uint8_t SeenDigits = BinaryDigit | UnknownDigit | VhdlDigit;

ValueRepresentation representationOf(VcdValueKind declared, std::uint8_t seen) {
    const bool isAsDeclared = seen == 0 ||
                              (declared == VcdValueKind::Real && (seen & SeenReal) != 0) ||
                              (declared == VcdValueKind::Text && (seen & SeenText) != 0);
    if (declared == VcdValueKind::Event) return ValueRepresentation::Event;
    if (declared == VcdValueKind::Real && isAsDeclared) return ValueRepresentation::Real;
    if (declared == VcdValueKind::Text && isAsDeclared) return ValueRepresentation::String;
    if ((seen & VhdlDigit) != 0) return ValueRepresentation::VhdlEnumeration;
    if (seen == 0 || (seen & SeenDigits) != 0) return ValueRepresentation::VerilogFourState;
    return (seen & SeenReal) != 0 ? ValueRepresentation::Real : ValueRepresentation::String;
}

bool isMadeOfBytes(ValueRepresentation representation) {
    return representation == ValueRepresentation::VhdlEnumeration ||
           representation == ValueRepresentation::Event;
}

}  // namespace

RecordingLayout::RecordingLayout(const std::vector<VcdSignal>& declared,
                                 const std::vector<std::uint8_t>& seen) {
    signals.reserve(declared.size());
    for (std::size_t i = 0; i < declared.size(); ++i) {
        RecordedSignal signal;
        signal.width = std::max(declared[i].width, 1U);
        signal.representation = representationOf(declared[i].kind, seen[i]);
        if (!isMadeOfBytes(signal.representation)) {
            size = (size + Alignment - 1) / Alignment * Alignment;
        }
        signal.address = size;
        size += sizeOfWidth(signal.representation, signal.width);
        if (size > MaxSize)
            throw std::length_error("the values of all signals need too much memory");
        signals.push_back(signal);
    }
}

}  // namespace Korvel
