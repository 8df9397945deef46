#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "list FILE [GLOB]" to the tool.
void addListVerb(CLI::App& tool);

}  // namespace Korvel
