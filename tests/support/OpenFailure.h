#pragma once

#include <string>
#include <utility>

#include "veld/OpenException.h"

namespace Korvel {

// Runs what must fail to open something, and returns "component|source file|message"; says so when
// the rest of the exception is missing. Empty when nothing was thrown.
template <typename Action>
std::string openFailureOf(Action&& action) {
    try {
        std::forward<Action>(action)();
    } catch (const Veld::OpenException& e) {
        if (e.getRevision().empty() || e.getSourceLine() < 1) return "incomplete exception";
        return e.getComponent() + "|" + e.getSourceFile() + "|" + e.getMessage();
    }
    return {};
}

}  // namespace Korvel
