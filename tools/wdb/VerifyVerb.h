#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "verify FILE" to the tool.
void addVerifyVerb(CLI::App& tool);

}  // namespace Korvel
