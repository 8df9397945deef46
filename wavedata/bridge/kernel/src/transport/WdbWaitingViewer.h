#pragma once

#include <string>

namespace Korvel {

/// While one lives, a simulator can tell that a viewer waits for its simulation: by a lock on the
/// directory by which they meet, since there is no ring yet.
class WdbWaitingViewer {
public:
    explicit WdbWaitingViewer(const std::string& directory);
    ~WdbWaitingViewer();
    WdbWaitingViewer(const WdbWaitingViewer&) = delete;
    WdbWaitingViewer& operator=(const WdbWaitingViewer&) = delete;

    /// Whether a viewer waits for the simulation of @p directory.
    static bool isThere(const std::string& directory);

private:
    int m_directory;
};

}  // namespace Korvel
