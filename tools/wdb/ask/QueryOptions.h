#pragma once

#include "ask/ObjectArguments.h"
#include "ask/ValueFormat.h"
#include "ask/ViewedRecording.h"

#include <cstddef>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Korvel {

/// What every verb that shows values of objects is told.
struct QueryOptions {
    std::string file;
    std::vector<std::string> objects;
    Radix radix = Radix::Default;
    bool isJson = false;

    /// Adds FILE, -r and --json; FILE comes before other positional arguments. The options must
    /// live as long as the verb.
    void addTo(CLI::App& verb);
    /// -r and --json alone.
    void addFormatTo(CLI::App& verb);
    CLI::Option* addObjectsTo(CLI::App& verb);

    ValueFormat format(const ViewedRecording& recording) const {
        return {recording.description(), recording.strings(), radix};
    }
};

/// Width of a column that holds the names of objects, unless they are very long.
std::size_t nameColumn(const std::vector<ViewedObject>& objects);

/// Throws ToolError where what was printed could not be written.
void finishOutput();

}  // namespace Korvel
