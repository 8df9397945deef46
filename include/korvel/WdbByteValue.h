#pragma once

#include <vector>

namespace Korvel {

/// What one scalar shows at one moment. Plain values, copied freely.
struct WdbByteValue {
    /// No value: no record is in effect yet.
    static constexpr unsigned int NoValue = 0;
    /// One value, held in the field value.
    static constexpr unsigned int SingleValue = 1;
    /// Changes closer together than the drawing resolution were merged: no value means anything.
    static constexpr unsigned int DenseValue = 2;

    unsigned int type = NoValue;
    unsigned char value = 0;  ///< 0 unless type is SingleValue
};

/// Whether two entries look different: two dense ones never do, nor do two without a value.
inline bool isDifferent(const WdbByteValue& one, const WdbByteValue& other) {
    return one.type != other.type ||
           (one.type == WdbByteValue::SingleValue && one.value != other.value);
}

/// One record of a scalar's index.
struct WdbTimeByteValue {
    long long time = 0;  ///< in the simulator's base unit
    unsigned int type = WdbByteValue::NoValue;
    unsigned char value = 0;
};

/// What several scalars show from one time on.
struct WdbTimeByteValues {
    long long time = 0;
    std::vector<WdbByteValue> values;  ///< one a scalar, in the order in which they were asked for
};

}  // namespace Korvel
