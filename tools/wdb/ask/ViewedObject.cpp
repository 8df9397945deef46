#include "ask/ViewedObject.h"

#include "ToolError.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace Korvel {

namespace {

constexpr std::uint32_t BitsOfPair = 32;
constexpr std::uint32_t BytesOfPair = 8;
constexpr std::uint32_t BitsOfByte = 8;

// Beyond this many the indexes would not fit into any memory; only a damaged description has more.
constexpr std::size_t MostScalars = std::size_t{1} << 26;

// Whether the elements of an enumeration are letters of std_ulogic, so that they stand side by
// side like digits.
bool areDigits(const DesignDescription& description, TypeId type) {
    constexpr std::string_view Digits = "UX01ZWLH-";
    if (type == NoType) return true;
    const std::uint32_t count = description.literalCount(type);
    if (count > Digits.size()) return false;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::string_view name = description.literal(type, i).name;
        if (name.size() != 1 || Digits.find(name.front()) == std::string_view::npos) return false;
    }
    return true;
}

void assemblePairs(const ViewedObject& viewed, const WdbByteValue* entries,
                   std::vector<std::uint8_t>& bytes) {
    constexpr unsigned char UnknownBit = 3;
    for (std::uint32_t bit = 0; bit < viewed.object.width; ++bit) {
        const WdbByteValue& entry = entries[bit];
        const unsigned int state = entry.type == WdbByteValue::NoValue ? UnknownBit : entry.value;
        const std::size_t byte = bit / BitsOfPair * BytesOfPair + bit % BitsOfPair / BitsOfByte;
        const unsigned int shift = bit % BitsOfByte;
        bytes[byte] |= static_cast<std::uint8_t>((state & 1U) << shift);
        bytes[byte + BytesOfPair / 2] |= static_cast<std::uint8_t>((state >> 1 & 1U) << shift);
    }
}

void assembleBytes(const ViewedObject& viewed, const WdbByteValue* entries,
                   std::vector<std::uint8_t>& bytes) {
    const std::size_t count = viewed.scalarCount();
    for (std::size_t i = 0; i < bytes.size() && i < count; ++i) {
        unsigned int value = entries[i].value;
        if (i + 1 < count) value |= static_cast<unsigned int>(entries[i + 1].value) << BitsOfByte;
        bytes[i] = static_cast<std::uint8_t>(value >> viewed.firstBit);
    }
}

}  // namespace

std::size_t ViewedObject::scalarCount() const {
    if (object.representation == ValueRepresentation::VerilogFourState) return object.width;
    if (object.representation != ValueRepresentation::SystemCBytes) return object.size;
    return static_cast<std::size_t>((std::uint64_t{firstBit} + object.width + BitsOfByte - 1) /
                                    BitsOfByte);
}

void ViewedObject::appendScalars(std::vector<WdbScalar>& scalars) const {
    const std::size_t count = scalarCount();
    const bool isBits = object.representation == ValueRepresentation::VerilogFourState;
    for (std::size_t i = 0; i < count; ++i) {
        const auto place = static_cast<long long>(i) + firstBit;
        if (isBits) {
            scalars.push_back({object.address + place / BitsOfPair * BytesOfPair,
                               static_cast<int>(place % BitsOfPair)});
        } else {
            scalars.push_back({object.address + static_cast<long long>(i)});
        }
    }
}

ViewedObject viewWhole(const DesignDescription& description, ObjectId id) {
    ViewedObject viewed{description.objectPathWithRange(id), description.object(id)};
    ObjectView& object = viewed.object;
    switch (object.representation) {
        case ValueRepresentation::VerilogFourState:
            break;
        case ValueRepresentation::SystemCBytes:
            object.size = sizeOfWidth(object.representation, object.width);
            break;
        case ValueRepresentation::VhdlEnumeration:
            viewed.hasDigits = areDigits(description, object.type);
            break;
        default:
            viewed.hasDigits = false;
    }
    return viewed;
}

ViewedObject viewSlice(const ViewedObject& whole, std::uint32_t right, std::uint32_t count) {
    ViewedObject slice = whole;
    ObjectView& object = slice.object;
    if (object.representation == ValueRepresentation::VerilogFourState) {
        object.address += std::int64_t{right / BitsOfPair} * BytesOfPair;
        slice.firstBit = right % BitsOfPair;
    } else if (object.representation == ValueRepresentation::SystemCBytes) {
        object.address += right / BitsOfByte;
        slice.firstBit = right % BitsOfByte;
    } else {
        object.address += whole.object.width - right - count;
    }
    object.width = count;
    object.size = sizeOfWidth(object.representation, count);
    if (object.representation != ValueRepresentation::VhdlEnumeration) {
        // Some bits of an integer or of a state are neither.
        object.kind = VariableKind::Wire;
        object.type = NoType;
        object.isSigned = false;
    }
    return slice;
}

ViewedObject viewBytes(std::int64_t address, std::uint32_t size) {
    ViewedObject viewed;
    viewed.name = size == 1 ? fmt::format("@{}", address) : fmt::format("@{}:{}", address, size);
    viewed.object.id = ViewedObject::NoObject;
    viewed.object.representation = static_cast<ValueRepresentation>(0xFF);  // none that has a name
    viewed.object.width = size * BitsOfByte;
    viewed.object.address = address;
    viewed.object.size = size;
    return viewed;
}

std::vector<WdbScalar> scalarsOf(const std::vector<ViewedObject>& objects,
                                 const std::string& file) {
    std::size_t count = 0;
    for (const ViewedObject& viewed : objects) {
        count += viewed.scalarCount();
        if (count > MostScalars) {
            throw ToolError(file, fmt::format("the objects have more than {} bits, too many to be "
                                              "looked at at once",
                                              MostScalars));
        }
    }
    std::vector<WdbScalar> scalars;
    scalars.reserve(count);
    for (const ViewedObject& viewed : objects)
        viewed.appendScalars(scalars);
    return scalars;
}

ViewedValue assembleValue(const ViewedObject& viewed, const WdbByteValue* entries) {
    ViewedValue value;
    const WdbByteValue* end = entries + viewed.scalarCount();
    const auto hasType = [entries, end](unsigned int type) {
        return std::any_of(entries, end, [type](const WdbByteValue& e) { return e.type == type; });
    };
    if (hasType(WdbByteValue::DenseValue)) {
        value.state = ViewedValue::Dense;
    } else if (hasType(WdbByteValue::SingleValue)) {
        value.state = ViewedValue::Known;
        value.bytes.resize(viewed.object.size);
        if (viewed.object.representation == ValueRepresentation::VerilogFourState) {
            assemblePairs(viewed, entries, value.bytes);
        } else {
            assembleBytes(viewed, entries, value.bytes);
        }
    }
    return value;
}

}  // namespace Korvel
