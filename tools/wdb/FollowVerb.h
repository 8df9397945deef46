#pragma once

namespace CLI {
class App;
}

namespace Korvel {

/// Adds "wdb follow".
void addFollowVerb(CLI::App& tool);

}  // namespace Korvel
