#pragma once

namespace Korvel {

/// Drawing index of one scalar: one byte address of the simulator's data space.
///
/// What the event databases need of it: which address it indexes, so that a scan can tell which
/// buckets to read for it.
class WdbScalarBTree {
public:
    explicit WdbScalarBTree(long long address) : m_address(address) {}

    long long getAddress() const { return m_address; }

private:
    long long m_address;
};

}  // namespace Korvel
