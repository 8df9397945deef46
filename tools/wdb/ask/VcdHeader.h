#pragma once

#include "OutputFile.h"
#include "ask/ViewedObject.h"
#include "ask/ViewedRecording.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Korvel {

/// How the values of a variable are written.
enum class VcdValueForm : std::uint8_t { Digits, Real, Text, Event };

VcdValueForm vcdFormOf(const ViewedObject& viewed);

/// What is exported, each value once, under however many names.
struct VcdSignals {
    std::vector<ViewedObject> signals;    // without names
    std::vector<std::uint32_t> ofObject;  // by exported object: its signal

    explicit VcdSignals(const std::vector<ViewedObject>& objects);
};

/// Writes a dump's declarations: all scopes when @p hasAllScopes, else those of the objects.
///
/// @param objects  In the order of the signals' ofObject; variables are declared in the order in
///                 which the design has them.
void writeVcdHeader(OutputFile& output, const ViewedRecording& recording,
                    const std::vector<ViewedObject>& objects, const VcdSignals& signals,
                    bool hasAllScopes);

}  // namespace Korvel
