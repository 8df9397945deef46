#pragma once

namespace Korvel {

/// What can look up events without being scanned. The list databases have none.
class WdbIEventSource {
public:
    virtual ~WdbIEventSource() = default;
};

}  // namespace Korvel
