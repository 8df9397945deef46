#pragma once

#include "description/DescriptionTables.h"

#include <string>

namespace Korvel {

// Checks everything in a description that the FlatBuffers verifier does not know: every number
// that refers to a record, every order that a look-up relies on, every count.
//
// Returns the first fault in one line, empty when there is none. After that
//   1. every name, scope, type and literal index is inside its vector,
//   2. a scope's parent is an earlier scope and no scope lies deeper than MaxScopeDepth,
//   3. each grouped list holds every scope or object exactly once, in the group of its parent,
//   4. the sorted lists are sorted, so that a binary search finds what a walk would find,
//   5. an object's bytes lie within the addresses that a signed 64-bit number can name.
std::string checkTables(const DescriptionTables& tables);

}  // namespace Korvel
