#pragma once

#include "description/DescriptionVocabulary.h"

#include <array>

namespace Korvel {

/// The VHDL types that supplementary variable attributes of dumps number, counted from 1, in the
/// low bits of their argument.
constexpr std::array<VariableKind, 16> NumberedVhdlKinds = {VariableKind::Boolean,
                                                            VariableKind::Bit,
                                                            VariableKind::BitVector,
                                                            VariableKind::StdULogic,
                                                            VariableKind::StdULogicVector,
                                                            VariableKind::StdLogic,
                                                            VariableKind::StdLogicVector,
                                                            VariableKind::Unsigned,
                                                            VariableKind::Signed,
                                                            VariableKind::Integer,
                                                            VariableKind::Real,
                                                            VariableKind::Natural,
                                                            VariableKind::Positive,
                                                            VariableKind::Time,
                                                            VariableKind::Character,
                                                            VariableKind::String};

}  // namespace Korvel
