#pragma once

#include "description/DesignDescription.h"
#include "korvel/WdbAddressBTreeManager.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Korvel {

/// What is viewed under one name: an object, a slice of one, or plain bytes at an address.
struct ViewedObject {
    std::string name;  ///< as shown, with its range: "top.cpu.pc[15:8]"

    /// A slice looks like an object of its own: width, size and range are the slice's.
    ObjectView object;

    /// Bits right of a slice in the pair (VerilogFourState) or byte (SystemCBytes) at its address.
    std::uint32_t firstBit = 0;

    /// Whether values are made of digits, one a bit or element. The literals of an enumeration may
    /// be names instead; reals, texts and counts have none either.
    bool hasDigits = true;

    static constexpr ObjectId NoObject = 0xFFFFFFFFU;

    /// Bytes of which nothing is known but the address. Their digits are counted from the left, the
    /// byte at the lowest address first.
    bool isPlainBytes() const { return object.id == NoObject; }
    bool isBit() const { return hasDigits && object.width == 1; }

    /// VerilogFourState has one a bit, the rightmost first; everything else one a byte.
    std::size_t scalarCount() const;
    void appendScalars(std::vector<WdbScalar>& scalars) const;
};

/// All of an object, under its full name.
ViewedObject viewWhole(const DesignDescription& description, ObjectId id);

/// @p count bits or elements of an object that has digits; @p right of them lie right of the slice.
/// The caller gives it name and range.
ViewedObject viewSlice(const ViewedObject& whole, std::uint32_t right, std::uint32_t count);

/// Bytes from an address on, under the name "@100:4".
ViewedObject viewBytes(std::int64_t address, std::uint32_t size);

/// The scalars of several objects, one object's behind the other's. Throws ToolError naming
/// @p file where they are too many to be indexed.
std::vector<WdbScalar> scalarsOf(const std::vector<ViewedObject>& objects, const std::string& file);

/// What an object shows at one moment.
struct ViewedValue {
    enum State : std::uint8_t {
        None,   ///< nothing is recorded yet
        Known,  ///< the bytes are its value
        Dense   ///< several values, too close to be told apart
    };

    State state = None;
    /// As the representation has them, object.size in number; empty unless Known. Bits or elements
    /// without a record yet are X, or U.
    std::vector<std::uint8_t> bytes;

    bool operator==(const ViewedValue&) const = default;
};

/// @param entries  What the object's scalars show, in their order.
ViewedValue assembleValue(const ViewedObject& viewed, const WdbByteValue* entries);

}  // namespace Korvel
