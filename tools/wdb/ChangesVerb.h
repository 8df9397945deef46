#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "wdb changes".
void addChangesVerb(CLI::App& tool);

}  // namespace Korvel
