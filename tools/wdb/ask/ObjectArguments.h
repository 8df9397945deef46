#pragma once

#include "ask/ViewedObject.h"
#include "ask/ViewedRecording.h"

#include <string>
#include <vector>

namespace Korvel {

/// What the names on a command line stand for:
///   top.cpu.pc        an object by its full name, with or without its range
///   top.cpu.*         all objects that match, dots included; ? stands for one character
///   top.cpu.pc[15:8]  a slice, top.cpu.pc[3] one bit or element, in the declared numbering
///   @100:4            four bytes at address 100; without ":4" one
///
/// Objects come in the order of the names, those of a pattern in the order of declaration, each
/// once. No names mean all objects. Throws ToolError for a name that stands for nothing.
std::vector<ViewedObject> selectViewedObjects(const ViewedRecording& recording,
                                              const std::vector<std::string>& names);

/// The same before there is a recording.
/// @param file         What errors name.
/// @param description  Null where there is none.
std::vector<ViewedObject> selectViewedObjects(const std::string& file,
                                              const DesignDescription* description,
                                              const std::vector<std::string>& names);

/// Help text of the option that takes such names.
extern const char* const ObjectArgumentsHelp;

}  // namespace Korvel
